#include "text/LPtr.h"

#include <functional>
#include <gtest/gtest.h>

namespace {

struct Base {
    virtual ~Base() = default;
};

struct Object : Base {
    explicit Object(std::function<void()> f) : onDestroyed(std::move(f)) {}
    ~Object() override { onDestroyed(); }
    std::function<void()> onDestroyed;
};

TEST(LPtr, DeletesWhatItHeldThroughTheVirtualDestructor) {
    int destroyed = 0;
    const auto count = [&] { destroyed++; };
    {
        LPtr<Base> pointer;
        EXPECT_FALSE(pointer);
        Base* const first = new Object(count);
        pointer = first;
        pointer = first;  // the one already held
        EXPECT_EQ(destroyed, 0);
        EXPECT_EQ(pointer.Get(), first);
        pointer = new Object(count);
        EXPECT_EQ(destroyed, 1);
        pointer.Reset();
        EXPECT_EQ(destroyed, 2);
        EXPECT_EQ(pointer.Get(), nullptr);
        pointer = new Object(count);
    }
    EXPECT_EQ(destroyed, 3);
}

TEST(LPtr, DestructorSeesAnEmptyPointerAndMayStoreAnother) {
    LPtr<Base> pointer;
    int sawNull = 0, destroyed = 0;
    const auto look = [&] { sawNull += !pointer; };
    for (int way = 0; way < 2; way++) {
        pointer = new Object(look);
        if (way)
            pointer.Reset();
        else
            pointer = nullptr;
    }
    EXPECT_EQ(sawNull, 2);

    pointer = new Object([&] { pointer = new Object([&] { destroyed++; }); });
    pointer.Reset();
    EXPECT_EQ(destroyed, 1);
    EXPECT_FALSE(pointer);
}

}  // namespace
