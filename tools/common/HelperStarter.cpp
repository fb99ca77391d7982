#include "HelperStarter.h"

#include "ScheduleStore.h"
#include "UserUnit.h"

#include <AppKit/AppKit.h>
#include <dispatch/pump.h>

#include <chrono>
#include <iostream>

namespace tools {

namespace {

using Milliseconds = std::chrono::milliseconds;
using Moment = std::chrono::steady_clock::time_point;

constexpr uint32_t lookAgainMs = 20;

uint32_t RemainingMs(Moment deadline) {
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return left > 0 ? static_cast<uint32_t>(left) : 0;
}

// Whether the connection leads to a helper that works.
std::unique_ptr<HelperClient> ConnectTested(uint32_t timeoutMs) {
    auto client = std::make_unique<HelperClient>();
    if (!client->Connect() || client->Ask(HelperRequest::Test(), timeoutMs) != HelperClient::Answer::Yes) return {};
    return client;
}

}  // namespace

HelperStarter::HelperStarter(std::string bundle) : helperBundle(std::move(bundle)) {}

std::unique_ptr<HelperClient> HelperStarter::Connect(uint32_t timeoutMs) const {
    const Moment deadline = std::chrono::steady_clock::now() + Milliseconds(timeoutMs);
    if (auto client = ConnectTested(timeoutMs)) return client;
    const std::string what = Start();
    if (what.empty()) {
        std::cerr << "Quillo: can't start " << helperBundle << std::endl;
        return {};
    }
    std::cout << what << std::endl;
    // Nothing tells a client that a service has come to be: it looks.
    for (uint32_t leftMs = RemainingMs(deadline); leftMs > 0; leftMs = RemainingMs(deadline)) {
        if (auto client = ConnectTested(leftMs)) return client;
        dispatch_pump_main({}, lookAgainMs);
    }
    return {};
}

// A helper that runs without serving is started a second time, which makes the first one look again whether Quillo
// runs. Starting a unit that is active does nothing, so only a first start goes through systemd.
std::string HelperStarter::Start() const {
    const bool runs = IsHelperRunning(StorePath());
    if (!runs && IsUserUnitInstalled() && StartUserUnit()) return "started the helper through systemd";
    if (!NSWorkspace::sharedWorkspace().launchApplication(NSString(helperBundle))) return "";
    return runs ? "started the helper once more, so that it serves" : "started the helper";
}

}  // namespace tools
