// IPv4 TCP sockets and addresses. Values and owners without locks: one thread at a time for each object.
#pragma once

#include <bsd/LDescriptor.h>

#include <cstdint>
#include <netinet/in.h>

// Owns one socket, or none.
class LIPSocketTCP {
public:
    LIPSocketTCP() = default;
    explicit LIPSocketTCP(int opened) : socket(opened) {}

    int Descriptor() const { return socket.Get(); }  // -1: none
    // The caller owns it from now on; -1 is left here.
    int TakeDescriptor() { return socket.Release(); }
    void Close() { socket.Reset(); }
    void Adopt(int opened) { socket.Reset(opened); }

private:
    LDescriptor socket;
};

// A view, by value, for operations that don't own the socket.
struct LIPSocketTCPRef {
    LIPSocketTCPRef(const LIPSocketTCP& socket) : descriptor(socket.Descriptor()) {}
    explicit LIPSocketTCPRef(int number) : descriptor(number) {}

    int descriptor;
};

// As the system has it; INADDR_NONE means no address.
struct LIPAddressWithPort {
    LIPAddressWithPort() = default;
    // The address in network byte order, the port in the host's.
    LIPAddressWithPort(uint32_t address, uint16_t port) {
        name.sin_addr.s_addr = address;
        name.sin_port = htons(port);
    }

    sockaddr_in name{AF_INET, 0, {INADDR_NONE}, {}};
};

// Addresses of one host, tried in order. Further ones than these are left out.
struct LIPAddressMultiHomedWithPort {
    static constexpr uint32_t kMaxAddresses = 16;

    // In network byte order; false when there is no room.
    bool Add(uint32_t address) {
        if (count == kMaxAddresses) return false;
        addresses[count++] = address;
        return true;
    }

    uint32_t port = 0;  // 16 bits, in the host's byte order
    uint32_t count = 0;
    uint32_t addresses[kMaxAddresses] = {};
};
