// Requests, one-way messages and connections through the library's endpoints, between two processes on one processor,
// beside the same over bare sockets and, where it is installed, sd-bus from peer to peer. Seven entries a message.
#include "Bench.h"
#include "MainBundle.h"

#include "xpc/LXPCClient.h"
#include "xpc/LXPCMachServer.h"

#include <dispatch/pump.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#ifdef HAVE_SDBUS
#include <systemd/sd-bus.h>
#endif

namespace {

// A quick run does a tenth.
const int kRequests = bench::IsQuick() ? 2'000 : 20'000;
const int kMessages = bench::IsQuick() ? 10'000 : 100'000;
const int kConnections = bench::IsQuick() ? 300 : 3'000;
constexpr size_t kRawMessage = 200;
constexpr char kService[] = "com.example.bench";

[[noreturn]] void Die(const char* what) {
    perror(what);
    _exit(1);
}

void Pin() {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(0, &set);
    sched_setaffinity(0, sizeof set, &set);
}

template <class F>
pid_t Child(F body) {
    fflush(stdout);
    const pid_t pid = fork();
    if (pid < 0) Die("fork");
    if (pid) return pid;
    body();
    _exit(0);
}

void End(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// --- bare sockets ----------------------------------------------------------------------------------------------------

bool ReadAll(int fd, char* data, size_t n) {
    while (n) {
        const ssize_t got = read(fd, data, n);
        if (got <= 0) return false;
        data += got;
        n -= static_cast<size_t>(got);
    }
    return true;
}

void WriteAll(int fd, const char* data, size_t n) {
    if (write(fd, data, n) != static_cast<ssize_t>(n)) Die("write");
}

void EchoWithEpoll(int fd) {
    const int ep = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = EPOLLIN;
    if (epoll_ctl(ep, EPOLL_CTL_ADD, fd, &event) != 0) Die("epoll_ctl");
    char bytes[kRawMessage];
    while (epoll_wait(ep, &event, 1, -1) == 1 && ReadAll(fd, bytes, sizeof bytes)) WriteAll(fd, bytes, sizeof bytes);
}

void RawRequests() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) Die("socketpair");
    const pid_t server = Child([&] {
        close(ends[0]);
        EchoWithEpoll(ends[1]);
    });
    close(ends[1]);
    char bytes[kRawMessage]{};
    bench::Timed(
        "raw.request", "us", 20'000, 1,
        [&] {
            WriteAll(ends[0], bytes, sizeof bytes);
            if (!ReadAll(ends[0], bytes, sizeof bytes)) Die("read");
        },
        "", kRequests / 20);
    close(ends[0]);
    waitpid(server, nullptr, 0);
}

void RawOneWay() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) Die("socketpair");
    const pid_t server = Child([&] {
        close(ends[0]);
        static char buffer[65536];
        for (size_t left = static_cast<size_t>(kMessages) * kRawMessage; left > 0;) {
            const ssize_t got = read(ends[1], buffer, std::min(left, sizeof buffer));
            if (got <= 0) Die("read");
            left -= static_cast<size_t>(got);
        }
        WriteAll(ends[1], "", 1);
    });
    char bytes[kRawMessage]{};
    bench::Timed(
        "raw.one_way", "msg/s", 1, kMessages,
        [&] {
            for (int i = 0; i < kMessages; i++) WriteAll(ends[0], bytes, sizeof bytes);
            if (!ReadAll(ends[0], bytes, 1)) Die("read");
        },
        "", 0);
    waitpid(server, nullptr, 0);
}

void RawConnections(const std::string& folder) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (folder + "/raw").c_str(), sizeof address.sun_path - 1);
    const auto* where = reinterpret_cast<const sockaddr*>(&address);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    if (bind(listener, where, sizeof address) != 0 || listen(listener, 64) != 0) Die("listen");
    const pid_t server = Child([&] {
        char bytes[kRawMessage];
        for (;;) {
            const int fd = accept(listener, nullptr, nullptr);
            while (ReadAll(fd, bytes, sizeof bytes)) WriteAll(fd, bytes, sizeof bytes);
            close(fd);
        }
    });
    char bytes[kRawMessage]{};
    bench::Timed("raw.connection", "us", 3'000, 1, [&] {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (connect(fd, where, sizeof address) != 0) Die("connect");
        WriteAll(fd, bytes, sizeof bytes);
        if (!ReadAll(fd, bytes, sizeof bytes)) Die("read");
        close(fd);
    });
    End(server);
    close(listener);
}

// --- the calls that a request and a connection can't do without ------------------------------------------------------

// Both ends wait for any of many sockets, messages go out in two parts and come in with room for descriptors.
void SendParts(int fd, char* bytes) {
    constexpr size_t kHead = 24;
    iovec parts[] = {{bytes, kHead}, {bytes + kHead, kRawMessage - kHead}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT) != ssize_t{kRawMessage}) Die("sendmsg");
}

