#include "xpc/LXPCData.h"

#include <xpc/xpc.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

struct Release {
    void operator()(xpc_object_t object) const { xpc_release(object); }
};
using Dictionary = std::unique_ptr<xpc_object_s, Release>;

Dictionary NewDictionary() {
    return Dictionary(xpc_dictionary_create(nullptr, nullptr, 0));
}

void AddItem(LList<LXPCDataListable>& items, const char* name, LXPCDataType type, long value, unsigned long size = 0) {
    items.Add(CreateXPCData({name, type}, value, size));
}

long Pointer(const void* p) {
    return reinterpret_cast<long>(p);
}

// Reads one key out of a dictionary that holds it.
LXPCDataListable ReadOne(const Dictionary& dictionary, const char* name, LXPCDataType type) {
    LList<LXPCDictionaryKeyListable> keys;
    keys.Add(new LXPCDictionaryKeyListable(name, type));
    LList<LXPCDataListable> items;
    GetXPCDictionary(dictionary.get(), keys, items);
    return items.IsEmpty() ? LXPCDataListable() : *items.Head();
}

TEST(LXPCData, SendsEachTypeByItsSetter) {
    const auto d = NewDictionary();
    LList<LXPCDataListable> items;
    AddItem(items, "bool", xpcDataBool, 5);
    AddItem(items, "int64", xpcDataInt64, -3);
    AddItem(items, "uint64", xpcDataUInt64, -3);
    AddItem(items, "double", xpcDataDouble, 7);
    AddItem(items, "date", xpcDataDate, 1'700'000'000);
    AddItem(items, "data", xpcDataData, Pointer("abc"), 3);
    AddItem(items, "empty data", xpcDataData, 0, 0);
    AddItem(items, "uuid", xpcDataUUID, Pointer("0123456789abcdef"));
    AddItem(items, "string", xpcDataString, Pointer("text"));
    SetXPCDictionary(d.get(), items);
    EXPECT_TRUE(xpc_dictionary_get_bool(d.get(), "bool"));
    EXPECT_EQ(xpc_dictionary_get_int64(d.get(), "int64"), -3);
    EXPECT_EQ(xpc_dictionary_get_uint64(d.get(), "uint64"), UINT64_MAX - 2);
    EXPECT_EQ(xpc_dictionary_get_double(d.get(), "double"), 7.0);
    EXPECT_EQ(xpc_dictionary_get_date(d.get(), "date"), 1'700'000'000);
    size_t length = 9;
    EXPECT_NE(xpc_dictionary_get_data(d.get(), "empty data", &length), nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_STREQ(xpc_dictionary_get_string(d.get(), "string"), "text");
    EXPECT_EQ(ReadOne(d, "data", xpcDataData).nSize, 3u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(ReadOne(d, "uuid", xpcDataUUID).nValue), 16),
              "0123456789abcdef");
}

TEST(LXPCData, SkipsWhatHasNoTypeOrNoPointer) {
    const auto d = NewDictionary();
    LList<LXPCDataListable> items;
    AddItem(items, "none", xpcDataNone, 1);
    AddItem(items, "ten", static_cast<LXPCDataType>(10), 1);
    AddItem(items, "negative", static_cast<LXPCDataType>(-1), 1);
    for (const long pointer : {0L, -1L}) {
        AddItem(items, "string", xpcDataString, pointer);
        AddItem(items, "uuid", xpcDataUUID, pointer);
        AddItem(items, "data", xpcDataData, pointer, 3);
    }
    AddItem(items, "data", xpcDataData, -1, 0);
    SetXPCDictionary(d.get(), items);
    for (const char* name : {"none", "ten", "negative", "string", "uuid", "data"})
        EXPECT_EQ(xpc_dictionary_get_value(d.get(), name), nullptr) << name;
}

TEST(LXPCData, NarrowsNumbersKeepsDatesAndSaturatesDoubles) {
    const auto d = NewDictionary();
    const auto readInt = [&](int64_t v) {
        xpc_dictionary_set_int64(d.get(), "k", v);
        return ReadOne(d, "k", xpcDataInt64).nValue;
    };
    EXPECT_EQ(readInt((int64_t{1} << 32) + 5), 5);
    EXPECT_EQ(readInt(-1), -1);
    EXPECT_EQ(readInt(0x80000000), INT_MIN);
    xpc_dictionary_set_uint64(d.get(), "k", 0xFFFFFFFF);
    EXPECT_EQ(ReadOne(d, "k", xpcDataUInt64).nValue, -1);
    xpc_dictionary_set_date(d.get(), "k", int64_t{1} << 40);
    EXPECT_EQ(ReadOne(d, "k", xpcDataDate).nValue, int64_t{1} << 40);
    const auto readDouble = [&](double v) {
        xpc_dictionary_set_double(d.get(), "k", v);
        return ReadOne(d, "k", xpcDataDouble).nValue;
    };
    EXPECT_EQ(readDouble(2.9), 2);
    EXPECT_EQ(readDouble(-2.9), -2);
    EXPECT_EQ(readDouble(1e300), LONG_MAX);
    EXPECT_EQ(readDouble(9223372036854775808.0), LONG_MAX);
    EXPECT_EQ(readDouble(-1e300), LONG_MIN);
    EXPECT_EQ(readDouble(std::nan("")), 0);
}

TEST(LXPCData, ReadsInTheOrderOfRegistrationAndYieldsItemsForOtherTypes) {
    const auto d = NewDictionary();
    xpc_dictionary_set_bool(d.get(), "C", true);
    xpc_dictionary_set_int64(d.get(), "A", 1);
    xpc_dictionary_set_int64(d.get(), "unregistered", 1);
    LList<LXPCDictionaryKeyListable> keys;  // as AddKey does: at the front
    for (const char* name : {"A", "B", "C"}) keys.Add(new LXPCDictionaryKeyListable(name, xpcDataString));
    keys.Add(new LXPCDictionaryKeyListable("A", static_cast<LXPCDataType>(10)));
    LList<LXPCDataListable> items;
    GetXPCDictionary(d.get(), keys, items);
    std::vector<std::string> names;
    for (LListIterator<LXPCDataListable> it(items); it; it.Next()) {
        names.emplace_back(it->szName);
        EXPECT_EQ(it->nValue, 0);  // a number isn't a text
    }
    EXPECT_EQ(names, (std::vector<std::string>{"A", "C"}));
}

TEST(LXPCData, LongNamesMeetAtTheirFirst259Bytes) {
    const auto d = NewDictionary();
    const std::string name(300, 'n');
    LList<LXPCDataListable> items;
    AddItem(items, name.c_str(), xpcDataInt64, 4);
    SetXPCDictionary(d.get(), items);
    EXPECT_EQ(ReadOne(d, (name.substr(0, 259) + "x").c_str(), xpcDataInt64).nValue, 4);
}

TEST(LXPCData, ReceivedDescriptorsAreNewOnes) {
    const auto d = NewDictionary();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    xpc_dictionary_set_fd(d.get(), "fd", ends[1]);
    const auto item = ReadOne(d, "fd", xpcDataFD);
    EXPECT_NE(item.nValue, ends[1]);
    EXPECT_EQ(write(static_cast<int>(item.nValue), "x", 1), 1);
    for (const int fd : {ends[0], ends[1], static_cast<int>(item.nValue)}) close(fd);
    xpc_dictionary_set_bool(d.get(), "fd", true);
    EXPECT_EQ(ReadOne(d, "fd", xpcDataFD).nValue, -1);
}

}  // namespace
