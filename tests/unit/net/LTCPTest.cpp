#include "net/LProcessTCP.h"
#include "net/LTCPListener.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <climits>
#include <functional>
#include <malloc.h>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

constexpr unsigned int kLong = 20'000;

class Stoppable : public LProcessInterfaceVoid {
public:
    bool IsToStop() override { return stop; }
    std::atomic<bool> stop{false};
};

// Asks to stop from one of its questions on.
class StoppingAt : public LProcessInterfaceVoid {
public:
    explicit StoppingAt(int question = INT_MAX) : last(question) {}
    bool IsToStop() override { return ++asked >= last; }
    int last;
    int asked = 0;
};

// More than the system keeps for a peer that doesn't read.
std::string LongText() {
    std::string text(20'000'000, ' ');
    for (size_t i = 0; i < text.size(); i++) text[i] = static_cast<char>(i * 31 + i / 251);
    return text;
}

uint16_t PortOf(int socket) {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size);
    return ntohs(name.sin_port);
}

// Holds a port on which nobody listens, or listens but doesn't accept.
class Port {
public:
    explicit Port(int backlog) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const LIPAddressWithPort any(htonl(INADDR_LOOPBACK), 0);
        ::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&any.name), sizeof any.name);
        if (backlog >= 0) ::listen(socket.Get(), backlog);
    }
    int Get() const { return socket.Get(); }
    uint16_t Number() const { return PortOf(socket.Get()); }

private:
    LDescriptor socket;
};

LIPAddressWithPort Loopback(uint16_t port) {
    return {htonl(INADDR_LOOPBACK), port};
}

