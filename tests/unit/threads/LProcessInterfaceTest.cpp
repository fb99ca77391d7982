#include "threads/LProcessInterface.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class Recorder : public LProcessInterfaceVoid {
public:
    bool IsToStop() override { return stop; }
    void SetError(const char* text) override { Add("error", text); }
    void SetStatus(const char* text, int level) override { Add("status " + std::to_string(level), text); }
    void SetProgress(double fraction) override { Add("progress", std::to_string(fraction).c_str()); }
    void SetProgressIndeterminateOn() override { Add("on", ""); }
    void SetProgressIndeterminateOff() override { Add("off", ""); }

    bool stop = false;
    std::vector<std::string> seen;

private:
    void Add(const std::string& what, const char* text) { seen.push_back(what + ": " + text); }
};

}  // namespace

TEST(LProcessInterface, StepsReportBelowTheirParents) {
    Recorder recorder;
    LProcessInterfaceSubProcess step(recorder, 0.5, 0.25), inner(step, 0.0, 0.5);
    step.SetProgress(1.0);
    inner.SetProgress(1.0);
    step.SetStatus("a", 0);
    inner.SetStatusF(1, "%s %d%%", "b", 50);
    inner.SetErrorF("no %s", "disk");
    inner.SetProgressIndeterminateOn();
    inner.SetProgressIndeterminateOff();
    EXPECT_EQ(recorder.seen, (std::vector<std::string>{"progress: 0.750000", "progress: 0.625000", "status 1: a",
                                                       "status 3: b 50%", "error: no disk"}));
    EXPECT_FALSE(inner.IsToStop());
    recorder.stop = true;
    EXPECT_TRUE(inner.IsToStop());
    // One that nests only: its parent hears of errors, not of progress.
    recorder.seen.clear();
    LProcessInterfaceNested nested(recorder);
    nested.SetProgress(1.0);
    nested.SetStatus("a", 0);
    nested.SetError("b");
    EXPECT_EQ(recorder.seen, std::vector<std::string>{"error: b"});
}

TEST(LProcessInterface, LongAndMissingTextsAreCut) {
    Recorder recorder;
    const std::string text(9'000, 'x');
    recorder.SetErrorF("%s", text.c_str());
    EXPECT_EQ(recorder.seen[0], "error: " + text.substr(0, 8'191));
    const char* const none = nullptr;
    recorder.SetErrorF(none);
    recorder.SetStatusF(0, none);
    EXPECT_EQ(recorder.seen[1], "error: ");
    EXPECT_EQ(recorder.seen[2], "status 0: ");
}

TEST(LProcessInterface, WaitsUnwatched) {
    LProcessInterfaceVoid unwatched;
    LProcessInterfaceNested nested(unwatched);
    LSignalObject object;
    LSignalObjectGroup group;
    group.Add(object);
    EXPECT_FALSE(nested.ProcessWait(1));
    EXPECT_EQ(nested.ProcessWaitSignal(object, 1), waitTimedOut);
    EXPECT_EQ(nested.ProcessWaitSignalObjectGroup(group, 1), waitTimedOut);
    object.Signal();
    EXPECT_EQ(nested.ProcessWaitSignal(object, kSignalNoTimeOut), waitSet);
    EXPECT_EQ(nested.ProcessWaitSignalObjectGroup(group, kSignalNoTimeOut), waitSet);
    nested.SetErrorF("nobody listens");
}
