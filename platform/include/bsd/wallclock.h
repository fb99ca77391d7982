// Calendar time through the layer's clock, so that tests can move it.
#pragma once

#include <ctime>

// Seconds since 1970-01-01 00:00:00 UTC, as time().
time_t wallclock_time();
