#include "files/LProcessFile.h"

#include "files/LFileTransfer.h"

#include <algorithm>

namespace {

constexpr unsigned long kStep = 10'240;

// transfer(offset, count) gives the bytes transferred, -1 for a failure.
template <class Transfer>
int ProcessInSteps(LProcessInterface& process, unsigned long size, Transfer transfer) {
    for (unsigned long done = 0; done < size;) {
        if (process.IsToStop()) return processStopped;
        const unsigned long step = std::min(size - done, kStep);
        if (transfer(done, step) != static_cast<ssize_t>(step)) return processFailed;
        done += step;
        process.SetProgress(static_cast<double>(done) / static_cast<double>(size));
    }
    return processDone;
}

}  // namespace

int LProcessFileRead(LProcessInterface& process, LReadFileRef& file, void* buf, unsigned long size) {
    return ProcessInSteps(process, size, [&](unsigned long offset, unsigned long count) {
        return file.descriptor < 0 ? -1 : LReadOnce(file.descriptor, static_cast<char*>(buf) + offset, count);
    });
}

int LProcessFileWrite(LProcessInterface& process, LWriteFileRef& file, const void* buf, unsigned long size) {
    return ProcessInSteps(process, size, [&](unsigned long offset, unsigned long count) {
        return file.descriptor < 0 ? -1 : LWriteOnce(file.descriptor, static_cast<const char*>(buf) + offset, count);
    });
}
