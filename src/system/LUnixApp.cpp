#include "system/LUnixApp.h"

#include "debug/LDebugThreads.h"
#include "system/LLocale.h"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <sys/resource.h>
#include <sys/stat.h>

int gargc = 0;
char** gargv = nullptr;

bool LUnixAppInitCommon(int argc, char** argv) {
    LDebugThreadDataStartThread("MAIN");
    ::umask(0);
    LUnixAppCopyCommandLineArguments(argc, argv);
    LGetLocale(LC_ALL);
    LSetMaximumNumberOfOpenFiles();
    return true;
}

void LUnixAppCopyCommandLineArguments(int argc, char** argv) {
    constexpr const char* kSerialNumber = "-psn";
    const int count = std::max(argc, 0);
    char** const kept = new char*[static_cast<size_t>(count) + 1];
    int n = 0;
    for (int i = 0; i < count; i++)
        if (i != 1 || std::strncmp(argv[i], kSerialNumber, std::strlen(kSerialNumber)) != 0) kept[n++] = argv[i];
    kept[n] = nullptr;
    delete[] gargv;
    gargv = kept;
    gargc = n;
}

void LRemoveCommandLineArgument(int index) {
    if (index < 0 || index >= gargc) return;
    std::copy(gargv + index + 1, gargv + gargc + 1, gargv + index);
    gargc--;
}

int LSetMaximumNumberOfOpenFiles() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return -1;
    limit.rlim_cur = 1'024;
    return ::setrlimit(RLIMIT_NOFILE, &limit);
}
