#include "text/LStringParser.h"

bool LCommandLineArgumentStringExpander::NextArgument() {
    argument.Clear();
    while (*position > 0 && *position <= ' ') position++;
    bool isQuoted = false;
    while (*position) {
        const char c = *position++;
        if (c == ' ' && !isQuoted) break;
        if (c == '"') {
            if (isQuoted) break;
            isQuoted = true;
        } else if (c == '\\' && *position == ' ') {
            Store(*position++);
        } else {
            Store(c);
        }
    }
    return argument.Length() > 0;
}

void LCommandLineArgumentStringExpander::Store(char c) {
    const uint32_t length = argument.Length();
    argument.GrowToSize(length + 2ul);
    argument.Buffer()[length] = c;
    argument.SetLength(length + 1ul);
}

unsigned long LCommandLineArgumentStringExpander::GetArgumentCount(const char* commandLine) const {
    LCommandLineArgumentStringExpander expander(commandLine);
    expander.NextArgument();
    unsigned long count = 0;
    while (expander.NextArgument()) count++;
    return count;
}
