// Test seam: the system version that Gestalt answers.
#pragma once

namespace platform {

// From now on, for every thread. The usual version is 10.15.
void SetSystemVersion(int major, int minor);

}  // namespace platform
