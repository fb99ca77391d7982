// The store survives every power failure, and the harness that says so finds a broken store out, each for its own
// reason. tests/stress tries longer sequences.
#include "support/CrashStates.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <set>
#include <utility>

namespace {

using Loss = CrashStates::Loss;

const CrashStates::Requests kAdds{{StoreRequest::Add, "A", CrashStates::kNow + 70},
                                  {StoreRequest::Add, "B", CrashStates::kNow + 80}};
const CrashStates::Requests kReplaceAndDelete{
    {StoreRequest::Add, "A", CrashStates::kNow + 70}, {StoreRequest::Delete, "stored"}, {StoreRequest::DeleteAll}};

// Keeps the store's reports, a line for each damaged file, out of the output.
struct CrashStatesTest : testing::Test {
    CrashStatesTest() { testing::internal::CaptureStderr(); }
    ~CrashStatesTest() override { testing::internal::GetCapturedStderr(); }
};

CrashStates Tried(StoreProtocol protocol) {
    CrashStates states(protocol);
    for (const auto begin : CrashStates::kBegins)
        for (const auto& requests : {kAdds, kReplaceAndDelete}) states.Try(begin, requests);
    return states;
}

}  // namespace

TEST_F(CrashStatesTest, TheStoreSurvivesEveryPowerFailure) {
    CrashStates states = Tried(StoreProtocol::Real);
    for (const auto begin : CrashStates::kBegins) {
        for (int call = 1; states.TryAfterKill(begin, kAdds, call); call++) {
        }
        for (const CrashStates::Requests& requests : {kAdds, CrashStates::Requests(2, {StoreRequest::DeleteAll})})
            for (int call = 1; states.TryAfterFailure(begin, requests, {call, EIO, false}); call++) {
            }
    }
    for (const auto& violation : states.Violations()) ADD_FAILURE() << violation.text;
    EXPECT_GT(states.ImagesLoaded(), 100u);
}

TEST_F(CrashStatesTest, EachBrokenStoreIsFoundOutForItsOwnReason) {
    struct {
        const char* name;
        StoreProtocol protocol;
        std::set<std::pair<Loss, bool>> reasons;  // what is wrong, and whether amid the last request
    } const cases[] = {
        {"no sync of the file", StoreProtocol::WithoutSyncOfTheFile, {{Loss::Damaged, true}, {Loss::Damaged, false}}},
        {"no sync of the folder", StoreProtocol::WithoutSyncOfTheFolder, {{Loss::Lost, true}, {Loss::Lost, false}}},
        {"in place", StoreProtocol::InPlace, {{Loss::Damaged, true}, {Loss::Mixed, true}}},
        {"answers first", StoreProtocol::AnsweringFirst, {{Loss::Lost, true}}},
    };
    for (const auto& [name, protocol, reasons] : cases) {
        std::set<std::pair<Loss, bool>> found;
        const CrashStates states = Tried(protocol);
        for (const auto& violation : states.Violations()) found.emplace(violation.loss, violation.amidRequest);
        EXPECT_EQ(found, reasons) << name;
    }
}
