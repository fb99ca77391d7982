// TCP over loopback, bulk: the library's sending and receiving in blocks of 64 KB beside bare blocking loops between
// sockets of the same kind, and beside sockets as the system makes them. Every byte is compared on its way in. The
// other end is a process of its own.
#include "Bench.h"

#include "net/LProcessTCP.h"

#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t kBlock = 65'536;
constexpr size_t kPattern = 1'000'003;  // no multiple of a block: a block that is lost or doubled shows
const size_t kBytes = bench::IsQuick() ? 100'000'000 : 1'000'000'000;
const int kRounds = bench::IsQuick() ? 1 : 3;

[[noreturn]] void Die(const char* what) {
    perror(what);
    exit(1);
}

const std::string& Pattern() {
    static const std::string pattern = [] {
        std::string bytes(kPattern + kBlock, ' ');
        uint64_t state = 1;
        for (size_t i = 0; i < kPattern; i++) {
            state = state * 6'364'136'223'846'793'005u + 1'442'695'040'888'963'407u;
            bytes[i] = static_cast<char>(state >> 56);
        }
        std::memcpy(bytes.data() + kPattern, bytes.data(), kBlock);
        return bytes;
    }();
    return pattern;
}

using Block = std::function<void(char* bytes, size_t size)>;

void SendAll(const Block& send) {
    for (size_t done = 0; done < kBytes;) {
        const size_t size = std::min(kBlock, kBytes - done);
        send(const_cast<char*>(Pattern().data()) + done % kPattern, size);
        done += size;
    }
}

void ReceiveAll(const Block& receive) {
    static char block[kBlock];
    for (size_t done = 0; done < kBytes;) {
        const size_t size = std::min(kBlock, kBytes - done);
        receive(block, size);
        if (std::memcmp(block, Pattern().data() + done % kPattern, size) != 0) Die("other bytes than were sent");
        done += size;
    }
}

// --- the two ways ----------------------------------------------------------------------------------------------------

Block BareSend(int socket) {
    return [socket](const char* bytes, size_t size) {
        for (size_t done = 0; done < size;) {
            const ssize_t sent = ::send(socket, bytes + done, size - done, MSG_NOSIGNAL);
            if (sent <= 0) Die("send");
            done += static_cast<size_t>(sent);
        }
    };
}

Block BareReceive(int socket) {
    return [socket](char* bytes, size_t size) {
        if (::recv(socket, bytes, size, MSG_WAITALL) != static_cast<ssize_t>(size)) Die("recv");
    };
}

LProcessInterfaceVoid process;

Block JobSend(int socket) {
    return [socket](const char* bytes, size_t size) {
        if (ProcessSend(process, LIPSocketTCPRef(socket), bytes, size, kSignalNoTimeOut) != processDone) Die("send");
    };
}

Block JobReceive(int socket) {
    return [socket](char* bytes, size_t size) {
        if (ProcessRecvBytes(process, LIPSocketTCPRef(socket), bytes, size, kSignalNoTimeOut) != processDone)
            Die("receive");
    };
}

// --- rounds ----------------------------------------------------------------------------------------------------------

class Listener {
public:
    Listener() {
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(socket.Get(), reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 || listen(socket.Get(), 5) != 0 ||
            getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&name), &size) != 0)
            Die("listen");
    }

    // What the sending side is: a socket of the library's kind, or one as the system makes it.
    int Connect(bool isLibrarys) const {
        const int fd = isLibrarys ? LOpenSocketTCP() : ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        fcntl(fd, F_SETFL, 0);
        if (connect(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) Die("connect");
        return fd;
    }

    int Accept() const {
        const int fd = accept4(socket.Get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) Die("accept");
        return fd;
    }

private:
    LDescriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_in name{AF_INET, 0, {}, {}};
    socklen_t size = sizeof name;
};

struct Way {
    bool isLibrarysSocket;
    Block (*send)(int socket);
    Block (*receive)(int socket);
};

// One transfer from a child to this process, timed by whoever receives: it has everything last.
void Transfer(bench::Samples& samples, const Way& way) {
    const Listener listener;
    const pid_t sender = fork();
    if (sender < 0) Die("fork");
    if (sender == 0) {
        const int fd = listener.Connect(way.isLibrarysSocket);
        if (way.send == JobSend) fcntl(fd, F_SETFL, O_NONBLOCK);
        SendAll(way.send(fd));
        _exit(0);
    }
    const int fd = listener.Accept();
    if (way.receive == JobReceive) fcntl(fd, F_SETFL, O_NONBLOCK);
    const uint64_t start = bench::NowNs();
    ReceiveAll(way.receive(fd));
    samples.Add(static_cast<double>(kBytes) * 1e3 / static_cast<double>(bench::NowNs() - start));
    close(fd);
    int status = 0;
    if (waitpid(sender, &status, 0) < 0 || status != 0) Die("the sender failed");
}

}  // namespace

int main() {
    Pattern();
    bench::Samples system, bare, send, receive;
    for (int i = 0; i < kRounds; i++) {  // in turn: what else the machine does meets all of them
        Transfer(system, {false, BareSend, BareReceive});
        Transfer(bare, {true, BareSend, BareReceive});
        Transfer(send, {true, JobSend, BareReceive});
        Transfer(receive, {true, BareSend, JobReceive});
    }
    system.Print("tcp.system_sockets", "MB/s");
    bare.Print("tcp.bare", "MB/s", "tcp.system_sockets");
    send.Print("tcp.send", "MB/s", "tcp.bare");
    receive.Print("tcp.receive", "MB/s", "tcp.bare");
}
