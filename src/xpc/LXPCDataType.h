// LXPCDataType: the type of a message item, and of a key that an endpoint reads. Values outside 1 to 9 count as none.
#pragma once

#include <cstdint>

enum LXPCDataType : int32_t {
    xpcDataNone = 0,
    xpcDataBool = 1,    // value: 0 or 1 (when sending, anything but 0 is true)
    xpcDataInt64 = 2,   // value: a signed number
    xpcDataUInt64 = 3,  // value: a number
    xpcDataDouble = 4,  // value: a whole number
    xpcDataDate = 5,    // value: an LDateTime's seconds
    xpcDataData = 6,    // value: pointer to the bytes, size: their count
    xpcDataUUID = 7,    // value: pointer to 16 bytes
    xpcDataString = 8,  // value: pointer to a terminated text
    xpcDataFD = 9,      // value: a file descriptor
};