bool ReceiveParts(int fd, char* bytes) {
    iovec part{bytes, 16 * 1024};
    alignas(cmsghdr) char control[CMSG_SPACE(64 * sizeof(int))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    return recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) == ssize_t{kRawMessage};
}

void Watch(int events, int fd) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
    event.data.fd = fd;
    if (epoll_ctl(events, EPOLL_CTL_ADD, fd, &event) != 0) Die("epoll_ctl");
}

int Ready(int events) {
    epoll_event event;
    return epoll_wait(events, &event, 1, -1) == 1 ? event.data.fd : -1;
}

// Answers on every socket of the set; closes those that end.
[[noreturn]] void AnswerAll(int events) {
    static char bytes[16 * 1024];
    for (;;) {
        const int fd = Ready(events);
        if (ReceiveParts(fd, bytes))
            SendParts(fd, bytes);
        else
            close(fd);
    }
}

void FloorOfRequests() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) Die("socketpair");
    const pid_t server = Child([&] {
        const int events = epoll_create1(EPOLL_CLOEXEC);
        Watch(events, ends[1]);
        AnswerAll(events);
    });
    const int events = epoll_create1(EPOLL_CLOEXEC);
    Watch(events, ends[0]);
    static char bytes[16 * 1024];
    bench::Timed(
        "floor.request", "us", 20'000, 1,
        [&] {
            SendParts(ends[0], bytes);
            if (Ready(events) < 0 || !ReceiveParts(ends[0], bytes)) Die("reply");
        },
        "raw.request", kRequests / 20);
    for (const int fd : {events, ends[0], ends[1]}) close(fd);
    End(server);
}

// The server's main thread accepts, looks who it is, and leaves the rest to another; so does the client, which first
// looks whose the folder and the socket are, with telling its owner of the end.
void FloorOfConnections(const std::string& folder) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (folder + "/floor").c_str(), sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener, 64) != 0)
        Die("listen");
    ucred peer;
    socklen_t size = sizeof peer;
    const pid_t server = Child([&] {
        const int arrivals = epoll_create1(EPOLL_CLOEXEC), events = epoll_create1(EPOLL_CLOEXEC);
        std::thread(AnswerAll, events).detach();
        epoll_event event{EPOLLIN, {.fd = listener}};
        epoll_ctl(arrivals, EPOLL_CTL_ADD, listener, &event);
        while (Ready(arrivals) == listener) {
            const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size);
            Watch(events, fd);
        }
    });
    const int events = epoll_create1(EPOLL_CLOEXEC), ended = eventfd(0, EFD_CLOEXEC);
    std::thread([&] {
        for (eventfd_t count; eventfd_read(ended, &count) == 0 && count < 1'000'000;) {
        }
    }).detach();
    static char bytes[16 * 1024];
    bench::Timed(
        "floor.connection", "us", 3'000, 1,
        [&] {
            struct stat status;
            const int opened = open(folder.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_DIRECTORY);
            fstat(opened, &status);
            fstatat(opened, "floor", &status, AT_SYMLINK_NOFOLLOW);
            std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/floor", opened);
            const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Die("connect");
            getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size);
            close(opened);
            Watch(events, fd);
            SendParts(fd, bytes);
            if (Ready(events) != fd || !ReceiveParts(fd, bytes)) Die("reply");
            close(fd);
            eventfd_write(ended, 1);
        },
        "raw.connection");
    End(server);
    eventfd_write(ended, 1'000'000);
    close(listener);
    close(events);
}

// --- the library's endpoints -----------------------------------------------------------------------------------------

long Text(const char* text) {
    return reinterpret_cast<long>(text);
}

void AddKeys(LXPCBase& endpoint) {
    endpoint.AddKey("name", xpcDataString);
    endpoint.AddKey("start", xpcDataDate);
    endpoint.AddKey("length", xpcDataInt64);
    endpoint.AddKey("repeat", xpcDataInt64);
    endpoint.AddKey("enabled", xpcDataBool);
    endpoint.AddKey("rate", xpcDataDouble);
    endpoint.AddKey("path", xpcDataString);
}

const std::vector<LXPCData>& SevenItems() {
    static const std::vector<LXPCData> items = [] {
        std::vector<LXPCData> list;
        const auto add = [&](const char* name, LXPCDataType type, long value) {
            LXPCData item;
            LCopyBounded(item.szName, name, sizeof item.szName);
            item.type = type;
            item.nValue = value;
            list.push_back(item);
        };
        add("name", xpcDataString, Text("Evening concert"));
        add("start", xpcDataDate, 1900000000);
        add("length", xpcDataInt64, 3600);
        add("repeat", xpcDataInt64, 3);
        add("enabled", xpcDataBool, 1);
        add("rate", xpcDataDouble, 44100);
        add("path", xpcDataString, Text("recordings/evening concert.wav"));
        return list;
    }();
    return items;
}