// A connected pair: one end by ProcessConnect.
struct Pair {
    Pair() {
        const Port port(5);
        EXPECT_EQ(ProcessConnect(process, mine, Loopback(port.Number()), kLong), processDone);
        other.Reset(::accept4(port.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        // By itself it grows with what is read, in the end to more than any test sends.
        const int room = 1'000'000;
        EXPECT_EQ(::setsockopt(other.Get(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room), 0);
    }
    void Come(const std::string& bytes) {
        EXPECT_EQ(::send(other.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    Stoppable process;
    LIPSocketTCP mine;
    LDescriptor other;
};

class Listener : public LTCPListener {
public:
    Listener(uint16_t number, std::function<void(LIPSocketTCP&)> function)
        : LTCPListener(number), handle(std::move(function)) {}
    ~Listener() override { StopThreadNow(); }
    void EvConnectionAccepted(LIPSocketTCP& connection) override { handle(connection); }

private:
    std::function<void(LIPSocketTCP&)> handle;
};

}  // namespace

TEST(ProcessConnect, RefusedStoppedTimedOutOrMade) {
    Stoppable process;
    LIPSocketTCP socket;
    const Port silent(-1), full(0);
    EXPECT_EQ(ProcessConnect(process, socket, Loopback(silent.Number()), kLong), processFailed);
    EXPECT_EQ(socket.Descriptor(), -1);
    EXPECT_EQ(ProcessConnect(process, socket, LIPAddressWithPort(), kLong), processFailed);
    LIPAddressMultiHomedWithPort hosts;
    hosts.port = full.Number();
    EXPECT_EQ(ProcessConnect(process, socket, hosts, kLong), processFailed);  // no address
    hosts.Add(INADDR_NONE);
    hosts.Add(htonl(INADDR_LOOPBACK));
    EXPECT_EQ(ProcessConnect(process, socket, hosts, kLong), processDone);
    // The backlog is full: further ones wait for an answer that doesn't come.
    std::vector<LIPSocketTCP> more(3);
    int last = processDone;
    for (LIPSocketTCP& one : more) last = ProcessConnect(process, one, Loopback(full.Number()), 1);
    EXPECT_EQ(last, processFailed);
    process.stop = true;
    EXPECT_EQ(ProcessConnect(process, more[2], Loopback(full.Number()), kSignalNoTimeOut), processStopped);
    EXPECT_EQ(more[2].Descriptor(), -1);
}

// The system gives connecting sockets every other port in turn, the even ones by default: within one round the one that
// is asked for.
TEST(ProcessConnect, NobodyListensIsNotTheSocketItself) {
    LProcessInterfaceVoid process;
    LIPSocketTCP socket;
    const auto port = static_cast<uint16_t>(Port(-1).Number() & ~1);
    int result = processFailed;
    for (int i = 0; i < 15'000 && result == processFailed; i++)
        result = ProcessConnect(process, socket, Loopback(port), kLong);
    EXPECT_EQ(result, processFailed);
}

TEST(ProcessRecv, WhatHasComeAndNoMore) {
    Pair pair;
    char buffer[100];
    unsigned long got = 7;
    unsigned char byte = 0;
    EXPECT_EQ(ProcessRecvReady(pair.process, pair.mine, buffer, 0, got, 0), processDone);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(ProcessRecvReady(pair.process, pair.mine, buffer, 10, got, 0), processFailed);  // nothing came
    const auto upTo = [&](const char* terminators, unsigned long size) {
        EXPECT_EQ(ProcessRecvToCharacter(pair.process, pair.mine, buffer, size, got, terminators, kLong), processDone);
        return std::string(buffer, got);
    };
    pair.Come(std::string("ab\ncd\0e", 7));
    EXPECT_EQ(upTo("\n", 100), "ab\n");
    EXPECT_EQ(upTo("\n", 2), "cd");
    EXPECT_EQ(upTo("xe", 100), std::string("\0e", 2));
    pair.Come("wxyz");
    EXPECT_EQ(ProcessRecvByte(pair.process, pair.mine, byte, kLong), processDone);
    EXPECT_EQ(byte, 'w');
    EXPECT_EQ(ProcessRecvBytes(pair.process, pair.mine, buffer, 2, kLong), processDone);
    EXPECT_EQ(ProcessRecvBytes(pair.process, pair.mine, buffer, 0, kLong), processDone);
    // Half of what is wanted, then the end.
    ::shutdown(pair.other.Get(), SHUT_WR);
    EXPECT_EQ(ProcessRecvBytes(pair.process, pair.mine, buffer, 10, got, kLong), processFailed);
    EXPECT_EQ(got, 1u);
    EXPECT_FALSE(ProcessRecvAll(pair.process, pair.mine, buffer, 10, got, kLong));
    EXPECT_EQ(ProcessWaitForDataOrClose(pair.process, pair.mine, kLong), processDone);
    EXPECT_EQ(ProcessWaitForDataOrClose(pair.process, LIPSocketTCPRef(-1), kLong), processFailed);
    pair.process.stop = true;
    EXPECT_EQ(ProcessWaitForDataOrClose(pair.process, pair.mine, kLong), processStopped);
    EXPECT_TRUE(ProcessRecvAll(pair.process, pair.mine, buffer, 10, got, kLong));
}

TEST(ProcessSend, AllOfItInOrderUnlessThePeerIsGoneOrSleeps) {
    Pair pair;
    const std::string sent = LongText();
    std::string received(sent.size(), ' ');
    std::thread reader([&] {
        for (size_t done = 0; done < received.size();) {
            const ssize_t more = ::recv(pair.other.Get(), received.data() + done, received.size() - done, 0);
            if (more <= 0) return;
            done += static_cast<size_t>(more);
        }
    });
    EXPECT_EQ(ProcessSend(pair.process, pair.mine, sent.data(), sent.size(), kSignalNoTimeOut), processDone);
    reader.join();
    EXPECT_EQ(received, sent);
    EXPECT_EQ(ProcessSend(pair.process, pair.mine, sent.data(), sent.size(), 0), processFailed);  // nobody reads
    int queued = 0;
    ::ioctl(pair.mine.Descriptor(), TIOCOUTQ, &queued);
    EXPECT_LE(queued, 2 * 32'768);  // and nobody keeps more than this for it
    StoppingAt second(2);
    EXPECT_EQ(ProcessSend(second, pair.mine, sent.data(), sent.size(), kLong), processStopped);
    EXPECT_EQ(second.asked, 2);
    pair.other.Reset();
    EXPECT_EQ(ProcessSend(pair.process, pair.mine, sent.data(), sent.size(), kLong), processFailed);
    EXPECT_EQ(ProcessSend(pair.process, LIPSocketTCPRef(-1), sent.data(), 1, kLong), processFailed);
    pair.process.stop = true;
    EXPECT_EQ(ProcessSend(pair.process, pair.mine, sent.data(), 1, kLong), processStopped);
}

// There is always something to read then: no wait ever comes to an end and asks. Memory stays as it is, other peers are
// heard in between, and no byte is read once the answer was to stop.
TEST(ProcessRecv, APeerThatSendsWithoutEnd) {
    const size_t kPiece = 100'000;
    Pair flooding, quiet;
    const std::string text = LongText();
    std::thread flood([&] {
        for (ssize_t more = 0, sent = 0; more >= 0; sent = (sent + more) % static_cast<ssize_t>(text.size()))
            more = ::send(flooding.other.Get(), &text[static_cast<size_t>(sent)],
                          text.size() - static_cast<size_t>(sent), MSG_NOSIGNAL);
    });
    StoppingAt process;
    std::string piece(kPiece, ' ');
    const size_t memoryBefore = mallinfo2().uordblks + mallinfo2().hblkhd;
    for (size_t at = 0; at + kPiece <= text.size() && !testing::Test::HasFailure(); at += kPiece) {
        EXPECT_EQ(ProcessRecvBytes(process, flooding.mine, piece.data(), kPiece, kLong), processDone);
        EXPECT_TRUE(text.compare(at, kPiece, piece) == 0) << at;
        quiet.Come("x");
        EXPECT_EQ(ProcessRecvBytes(process, quiet.mine, piece.data(), 1, kLong), processDone);
    }
    EXPECT_LT(mallinfo2().uordblks + mallinfo2().hblkhd, memoryBefore + kPiece);
    const auto waiting = [&] {
        int bytes = 0;
        return ::ioctl(flooding.mine.Descriptor(), FIONREAD, &bytes) == 0 ? bytes : INT_MAX;
    };
    while (waiting() < 100) std::this_thread::yield();
    int count = 0;
    unsigned char byte = 0;
    process.last = process.asked + 3;
    for (; count < 100 && ProcessRecvByte(process, flooding.mine, byte, kLong) == processDone; count++) continue;
    EXPECT_EQ(count, 2);
    flooding.mine.Close();
    flood.join();
}

TEST(LTCPListener, HandsOverOneConnectionAfterTheOther) {
    uint16_t port = Port(-1).Number();
    LIPSocketTCP kept;
    std::atomic<int> count{0};
    Stoppable process;
    Listener listener(port, [&](LIPSocketTCP& connection) {
        ProcessSend(process, connection, "hello", 5, kLong);
        if (count == 1) kept.Adopt(connection.TakeDescriptor());
        count++;
    });
    listener.Start(0);
    char text[5];
    LIPSocketTCP first, second;
    while (ProcessConnect(process, first, Loopback(port), kLong) != processDone) std::this_thread::yield();
    EXPECT_EQ(ProcessRecvBytes(process, first, text, 5, kLong), processDone);
    EXPECT_EQ(ProcessRecvBytes(process, first, text, 1, kLong), processFailed);  // closed
    ASSERT_EQ(ProcessConnect(process, second, Loopback(port), kLong), processDone);
    EXPECT_EQ(ProcessRecvBytes(process, second, text, 5, kLong), processDone);
    while (count < 2) std::this_thread::yield();
    EXPECT_EQ(ProcessSend(process, kept, "again", 5, kLong), processDone);  // kept
    EXPECT_EQ(ProcessRecvBytes(process, second, text, 5, kLong), processDone);
    // A port that is taken: it waits to try again, and stops at once.
    Listener late(port, [](LIPSocketTCP&) {});
    late.Start(0);
}

namespace {

// Its pauses are as long as the test makes them.
class PatientListener final : public Listener {
public:
    using Listener::Listener;
    ~PatientListener() override { StopThreadNow(); }
    bool ProcessWait(unsigned int milliseconds) override {
        asked = milliseconds;
        pauses++;
        pauses.notify_all();
        over.wait(false);
        return IsToStop();
    }

    std::atomic<unsigned int> asked{0};
    std::atomic<int> pauses{0};
    std::atomic<bool> over{false};
};

}  // namespace

TEST(LTCPListener, ABusyPortIsTriedAgainAfterHalfAMinute) {
    auto holder = std::make_unique<Port>(5);
    const uint16_t port = holder->Number();
    std::atomic<int> count{0};
    PatientListener listener(port, [&](LIPSocketTCP&) { count++; });
    listener.Start(0);
    listener.pauses.wait(0);
    EXPECT_EQ(listener.asked, 30'000u);
    holder.reset();
    Stoppable process;
    LIPSocketTCP socket;
    EXPECT_EQ(ProcessConnect(process, socket, Loopback(port), kLong), processFailed);  // not before the time
    listener.over = true;
    listener.over.notify_all();
    while (ProcessConnect(process, socket, Loopback(port), kLong) != processDone) std::this_thread::yield();
    while (count < 1) std::this_thread::yield();
}

TEST(TCP, DescriptorsAboveASelectSet) {
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    rlimit more = before;
    more.rlim_cur = std::min<rlim_t>(before.rlim_max, 4'096);
    if (more.rlim_cur < 2'000 || ::setrlimit(RLIMIT_NOFILE, &more) != 0) GTEST_SKIP() << "too few descriptors";
    {
        std::vector<LDescriptor> fill;
        while (fill.empty() || fill.back().Get() < 1'100) fill.emplace_back(::dup(0));
        Pair pair;
        EXPECT_GT(pair.mine.Descriptor(), 1'024);
        pair.Come("x");
        unsigned char byte = 0;
        EXPECT_EQ(ProcessRecvByte(pair.process, pair.mine, byte, kLong), processDone);
        EXPECT_EQ(ProcessSend(pair.process, pair.mine, &byte, 1, kLong), processDone);
    }
    ::setrlimit(RLIMIT_NOFILE, &before);
}
