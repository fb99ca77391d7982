// NSURL: the location of a file or folder, or null.
#pragma once

#include <Foundation/NSString.h>

#include <utility>

class NSURL {
public:
    NSURL() = default;  // null
    // Null when the path is null or empty.
    static NSURL fileURLWithPath(NSString path) { return NSURL(std::move(path)); }

    explicit operator bool() const { return static_cast<bool>(text); }
    const NSString& path() const { return text; }

    friend bool operator==(const NSURL& a, const NSURL& b) { return a.text == b.text; }

private:
    explicit NSURL(NSString path) {
        if (!path.View().empty()) text = std::move(path);
    }

    NSString text;
};
