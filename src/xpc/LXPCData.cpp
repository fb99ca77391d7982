#include "xpc/LXPCData.h"

#include <xpc/xpc.h>

#include <cmath>
#include <limits>
#include <memory>

namespace {

bool IsType(LXPCDataType type) {
    return type >= xpcDataBool && type <= xpcDataFD;
}

// The main application and the helper may differ in width: what travels as a number means 32 bits.
long Low32(uint64_t value) {
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

long FromDouble(double value) {
    if (std::isnan(value)) return 0;
    if (value >= -static_cast<double>(std::numeric_limits<long>::min())) return std::numeric_limits<long>::max();
    if (value <= static_cast<double>(std::numeric_limits<long>::min())) return std::numeric_limits<long>::min();
    return static_cast<long>(value);
}

long FromPointer(const void* pointer) {
    return reinterpret_cast<long>(pointer);
}

// The value of a key that the dictionary holds; `size` is preset to 0.
long GetValue(xpc_object_t dictionary, const LXPCDictionaryKeyListable& key, size_t& size) {
    switch (key.type) {
    case xpcDataBool:
        return xpc_dictionary_get_bool(dictionary, key.szName);
    case xpcDataInt64:
        return Low32(static_cast<uint64_t>(xpc_dictionary_get_int64(dictionary, key.szName)));
    case xpcDataUInt64:
        return Low32(xpc_dictionary_get_uint64(dictionary, key.szName));
    case xpcDataDouble:
        return FromDouble(xpc_dictionary_get_double(dictionary, key.szName));
    case xpcDataDate:
        return xpc_dictionary_get_date(dictionary, key.szName);
    case xpcDataData:
        return FromPointer(xpc_dictionary_get_data(dictionary, key.szName, &size));
    case xpcDataUUID:
        return FromPointer(xpc_dictionary_get_uuid(dictionary, key.szName));
    case xpcDataString:
        return FromPointer(xpc_dictionary_get_string(dictionary, key.szName));
    case xpcDataFD:
        return xpc_dictionary_dup_fd(dictionary, key.szName);
    case xpcDataNone:
        break;
    }
    return 0;
}

}  // namespace

LXPCDataListable* CreateXPCData(const LXPCDictionaryKeyListable& key, long value, unsigned long size) {
    auto item = std::make_unique<LXPCDataListable>();
    LCopyBounded(item->szName, key.szName, sizeof item->szName);
    item->type = key.type;
    item->nValue = value;
    item->nSize = size;
    return item.release();
}

void SetXPCItem(void* target, const LXPCData& item) {
    const auto dictionary = static_cast<xpc_object_t>(target);
    const long value = item.nValue;
    const bool noPointer = value == 0 || value == -1;
    const auto* const pointer = reinterpret_cast<const char*>(value);
    switch (item.type) {
    case xpcDataBool:
        return xpc_dictionary_set_bool(dictionary, item.szName, value != 0);
    case xpcDataInt64:
        return xpc_dictionary_set_int64(dictionary, item.szName, value);
    case xpcDataUInt64:
        return xpc_dictionary_set_uint64(dictionary, item.szName, static_cast<uint64_t>(value));
    case xpcDataDouble:
        return xpc_dictionary_set_double(dictionary, item.szName, static_cast<double>(value));
    case xpcDataDate:
        return xpc_dictionary_set_date(dictionary, item.szName, value);
    case xpcDataData:
        if (!noPointer || (value == 0 && item.nSize == 0))
            xpc_dictionary_set_data(dictionary, item.szName, pointer, item.nSize);
        return;
    case xpcDataUUID:
        if (!noPointer)
            xpc_dictionary_set_uuid(dictionary, item.szName, reinterpret_cast<const unsigned char*>(pointer));
        return;
    case xpcDataString:
        if (!noPointer) xpc_dictionary_set_string(dictionary, item.szName, pointer);
        return;
    case xpcDataFD:
        return xpc_dictionary_set_fd(dictionary, item.szName, static_cast<int>(value));
    case xpcDataNone:
        return;
    }
}

void SetXPCDictionary(void* dictionary, const LList<LXPCDataListable>& items) {
    for (LListIterator<LXPCDataListable> item(items); item; item.Next()) SetXPCItem(dictionary, *item);
}

void GetXPCDictionary(void* dictionary, const LList<LXPCDictionaryKeyListable>& keys, LList<LXPCDataListable>& items) {
    const auto message = static_cast<xpc_object_t>(dictionary);
    for (LListIterator<LXPCDictionaryKeyListable> key(keys); key; key.Next()) {
        if (!IsType(key->type) || !xpc_dictionary_get_value(message, key->szName)) continue;
        size_t size = 0;
        const long value = GetValue(message, *key, size);
        items.Add(CreateXPCData(*key, value, size));
    }
}
