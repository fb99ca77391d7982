#include "SingleInstance.h"

#include "support/TempFolder.h"

#include <future>
#include <gtest/gtest.h>
#include <poll.h>

namespace {

using platform::SingleInstance;
using Outcome = SingleInstance::Outcome;

constexpr uint32_t kClaimMs = 10'000;

platform::Descriptor TakeRequest(const platform::Descriptor& listener) {
    pollfd asked{listener.Get(), POLLIN, 0};
    EXPECT_EQ(poll(&asked, 1, kClaimMs), 1);
    return SingleInstance::TakeReopenRequest(listener.Get());
}

}  // namespace

// Who is slower than those who ask are patient would answer none of them: all would have gone before their turn.
TEST(SingleInstance, WhoAsksStaysUntilItIsAnsweredOrTheOtherHasEnded) {
    const TempFolder folder;
    const std::string store = folder.Join("store.plist");
    const auto claim = [&] {
        return std::async(std::launch::async, [&] { return SingleInstance(store).Claim(kClaimMs); });
    };
    std::future<Outcome> second;
    {
        SingleInstance first(store);
        ASSERT_EQ(first.Claim(0), Outcome::Alone);
        const platform::Descriptor listener = first.ListenForReopen();
        second = claim();
        platform::Descriptor asker = TakeRequest(listener);
        pollfd gone{asker.Get(), POLLIN, 0};
        EXPECT_EQ(poll(&gone, 1, 200), 0) << "it has gone";
        SingleInstance::Acknowledge(asker);
        asker.Reset();
        EXPECT_EQ(second.get(), Outcome::HandedOver);

        second = claim();
        asker = TakeRequest(listener);
    }
    EXPECT_EQ(second.get(), Outcome::Alone);
}
