// CrashStates: carries out requests to the schedule store on a MemoryDisk, lets the power fail at every moment of the
// last one, loads each image that the disk may then hold with the store's own loader, and judges it:
//
//   - nothing is damaged: no file is set aside, and the loader refuses none;
//   - what is loaded is the whole of one state between two requests;
//   - it is no older than the last request that was answered, and no younger than the last one begun;
//   - the store goes on from there: the next schedule is stored beside what was loaded.
//
// Loaded is what would fire. One thread; it replaces the clock and the standard defaults while it works.
#pragma once

#include "support/FaultyFileCalls.h"
#include "support/MemoryDisk.h"

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct StoreRequest {
    enum Kind { Add, Delete, DeleteAll } kind;
    const char* name = "";
    long start = 0;  // of a one-time schedule, within a million seconds from now
};

// How the store's file calls reach the disk: as they are, or with one step of the protocol broken. The broken ones are
// there to be found out: a harness that accepts them proves nothing.
enum class StoreProtocol {
    Real,
    WithoutSyncOfTheFile,
    WithoutSyncOfTheFolder,
    InPlace,
    AnsweringFirst,  // a request is answered before it is carried out
};

class CrashStates {
public:
    using Requests = std::vector<StoreRequest>;

    enum class Begin { NoFolder, NoFile, Stored };  // what is there before the first request
    static constexpr std::array kBegins{Begin::NoFolder, Begin::NoFile, Begin::Stored};

    static constexpr long kNow = 1'795'564'800;  // when requests are carried out and images loaded

    enum class Loss { Damaged, Mixed, Lost, Stuck };
    struct Violation {
        Loss loss;
        bool amidRequest;  // the power failed before the last request's last call
        std::string text;
    };

    explicit CrashStates(StoreProtocol storeProtocol = StoreProtocol::Real) : protocol(storeProtocol) {}

    void Try(Begin begin, const Requests& requests);
    // The same, but before the `call`-th file call of the last request but one the program is killed, and a new one
    // goes on; what it finds stored counts as answered. False: that request makes no such call.
    bool TryAfterKill(Begin begin, const Requests& requests, int call);
    // The same, but a file call of the last request but one fails; the file must be one whole state behind it, and what
    // memory holds behind the last request. False: that request makes no such call.
    bool TryAfterFailure(Begin begin, const Requests& requests, FaultyFileCalls::Fault failure);

    size_t PowerFailures() const { return moments; }
    size_t ImagesJudged() const { return judged; }         // over all moments
    size_t ImagesLoaded() const { return loaded.size(); }  // different ones
    const std::vector<Violation>& Violations() const { return violations; }

private:
    using Schedules = std::map<std::string, long>;  // moments of the fires by name
    class Run;

    // What the loader makes of an image.
    struct Outcome {
        bool isDamaged = false;
        bool goesOn = false;
        Schedules schedules;
    };
    static Outcome Load(const MemoryDisk::Image& image);
    static Schedules After(Schedules schedules, const StoreRequest& request);
    void Judge(const Run& run, const std::string& what);

    const StoreProtocol protocol;
    std::map<MemoryDisk::Image, std::optional<Outcome>> loaded;
    size_t moments = 0;
    size_t judged = 0;
    std::vector<Violation> violations;
};
