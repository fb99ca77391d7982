// Writes values as the text of an XML property list, in the form that the platform's tools and plistutil read. In
// parts, so that a file of many entries can be put together from texts made before. Pure functions, any thread.
#pragma once

#include <Foundation/NSObject.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

// A file is the head, one text per entry of its dictionary, and the tail: the dictionary's closing tag and the end.
extern const std::string_view kPropertyListHead;
extern const std::string_view kPropertyListTail;
extern const std::string_view kPropertyListEnd;

void AppendPropertyListEntry(std::string& out, const NSString& key, const NSObject& value);

// How many bytes of a text stand in a file as they are, up to the first that does not.
size_t PlainPropertyListText(std::string_view text);

// How many arrays and dictionaries lie inside each other.
int PropertyListDepth(const NSObject& value);

}  // namespace platform
