#include <Foundation/NSData.h>

NSData NSData::dataWithBytes(const void* bytes, size_t length) {
    NSData result;
    result.payload =
        NSPayload<std::string>(length ? std::string(static_cast<const char*>(bytes), length) : std::string());
    return result;
}
