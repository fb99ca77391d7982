#include "zip/LProcessZip.h"

#include "files/LFile.h"
#include "files/LFilePath.h"

namespace {

void SetStatusToFile(LProcessInterface& process, const char* path) {
    char name[LTextBufferSize];
    LFile::_GetFileFromPath(name, path);
    process.SetStatus(name, 0);
}

int AddOne(LProcessInterface& process, const LProcessZipFileAdd& job, const char* path) {
    SetStatusToFile(process, path);
    if (!LFileExists(path)) {
        process.SetErrorF("File does not exist: \"%s\"", path);
        return processFailed;
    }
    if (LZipFileAdd(job.archivePath, path, job.baseFolder, true, '7', nullptr, false)) return processDone;
    process.SetErrorF("File could not be added to Zip file: \"%s\"", path);
    return processFailed;
}

}  // namespace

int Process(LProcessInterface& process, LProcessZipFileAdd& job) {
    process.SetProgress(0.0);
    int total = 0, added = 0;
    for (LListIterator<LZipFileNode> it(job.files); it; it.Next()) total++;
    for (LListIterator<LZipFileNode> it(job.files); it; it.Next()) {
        if (process.IsToStop()) return processStopped;
        if (!it->path[0]) continue;
        if (const int result = AddOne(process, job, it->path)) return result;
        process.SetProgress(static_cast<double>(added++) / total);
    }
    return processDone;
}

int Process(LProcessInterface& process, LProcessZipFileExtractAll& job) {
    process.SetProgress(0.0);
    SetStatusToFile(process, job.archivePath);
    if (LZipFileExtract(job.archivePath, nullptr, job.destinationFolder)) return processDone;
    process.SetErrorF("File could not be extracted from Zip file: \"%s\"", job.archivePath);
    return processFailed;
}
