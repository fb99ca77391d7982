// Where the system keeps the user's things. Any thread, as long as nobody changes the environment meanwhile.
#pragma once

#include <Foundation/NSArray.h>
#include <Foundation/NSString.h>

enum NSSearchPathDirectory : unsigned {
    NSApplicationDirectory = 1,
    NSDocumentDirectory = 9,
    NSDesktopDirectory = 12,
    NSCachesDirectory = 13,
    NSApplicationSupportDirectory = 14,
    NSDownloadsDirectory = 15,
    NSMoviesDirectory = 17,
    NSMusicDirectory = 18,
    NSPicturesDirectory = 19,
};
enum NSSearchPathDomainMask : unsigned { NSUserDomainMask = 1, NSLocalDomainMask = 2 };

// The folders of that kind, the preferred one first, as strings; none where the system has no place for them. The
// user's are made if they are missing, with all above them, readable by the user only. Documents, desktop and media:
// the desktop's own setting (user-dirs.dirs); caches and application support: the base folders of the environment
// (XDG_CACHE_HOME, XDG_DATA_HOME), or their usual places below the home folder; applications for all users: /opt.
// Paths that are no UTF-8 are left out. Tildes never occur: `expandTilde` changes nothing.
NSArray NSSearchPathForDirectoriesInDomains(unsigned directory, unsigned domainMask, bool expandTilde);

// $HOME when it is an absolute path, else the password entry's, else "/".
NSString NSHomeDirectory();
