#include "text/LCFURL.h"

#include "text/LAscii.h"
#include "text/LCFString.h"
#include "text/LCopyBounded.h"

#include <string>
#include <string_view>
#include <sys/stat.h>

namespace {

bool IsPlain(char c) {
    return LIsAsciiAlphaNumeric(c) || std::string_view("-.!_~").find(c) != std::string_view::npos;
}

std::string Escape(std::string_view path) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string escaped;
    for (const char c : path) {
        if (escaped.size() >= LTextBufferSize) break;
        if (IsPlain(c)) {
            escaped += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        escaped += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
    if (escaped.size() >= LTextBufferSize) escaped.resize(LTextBufferSize - 1);
    return escaped;
}

}  // namespace

void LCFURL::CreateFromFullPath(const char* path) {
    Adopt(nullptr);
    const char* text = path ? path : "";
    LCFString escaped;
    escaped.SetString(Escape(text).c_str());
    struct stat status {};
    const bool isFolder = ::stat(text, &status) == 0 && S_ISDIR(status.st_mode);
    Adopt(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, escaped.Get(), kCFURLPOSIXPathStyle, isFolder));
}
