// Who the process runs as, and becoming somebody else. Results only, no messages. The environment decides part of the
// answers, so these are hints for a program's own convenience and never a guard of anything.
// Any thread, while no thread changes the environment. The switches change every thread of the process.
#pragma once

// The real user is 0, or USER is "root".
bool LIsUserRoot();
// Root as above, or a member (by the process's groups) of the group "admin".
bool LIsUserAdministrator();
bool LIsUserRunningAsAdministrator();

// Becomes the user that LOGNAME names, else the one that USER names (at most 259 bytes; an empty variable counts as
// missing). False when there is no such user or the system refuses. Only the user changes: the groups stay, so a
// program that began as root keeps root's.
bool LSwitchToUser();
bool LSwitchToRoot();