class ServerSink final : public LXPCServerEventNotify {
public:
    void EvConnectionError(long connection, LXPCErrorType) override { server->Disconnect(connection); }
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        size_t count = 0;
        for (LListIterator<LXPCDataListable> it(items); it; it.Next()) count++;
        if (count != SevenItems().size()) Die("items");
        LList<LXPCDataListable> reply;
        for (const LXPCData& item : SevenItems()) {
            auto* copy = new LXPCDataListable;
            static_cast<LXPCData&>(*copy) = item;
            reply.Add(copy);
        }
        server->SendReply(connection, message, reply);
    }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}
    void EvInvalidConnectionAttempt() override {}

    LXPCMachServer* server = nullptr;
};

[[noreturn]] void Serve(const std::string& folder) {
    platform::SetMainBundleRoot(folder + "/Bench.app");
    ServerSink sink;
    LXPCMachServer server(&sink);
    sink.server = &server;
    AddKeys(server);
    server.Start(kService);
    Die("service");
}

class ClientSink final : public LXPCEventNotify {
public:
    void EvConnectionError(long, LXPCErrorType error) override {
        if (error == xpcErrorConnectionInterrupted) Die("interrupted");
    }
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override { onReply(); }
    void EvMessageSent(long) override {}

    std::function<void()> onReply;
};

class Client {
public:
    Client() { AddKeys(client); }

    void Connect() {
        while (!client.Connect(kService, 0, true)) usleep(1000);  // the server is starting
    }
    void Send(bool withReply) { client.SendMessage(kService, 0, SevenItems().data(), SevenItems().size(), withReply); }

    // Each answer asks the next question, as the main thread of an application would.
    void Requests() {
        bench::Samples samples;
        int left = kRequests + kRequests / 20;
        uint64_t start = 0;
        const auto ask = [&] {
            start = bench::NowNs();
            Send(true);
        };
        sink.onReply = [&] {
            if (left <= kRequests) samples.Add(static_cast<double>(bench::NowNs() - start) / 1000);
            if (--left > 0) ask();
        };
        Connect();
        ask();
        dispatch_pump_main([&] { return left == 0; }, 0xFFFFFFFF);
        samples.Print("xpc.request", "us", "raw.request");
        samples.Print("xpc.request_beside_bus", "us", "bus.request");
        samples.Print("xpc.request_beside_floor", "us", "floor.request");
    }

    void OneWay() {
        bool done = false;
        sink.onReply = [&] { done = true; };
        const uint64_t start = bench::NowNs();
        for (int i = 0; i < kMessages; i++) Send(false);
        Send(true);
        dispatch_pump_main([&] { return done; }, 0xFFFFFFFF);
        bench::One("xpc.one_way", "msg/s", kMessages * 1e9 / static_cast<double>(bench::NowNs() - start),
                   "bus.one_way");
    }

    void Connections() {
        bench::Samples samples;
        int left = kConnections;
        uint64_t start = 0;
        const auto ask = [&] {
            start = bench::NowNs();
            if (!client.Connect(kService, 0, true)) Die("connect");
            Send(true);
        };
        sink.onReply = [&] {
            client.Disconnect(kService, 0);
            samples.Add(static_cast<double>(bench::NowNs() - start) / 1000);
            if (--left > 0) ask();
        };
        ask();
        dispatch_pump_main([&] { return left == 0; }, 0xFFFFFFFF);
        samples.Print("xpc.connection", "us", "raw.connection");
        samples.Print("xpc.connection_beside_floor", "us", "floor.connection");
    }

private:
    ClientSink sink;
    LXPCClient client{&sink};
};

void Endpoints(const std::string& folder) {
    std::filesystem::create_directories(folder + "/Bench.app/Contents");
    std::ofstream(folder + "/Bench.app/Contents/Info.plist")
        << "<plist version=\"1.0\"><dict><key>MachServices</key><dict><key>" << kService
        << "</key><true/></dict></dict></plist>";
    setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
    const pid_t server = Child([&] { Serve(folder); });
    const pid_t client = Child([] {
        Client c;
        c.Requests();
        c.OneWay();
        c.Connections();
    });
    int status = 0;
    waitpid(client, &status, 0);
    End(server);
    if (status != 0) _exit(1);
}

// --- sd-bus ----------------------------------------------------------------------------------------------------------

#ifdef HAVE_SDBUS
uint64_t noted = 0;

int Checked(int result, const char* what) {
    if (result >= 0) return result;
    errno = -result;
    Die(what);
}

