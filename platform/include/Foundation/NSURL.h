// NSURL: the location of a file or folder, or null; with bookmarks, by which a granted location is found again.
//
// Nothing is sandboxed here, so access needs no grant: starting and stopping are counted, by all copies of a URL
// together, and change nothing. Values; any thread.
#pragma once

#include <Foundation/NSData.h>
#include <Foundation/NSString.h>

#include <atomic>
#include <memory>
#include <string_view>
#include <utility>

inline constexpr unsigned long NSURLBookmarkResolutionWithSecurityScope = 1024;
inline constexpr unsigned long NSURLBookmarkCreationWithSecurityScope = 2048;

class NSURL {
public:
    NSURL() = default;  // null
    // Null when the path is null or empty.
    static NSURL fileURLWithPath(NSString path) { return NSURL(std::move(path)); }

    explicit operator bool() const { return static_cast<bool>(text); }
    const NSString& path() const { return text; }

    // What finds the object again: the path, and which object it was. Null when there is none at the path, or the path
    // has more than 259 bytes. Options are for the platform's sandbox.
    NSData bookmarkDataWithOptions(unsigned long options) const;
    // Null for data that no bookmark is, however damaged, and when nothing is at the path. `isStale`: another object
    // than the bookmark's is there now.
    static NSURL URLByResolvingBookmarkData(const NSData& data, unsigned long options, bool& isStale);

    // The two that a URL answers to: startAccessingSecurityScopedResource, stopAccessingSecurityScopedResource. A null
    // one answers to nothing.
    bool respondsToSelector(std::string_view name) const;
    bool startAccessingSecurityScopedResource() const;
    void stopAccessingSecurityScopedResource() const;
    int AccessCount() const { return accesses ? accesses->load() : 0; }  // test seam: started and not stopped

    friend bool operator==(const NSURL& a, const NSURL& b) { return a.text == b.text; }

private:
    explicit NSURL(NSString path);

    NSString text;
    std::shared_ptr<std::atomic<int>> accesses;
};
