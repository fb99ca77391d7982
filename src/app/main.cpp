#include "app/LScheduleHelper.h"

#include <memory>

namespace {
const NSApplicationDelegateClass delegate([] { return std::make_unique<LScheduleHelper>(); });
}

int main(int argc, char** argv) {
    return NSApplicationMain(argc, argv);
}
