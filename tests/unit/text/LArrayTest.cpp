#include "text/LArray.h"
#include "text/LVector.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

struct Pair {
    void* a = nullptr;
    void* b = nullptr;
};

// Lives in storage that must not leak, and may refuse to be copied.
struct Counted {
    static inline int alive = 0;
    static inline int copiesLeft = 0;
    int value = 0;
    Counted() { alive++; }
    ~Counted() { alive--; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted& other) {
        if (!copiesLeft--) throw std::runtime_error("copy");
        value = other.value;
        return *this;
    }
};

TEST(LArray, ConstructsItsElementsAndRefusesSizesAbove32Bits) {
    LArray<Pair> array(3);
    for (unsigned long i = 0; i < 3; i++) EXPECT_TRUE(!array[i].a && !array[i].b);
    EXPECT_THROW(LArray<Pair>(0x10000000), std::bad_alloc);          // 4 GiB
    EXPECT_THROW(LArray<Pair>(0x1000000000000001), std::bad_alloc);  // 16 bytes when the product wraps
    EXPECT_THROW(LArray<char>(0x100000000), std::bad_alloc);
}

TEST(LVector, SetSizeKeepsTheLeadingElements) {
    LVector<int> v;
    EXPECT_EQ(v.Get(), nullptr);
    v.SetSize(0);
    EXPECT_EQ(v.Get(), nullptr);
    v.SetSize(3);
    for (int i = 0; i < 3; i++) v[static_cast<unsigned long>(i)] = i + 1;
    const int* const storage = v.Get();
    v.SetSize(3);
    EXPECT_EQ(v.Get(), storage);
    v.SetSize(5);
    EXPECT_EQ(v.Size(), 5u);
    EXPECT_TRUE(v[0] == 1 && v[1] == 2 && v[2] == 3);
    v.SetSize(2);
    EXPECT_EQ(v.Size(), 2u);
    EXPECT_TRUE(v[0] == 1 && v[1] == 2);
    v.SetSize(0);
    EXPECT_EQ(v.Get(), nullptr);
    EXPECT_EQ(v.Size(), 0u);
}

TEST(LVector, FailedSetSizeLeavesItAsItWas) {
    {
        LVector<Counted> v;
        v.SetSize(4);
        v[3].value = 7;
        const Counted* const storage = v.Get();
        Counted::copiesLeft = 2;
        EXPECT_THROW(v.SetSize(6), std::runtime_error);
        EXPECT_THROW(v.SetSize(0x80000000), std::bad_alloc);
        EXPECT_EQ(v.Get(), storage);
        EXPECT_EQ(v.Size(), 4u);
        EXPECT_EQ(v[3].value, 7);
        EXPECT_EQ(Counted::alive, 4);
    }
    EXPECT_EQ(Counted::alive, 0);
}

}  // namespace
