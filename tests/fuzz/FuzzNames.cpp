// What others may have named or damaged: a text between quotes for the shell, read as the shell reads it; and the data
// of bookmarks, any bytes, or those of a real one with some of them changed.
#include "Fuzz.h"

#include "system/LShell.h"

#include <Foundation/Foundation.h>

namespace {

// The one word that a command is, by the shell's rules for double quotes; any other command fails.
std::string WordOf(std::string_view command) {
    std::string word;
    Require(command.size() >= 2 && command.front() == '"' && command.back() == '"', "it stands between quotes");
    command = command.substr(1, command.size() - 2);
    for (size_t i = 0; i < command.size(); i++) {
        const bool isEscape = command[i] == '\\' && i + 1 < command.size() &&
                              std::string_view("$`\"\\\n").find(command[i + 1]) != std::string_view::npos;
        if (isEscape) i++;
        Require(isEscape || std::string_view("$`\"").find(command[i]) == std::string_view::npos,
                "nothing of it means anything to the shell");
        word += command[i];
    }
    return word;
}

void CheckBookmark(std::string_view bytes) {
    bool isStale = false;
    const NSURL url = NSURL::URLByResolvingBookmarkData(NSData::dataWithBytes(bytes.data(), bytes.size()), 0, isStale);
    if (!url) return;
    const NSData again = url.bookmarkDataWithOptions(0);
    Require(static_cast<bool>(again), "what is found can be kept again");
    Require(isStale || again.View() == bytes, "what isn't stale is the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const bool isReal = input.Byte() % 2;
    const size_t at = input.Byte();
    const std::string_view rest = input.Rest();
    Require(WordOf(LQuotedForShell(rest)) == rest, "a text is one word, unchanged");
    CheckBookmark(rest);
    if (!isReal) return 0;
    const NSData real = NSURL::fileURLWithPath(NSString("/tmp")).bookmarkDataWithOptions(0);
    std::string changed(real.View());
    for (size_t i = 0; i < rest.size() && at + i < changed.size(); i++) changed[at + i] ^= rest[i];
    CheckBookmark(changed);
    return 0;
}
