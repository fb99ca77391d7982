#include "threads/LCallbackToken.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

TEST(LCallbackToken, ClosedTokenLetsNothingInAndOutlivesItsObject) {
    auto token = std::make_unique<LCallbackToken>();
    const auto gate = token->Gate();
    {
        LCallbackScope outer(gate), inner(gate);
        EXPECT_TRUE(outer && inner);
    }
    token.reset();
    EXPECT_FALSE(LCallbackScope(gate));
}

TEST(LCallbackToken, CloseWaitsForOtherThreadsOnly) {
    LCallbackToken token, other;
    std::promise<void> entered, release;
    std::atomic<bool> ended{false};
    std::thread callback([&, gate = token.Gate()] {
        LCallbackScope scope(gate);
        entered.set_value();
        release.get_future().wait();
        ended = true;
    });
    entered.get_future().wait();

    // Another object's callbacks are nobody's business here, nor are this thread's own, however deep.
    {
        LCallbackScope own(other.Gate()), deeper(other.Gate()), foreign(token.Gate());
        other.Close();
        EXPECT_FALSE(LCallbackScope(other.Gate()));
        EXPECT_FALSE(ended);
    }

    std::thread closer([&] {
        LCallbackScope ownOfCloser(token.Gate());
        token.Close();
        EXPECT_TRUE(ended);
    });
    release.set_value();
    closer.join();
    callback.join();
}

// Destruction under fire: a callback that was let in must never see the object dead.
TEST(LCallbackToken, ObjectDiesOnlyBetweenCallbacks) {
    struct Target {
        std::atomic<int> inside{0};
        LCallbackToken token;
        ~Target() {
            token.Close();
            EXPECT_EQ(inside, 0);
        }
    };
    for (int round = 0; round < 200; round++) {
        auto target = std::make_unique<Target>();
        std::vector<std::thread> threads;
        std::atomic<bool> go{false};
        for (int i = 0; i < 3; i++)
            threads.emplace_back([&go, gate = target->token.Gate(), raw = target.get()] {
                while (!go) std::this_thread::yield();
                for (;;) {
                    LCallbackScope scope(gate);
                    if (!scope) return;
                    raw->inside++;
                    raw->inside--;
                }
            });
        go = true;
        target.reset();
        for (auto& thread : threads) thread.join();
    }
}
