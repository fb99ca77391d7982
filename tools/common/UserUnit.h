// The helper as a unit of the user's systemd. Main thread.
#pragma once

namespace tools {

inline constexpr const char* kUserUnit = "schedulehelper.service";

// Whether a unit file for it lies where the user's systemd looks.
bool IsUserUnitInstalled();

// Whether the running systemd of this user says that the unit is active. False also where there is none.
bool IsUserUnitActive();

// False also where there is no systemctl, or no systemd that serves this user.
bool StartUserUnit();
bool RestartUserUnit();

}  // namespace tools
