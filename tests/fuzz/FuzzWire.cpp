// The frame reader and the messages made of frames. The input is one frame: a header and its payload.
#include "Frames.h"
#include "Fuzz.h"

#include "XPCConnection.h"
#include "XPCDictionary.h"

#include "app/LScheduleHelperKeys.h"
#include "app/LScheduleHelperRequest.h"
#include "xpc/LXPCData.h"

#include <cmath>
#include <fcntl.h>
#include <vector>

using namespace platform;

namespace {

using Message = XPCRef<XPCDictionary>;

std::vector<Descriptor> OpenDescriptors(size_t count) {
    std::vector<Descriptor> descriptors;
    for (size_t i = 0; i < count; i++) descriptors.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return descriptors;
}

// Both readers agree, and what was read is written back byte for byte.
bool ReadBoth(std::string_view payload, const wire::FrameHeader& header, frames::Frame& frame) {
    std::vector<wire::Item> items(header.items);
    const bool isTaken = wire::ReadItems(payload, header.items, header.descriptors, items.data());
    const bool isWhole = frames::ReadItems(payload, header.items, header.descriptors, frame.items);
    Require(isTaken == isWhole, "both readers take the same payloads");
    if (!isTaken) return false;
    std::string again;
    for (size_t i = 0; i < items.size(); i++) {
        const frames::Item& item = frame.items[i];
        const wire::Item written =
            wire::AppendItem(again, static_cast<wire::Type>(item.type), item.key, item.value.data(), item.value.size());
        Require(written.keyAt == items[i].keyAt && written.valueLength == items[i].valueLength,
                "an item lies where it was written");
    }
    Require(again == payload, "writing is the reverse of reading");
    return true;
}

long Low32(std::string_view value) {
    int32_t low;
    std::memcpy(&low, value.data(), sizeof low);
    return low;
}

// What a key registered as `type` is read as, told from the bytes alone.
void CheckItem(const LXPCData& item, const frames::Item& sent) {
    const bool isSame = static_cast<int>(item.type) == sent.type;
    const auto* const pointer = reinterpret_cast<const char*>(item.nValue);
    Require(item.nSize == (isSame && item.type == xpcDataData ? sent.value.size() : 0), "only data have a size");
    if (!isSame) return Require(item.nValue == (item.type == xpcDataFD ? -1 : 0), "another type reads as nothing");
    double real = 0;
    int64_t whole = 0;
    if (sent.value.size() == 8) {
        std::memcpy(&real, sent.value.data(), 8);
        std::memcpy(&whole, sent.value.data(), 8);
    }
    switch (item.type) {
    case xpcDataBool:
        return Require(item.nValue == sent.value[0], "a truth value is read");
    case xpcDataInt64:
    case xpcDataUInt64:
        return Require(item.nValue == Low32(sent.value), "the low 32 bits of a number are read");
    case xpcDataDouble:
        if (std::fabs(real) < 1e15) Require(item.nValue == static_cast<long>(real), "a double is truncated");
        return;
    case xpcDataDate:
        return Require(item.nValue == whole, "all of a date is read");
    case xpcDataData:
    case xpcDataUUID:
        return Require(std::memcmp(pointer, sent.value.data(), sent.value.size()) == 0, "bytes are read");
    case xpcDataString:
        return Require(pointer + std::string_view(pointer).size() + 1 == pointer + sent.value.size() &&
                           sent.value.starts_with(pointer),
                       "a text is read");
    case xpcDataFD:
        Require(fcntl(static_cast<int>(item.nValue), F_GETFD) == FD_CLOEXEC, "a descriptor is read");
        close(static_cast<int>(item.nValue));
        return;
    case xpcDataNone:
        return;
    }
}

// Reads a message with the helper's keys, and with its own keys in all types.
void CheckReading(const Message& message, const frames::Frame& frame) {
    LList<LXPCDictionaryKeyListable> keys;
    for (const LScheduleHelperKey& key : LScheduleHelperKeys())
        keys.Add(new LXPCDictionaryKeyListable(key.szName, key.type));
    for (size_t i = 0; i < std::min<size_t>(frame.items.size(), 32); i++)
        keys.Add(new LXPCDictionaryKeyListable(frame.items[i].key.c_str(),
                                               static_cast<LXPCDataType>(frame.items[i].type + (i % 4 == 3))));
    LList<LXPCDataListable> items;
    GetXPCDictionary(message.get(), keys, items);
    const LScheduleHelperRequest request = LScheduleHelperRequest::Read(items);
    const auto action = request.action;
    if (action == LScheduleHelperRequest::Add || action == LScheduleHelperRequest::Delete)
        Require(request.bundleId && request.bundlePath && request.skedName, "what is acted upon is named");
    if (action == LScheduleHelperRequest::Handshake && request.IsFromMainApp())
        Require(frame.Find(kKeyMainAppBundleId)->value == std::string_view(kMainAppBundleId, sizeof kMainAppBundleId),
                "a handshake is the main application's");
    Require(request.weekDays < 128 && request.LaunchSeconds() <= request.startSeconds, "requests are in range");
    for (LListIterator<LXPCDataListable> item(items); item; item.Next()) {
        const frames::Item* const sent = frame.Find(item->szName);
        Require(sent != nullptr, "only what was sent is read");
        CheckItem(*item, *sent);
    }
}

// Builds the same message by its setters: of each key the last value stays, behind all that was set before it.
void CheckSetting(const frames::Frame& frame) {
    const Message message = Message::Adopt(new XPCDictionary);
    std::vector<frames::Item> expected;
    unsigned descriptors = 0;
    for (const frames::Item& item : frame.items) {
        const std::string key = item.key.c_str();
        std::erase_if(expected, [&](const frames::Item& other) { return other.key == key; });
        expected.push_back({item.type, key, item.value});
        if (item.type == frames::kDescriptor)
            message->SetDescriptor(key.c_str(), STDERR_FILENO);
        else
            message->Set(static_cast<wire::Type>(item.type), key.c_str(), item.value.data(), item.value.size());
    }
    for (const frames::Item& item : expected) descriptors += item.type == frames::kDescriptor;
    std::vector<frames::Item> written;
    Require(frames::ReadItems(message->Payload(), message->ItemCount(), descriptors, written) && written == expected,
            "a message holds what was set");
    Require(message->Descriptors().size() == descriptors, "a message holds the descriptors that were set");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < frames::kHeader) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    frames::Frame frame;
    const frames::Reading reading = frames::Read(input, 0, frame);
    const auto header = wire::ReadHeader(input.data());
    if (!header) return Require(reading == frames::Reading::Broken, "only a broken header is refused"), 0;
    Require(header->number == frame.number && header->descriptors == frame.descriptors, "both readers agree");

    // Where the length is wrong, what there is counts: else most inputs would end here.
    const std::string_view payload = input.substr(frames::kHeader);
    if (!ReadBoth(payload, *header, frame)) return 0;
    const Message message =
        XPCDictionary::Received(*header, payload, OpenDescriptors(header->descriptors), XPCRef<XPCConnection>());
    CheckReading(message, frame);
    CheckSetting(frame);
    return 0;
}
