// The items of a message, the keys that an endpoint reads, and the conversions between item lists and XPC dictionaries.
// A message is flat: string keys with one scalar each; the set of keys present is its whole meaning. Plain records; any
// thread, one at a time.
//
// Pointers in items: when sending they are the sender's and must stay valid until SetXPCDictionary returns; in a
// received item they point into the message and live as long as the callback that delivers it. A received descriptor is
// closed by the endpoint after that callback, unless the callback takes it by setting nValue to -1.
#pragma once

#include "text/LCopyBounded.h"
#include "text/LList.h"
#include "xpc/LXPCDataType.h"

struct LXPCData {
    char szName[LTextBufferSize] = "";  // the key
    LXPCDataType type = xpcDataNone;
    long nValue = -1;         // see LXPCDataType; holds pointers
    unsigned long nSize = 0;  // bytes of a data item, else 0
};

struct LXPCDataListable : LXPCData {
    LXPCDataListable* pNext = nullptr;
};

struct LXPCDictionaryKeyListable {
    LXPCDictionaryKeyListable() = default;
    LXPCDictionaryKeyListable(const char* name, LXPCDataType keyType) : type(keyType) {
        LCopyBounded(szName, name, sizeof szName);
    }

    char szName[LTextBufferSize] = "";  // longer names are cut
    LXPCDataType type = xpcDataNone;
    LXPCDictionaryKeyListable* pNext = nullptr;
};

// A new item (the caller's) with the key's name and type.
LXPCDataListable* CreateXPCData(const LXPCDictionaryKeyListable& key, long value, unsigned long size);

// Writes an item into an XPC dictionary, in the place of an earlier one of its name. An item without a type is skipped,
// and so is a text, data or UUID without a pointer (0 or -1).
void SetXPCItem(void* dictionary, const LXPCData& item);
// Writes the items, in the list's order.
void SetXPCDictionary(void* dictionary, const LList<LXPCDataListable>& items);

// Adds one item at the front of `items` for every key that the dictionary holds. Since keys are registered at the
// front, too, the items come out in the order of registration. A value of another type than the key's reads as 0, false
// or null. Numbers are cut to their low 32 bits, with sign; dates keep their width; doubles are truncated and saturate.
void GetXPCDictionary(void* dictionary, const LList<LXPCDictionaryKeyListable>& keys, LList<LXPCDataListable>& items);
