// Every power failure during every sequence of requests to the schedule store: also after the program was killed at
// every call, and after every call failed. --count: the requests of the longest sequences. Nothing is random.
#include "Stress.h"
#include "support/CrashStates.h"

#include <cerrno>
#include <functional>
#include <set>

namespace {

using Requests = CrashStates::Requests;

constexpr size_t kShown = 10;  // violations; more of them say no more

const Requests kAlphabet{
    {StoreRequest::Add, "A", CrashStates::kNow + 100},
    {StoreRequest::Add, "A", CrashStates::kNow + 200},
    {StoreRequest::Add, "B", CrashStates::kNow + 300},
    {StoreRequest::Delete, "A"},
    {StoreRequest::Delete, "B"},
    {StoreRequest::DeleteAll},
};

// All sequences of this length from every begin.
void ForEach(size_t length, const std::function<void(CrashStates::Begin, const Requests&)>& visit) {
    Requests requests;
    const std::function<void()> extend = [&] {
        if (requests.size() == length) {
            for (const CrashStates::Begin begin : CrashStates::kBegins) visit(begin, requests);
            return;
        }
        for (const StoreRequest& request : kAlphabet) {
            requests.push_back(request);
            extend();
            requests.pop_back();
        }
    };
    extend();
}

void Report(Stress& stress, const std::string& what, size_t runs, const CrashStates& states) {
    std::set<std::string> texts;
    for (const auto& violation : states.Violations()) texts.insert(violation.text);
    stress.Figure(std::to_string(runs) + " " + what + ": " + std::to_string(states.PowerFailures()) +
                      " power failures, " + std::to_string(states.ImagesJudged()) + " images, " +
                      std::to_string(states.ImagesLoaded()) + " different ones loaded, " +
                      std::to_string(states.Violations().size()) + " wrong",
                  states.Violations().empty());
    size_t shown = 0;
    for (const std::string& text : texts)
        if (shown++ < kShown) stress.Fail(text, stress.Count(), stress.Seed());
}

}  // namespace

int main(int argc, char** argv) {
    Stress stress("crash-states", 3, argc, argv);
    Stress::Hush();
    for (size_t length = 1; length <= stress.Count(); length++) {
        CrashStates states;
        size_t runs = 0;
        ForEach(length, [&](CrashStates::Begin begin, const Requests& requests) {
            runs++;
            states.Try(begin, requests);
        });
        Report(stress, "sequences of " + std::to_string(length) + " requests", runs, states);
    }
    for (size_t length = 2; length <= stress.Count(); length++) {
        CrashStates killed, failed;
        size_t kills = 0, failures = 0;
        ForEach(length, [&](CrashStates::Begin begin, const Requests& requests) {
            for (int call = 1; killed.TryAfterKill(begin, requests, call); call++) kills++;
            for (int call = 1; failed.TryAfterFailure(begin, requests, {call, EIO, false}); call++) failures++;
        });
        Report(stress, "kills before the last of " + std::to_string(length) + " requests", kills, killed);
        Report(stress, "failed calls before the last of " + std::to_string(length) + " requests", failures, failed);
    }
    return stress.Status();
}
