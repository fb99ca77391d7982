#include "debug/LDebugThreads.h"
#include "threads/LSignalObject.h"

#include <gtest/gtest.h>
#include <mach/thread_policy.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string Text() {
    char text[260];
    LDebugGenerateXIString(text, "p", "s");
    return text;
}

std::string Digits() {
    const uint32_t number = ::mach_thread_self();
    return std::to_string(number % 10) + std::to_string(number / 10 % 10) + std::to_string(number / 100 % 10);
}

template <class Body>
void OnThread(Body body) {
    std::thread(body).join();
}

}  // namespace

TEST(LDebugThreads, NamesDialogsAndWhoIsBusy) {
    const std::string start = "p-MacIntel1015-s-";
    OnThread([&] {
        LDebugThreadSetName("none");  // without an entry nothing happens
        EXPECT_EQ(Text(), start + "Unknown");
        LDebugThreadDataStartThread("WorkerThread");
        EXPECT_EQ(Text(), start + "Work");
        LDebugThreadSetName("WorkerThread");
        LDebugThreadSetLastDialog("Save?");
        EXPECT_EQ(Text(), start + "Work" + Digits() + "Save?" + Digits());
        LDebugThreadSetLastDialog(std::string(100, 'd').c_str());
        EXPECT_EQ(Text(), start + "Work" + Digits() + std::string(28, 'd') + Digits());
        LDebugThreadStatusSet("reading");
        EXPECT_TRUE(Text().ends_with("reading"));
        OnThread([&] {
            LDebugThreadStatusClear();  // isn't its own
            LDebugThreadDataStartThread(nullptr);
            EXPECT_EQ(Text(), start);  // a name of digits is left out
            LDebugThreadDataStopThread();
        });
        EXPECT_TRUE(Text().ends_with("reading"));
        LDebugThreadStatusClear();
        LDebugThreadSetLastDialog(nullptr);
        try {
            const LBugReportBlockScope scope("Zip");
            EXPECT_EQ(Text(), start + "Zip" + Digits() + Digits());
            throw std::runtime_error("out of the scope");
        } catch (const std::runtime_error&) {
        }
        EXPECT_EQ(Text(), start + "Work" + Digits() + Digits());
        LDebugThreadDataStopThread();
        EXPECT_EQ(Text(), start + "Unknown");
        const LBugReportBlockScope scope("none");
    });
    const struct {
        uint32_t command;
        const char* text;
    } rows[] = {{1, "GloIni1"}, {4, "GloDes4"}, {5, "(Cmd5)"}, {0, "Ukn0(LstCmd7)"}};
    LDebugSetLastCommand(7);
    for (const auto& row : rows) {
        LDebugSetCurrentCommand(row.command);
        EXPECT_EQ(Text(), start + "Unknown" + row.text);  // this is the main thread
    }
}

TEST(LDebugThreads, SixtyFourAtOnce) {
    LSignalObject end;
    std::vector<std::thread> threads;
    std::vector<LSignalObject> started(64);
    for (LSignalObject& one : started)
        threads.emplace_back([&] {
            LDebugThreadDataStartThread("t");
            one.Signal();
            end.WaitSignal(kSignalNoTimeOut);
            LDebugThreadDataStopThread();
        });
    for (LSignalObject& one : started) one.WaitSignal(kSignalNoTimeOut);
    const auto nameOfOneMore = [] {
        std::string text;
        OnThread([&] {
            LDebugThreadDataStartThread("more");
            text = Text();
            LDebugThreadDataStopThread();
        });
        return text.substr(text.rfind('-') + 1);
    };
    EXPECT_EQ(nameOfOneMore(), "Unknown");
    end.Signal();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(nameOfOneMore(), "more");
}
