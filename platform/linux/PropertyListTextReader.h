// Reads what PropertyListText writes, and nothing else: the store's own file in its own form, letter by letter. That
// takes a tenth of the time of a parser for all property lists, which a program with ten thousand schedules feels at
// its start. Whatever differs (another writer's file, a damaged one, data) is left to the parser. Pure, any thread.
#pragma once

#include <Foundation/NSDictionary.h>

#include <optional>
#include <string_view>

namespace platform {

// Nothing when the text is not of that form. What it reads, the parser reads the same.
std::optional<NSDictionary> ReadPropertyListText(std::string_view xml);

}  // namespace platform
