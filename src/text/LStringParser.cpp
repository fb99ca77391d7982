#include "text/LStringParser.h"

#include "text/LStringWriters.h"

bool LCommandLineArgumentStringExpander::NextArgument() {
    argument.Clear();
    while (*position > 0 && *position <= ' ') position++;
    LStringLongTemplateWriter<char> writer(argument);
    bool isQuoted = false;
    while (*position) {
        const char c = *position++;
        if (c == ' ' && !isQuoted) break;
        if (c == '"') {
            if (isQuoted) break;
            isQuoted = true;
        } else {
            writer.AddChar(c == '\\' && *position == ' ' ? *position++ : c);
        }
    }
    argument.SetLength(writer.Result());
    return argument.Length() > 0;
}

unsigned long LCommandLineArgumentStringExpander::GetArgumentCount(const char* commandLine) const {
    LCommandLineArgumentStringExpander expander(commandLine);
    expander.NextArgument();
    unsigned long count = 0;
    while (expander.NextArgument()) count++;
    return count;
}
