// Foundation, the subset that this system calls, as C++ values: an object of these classes is a value that may be null
// (as the platform's nil), copies share one immutable payload, and asking a null object gives null, 0 or false.
// Distinct objects may be used by distinct threads even when they share a payload; one object only as any C++ value. No
// retain and release: destruction does that. Include this header, not its parts: arrays hold objects that hold arrays.
#pragma once

#include <Foundation/NSArray.h>
#include <Foundation/NSData.h>
#include <Foundation/NSDictionary.h>
#include <Foundation/NSFileManager.h>
#include <Foundation/NSNumber.h>
#include <Foundation/NSObject.h>
#include <Foundation/NSPathUtilities.h>
#include <Foundation/NSString.h>
#include <Foundation/NSURL.h>
#include <Foundation/NSUserDefaults.h>