void Put(sd_bus_message* m) {
    Checked(sd_bus_message_append(m, "a{sv}", 7, "name", "s", "Evening concert", "start", "x", int64_t{1900000000},
                                  "length", "x", int64_t{3600}, "repeat", "i", 3, "enabled", "b", 1, "rate", "d",
                                  44100.0, "path", "s", "recordings/evening concert.wav"),
            "append");
}

void Take(sd_bus_message* m) {
    Checked(sd_bus_message_enter_container(m, 'a', "{sv}"), "array");
    while (Checked(sd_bus_message_enter_container(m, 'e', "sv"), "entry") > 0) {
        const char *key = nullptr, *contents = nullptr;
        char type = 0;
        union {
            const char* s;
            int64_t x;
            double d;
            int i;
        } value;
        Checked(sd_bus_message_read(m, "s", &key), "key");
        Checked(sd_bus_message_peek_type(m, &type, &contents), "peek");
        Checked(sd_bus_message_enter_container(m, 'v', contents), "variant");
        Checked(sd_bus_message_read_basic(m, contents[0], &value), "value");
        Checked(sd_bus_message_exit_container(m), "variant end");
        Checked(sd_bus_message_exit_container(m), "entry end");
    }
    Checked(sd_bus_message_exit_container(m), "array end");
}

int OnCall(sd_bus_message* m, void*, sd_bus_error*) {
    Take(m);
    sd_bus_message* reply = nullptr;
    Checked(sd_bus_message_new_method_return(m, &reply), "reply");
    Put(reply);
    const int result = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return result;
}

int OnNote(sd_bus_message* m, void*, sd_bus_error*) {
    Take(m);
    noted++;
    return 1;
}

int OnCount(sd_bus_message* m, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(m, "t", noted);
}

void ServeBus(int fd) {
    static const sd_bus_vtable table[] = {
        SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Call", "a{sv}", "a{sv}", OnCall, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("Note", "a{sv}", "", OnNote, SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
        SD_BUS_METHOD("Count", "", "t", OnCount, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
    sd_bus* bus = nullptr;
    sd_id128_t id;
    Checked(sd_bus_new(&bus), "new");
    Checked(sd_id128_randomize(&id), "id");
    Checked(sd_bus_set_fd(bus, fd, fd), "fd");
    Checked(sd_bus_set_server(bus, 1, id), "server");
    Checked(sd_bus_start(bus), "start");
    Checked(sd_bus_add_object_vtable(bus, nullptr, "/y", "y.Y", table, nullptr), "vtable");
    for (int r = 0; r >= 0;)
        if ((r = sd_bus_process(bus, nullptr)) == 0) r = sd_bus_wait(bus, UINT64_MAX);
}

sd_bus_message* NewCall(sd_bus* bus, const char* method) {
    sd_bus_message* m = nullptr;
    Checked(sd_bus_message_new_method_call(bus, &m, nullptr, "/y", "y.Y", method), "call");
    return m;
}

void CallBus(sd_bus* bus, const char* method, bool withEntries) {
    sd_bus_message* m = NewCall(bus, method);
    if (withEntries) Put(m);
    sd_bus_message* reply = nullptr;
    Checked(sd_bus_call(bus, m, 60'000'000, nullptr, &reply), "call");
    if (withEntries) Take(reply);
    sd_bus_message_unref(reply);
    sd_bus_message_unref(m);
}

void Bus() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) != 0) Die("socketpair");
    const pid_t server = Child([&] {
        close(ends[0]);
        ServeBus(ends[1]);
    });
    close(ends[1]);
    sd_bus* bus = nullptr;
    Checked(sd_bus_new(&bus), "new");
    Checked(sd_bus_set_fd(bus, ends[0], ends[0]), "fd");
    Checked(sd_bus_start(bus), "start");
    bench::Timed(
        "bus.request", "us", 10'000, 1, [&] { CallBus(bus, "Call", true); }, "", 500);
    constexpr int kNotes = 30'000;
    bench::Timed(
        "bus.one_way", "msg/s", 1, kNotes,
        [&] {
            for (int i = 0; i < kNotes; i++) {
                sd_bus_message* m = NewCall(bus, "Note");
                Checked(sd_bus_message_set_expect_reply(m, 0), "no reply");
                Put(m);
                Checked(sd_bus_send(bus, m, nullptr), "send");
                sd_bus_message_unref(m);
            }
            CallBus(bus, "Count", false);
        },
        "", 0);
    sd_bus_close_unref(bus);
    waitpid(server, nullptr, 0);
}
#else
void Bus() {}
#endif

}  // namespace

int main() {
    Pin();
    std::string folder = std::filesystem::temp_directory_path() / "bench.XXXXXX";
    if (!mkdtemp(folder.data())) Die("mkdtemp");
    RawRequests();
    FloorOfRequests();
    RawOneWay();
    RawConnections(folder);
    FloorOfConnections(folder);
    Bus();
    Endpoints(folder);
    std::filesystem::remove_all(folder);
}
