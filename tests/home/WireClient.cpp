#include "home/WireClient.h"

#include "XPCWire.h"

#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace wire = platform::wire;

namespace {

void AppendTo(std::string& payload, const LXPCData& item) {
    switch (item.type) {
    case xpcDataBool: {
        const char value = item.nValue != 0;
        wire::AppendItem(payload, wire::Type::Bool, item.szName, &value, 1);
        return;
    }
    case xpcDataString: {
        const std::string_view text = reinterpret_cast<const char*>(item.nValue);
        wire::AppendItem(payload, wire::Type::String, item.szName, text.data(), text.size() + 1);
        return;
    }
    default:
        wire::AppendItem(payload, static_cast<wire::Type>(item.type), item.szName, &item.nValue, sizeof item.nValue);
    }
}

}  // namespace

WireClient::WireClient(const std::string& socketPath) : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const bool fits = socketPath.size() < sizeof address.sun_path;
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    if (!fits || connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        socket.Reset();
}

std::string WireClient::FrameOf(const tools::HelperRequest& request) {
    std::string payload;
    for (const LXPCData& item : request.Items()) AppendTo(payload, item);
    wire::FrameHeader header;
    header.number = request.ReplyKey().empty() ? 0 : ++number;
    header.payloadLength = static_cast<uint32_t>(payload.size());
    header.items = static_cast<uint16_t>(request.Items().size());
    return payload.insert(0, reinterpret_cast<const char*>(&header), sizeof header);
}

bool WireClient::Send(const tools::HelperRequest& request) {
    return SendBytes(FrameOf(request));
}

bool WireClient::SendBytes(std::string_view bytes, int flags) const {
    const ssize_t sent = send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | flags);
    return sent == static_cast<ssize_t>(bytes.size());
}

void WireClient::EndStream() const {
    shutdown(socket.Get(), SHUT_WR);
}

bool WireClient::AwaitEnd(int timeoutMs) const {
    pollfd readable{socket.Get(), POLLIN, 0};
    char bytes[4096];
    while (poll(&readable, 1, timeoutMs) == 1)
        if (recv(socket.Get(), bytes, sizeof bytes, 0) <= 0) return true;
    return false;
}

std::optional<bool> WireClient::Ask(const tools::HelperRequest& request, int timeoutMs) {
    return Send(request) ? Answer(request, timeoutMs) : std::nullopt;
}

std::optional<bool> WireClient::Answer(const tools::HelperRequest& request, int timeoutMs) {
    char bytes[sizeof(wire::FrameHeader)];
    if (!Receive(bytes, sizeof bytes, timeoutMs)) return std::nullopt;
    const auto header = wire::ReadHeader(bytes);
    if (!header || header->number != ++answered) return std::nullopt;
    std::string payload(header->payloadLength, '\0');
    if (!Receive(payload.data(), payload.size(), timeoutMs)) return std::nullopt;
    wire::Item reply{};
    if (header->items != 1 || !wire::ReadItems(payload, 1, header->descriptors, &reply)) return std::nullopt;
    if (std::string_view(payload).substr(reply.keyAt, reply.keyLength) != request.ReplyKey()) return std::nullopt;
    return payload[reply.valueAt()] != 0;
}

bool WireClient::Receive(char* bytes, size_t size, int timeoutMs) const {
    pollfd readable{socket.Get(), POLLIN, 0};
    return poll(&readable, 1, timeoutMs) == 1 &&
           recv(socket.Get(), bytes, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}
