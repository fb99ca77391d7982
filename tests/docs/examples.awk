# Turns the blocks of code of a page into a program: their includes in front, then a function for each, called after its
# heading.
/^## / { heading = substr($0, 4); next }
/^```cpp$/ { inside = 1; count++; title[count] = heading; next }
/^```$/ { inside = 0; next }
inside && /^#include/ { if (!($0 in known)) { known[$0] = 1; includes = includes $0 "\n" }; next }
inside { body[count] = body[count] $0 "\n" }
END {
    print "#undef NDEBUG"
    print "#include \"support/TempFolder.h\"\n"
    print includes
    print "#include <cassert>\n#include <cstdio>\n#include <cstdlib>\n#include <string>\n#include <unistd.h>\n"
    for (i = 1; i <= count; i++) printf "static void Example%d() {\n%s}\n\n", i, body[i]
    print "int main() {"
    print "    const TempFolder folder;"
    print "    if (::chdir(folder.Path().c_str()) != 0) return 1;"
    print "    for (const char* name : {\"HOME\", \"XDG_RUNTIME_DIR\"}) ::setenv(name, folder.Path().c_str(), 1);"
    print "    for (const char* name : {\"XDG_CONFIG_HOME\", \"XDG_DATA_HOME\", \"XDG_CACHE_HOME\"}) ::unsetenv(name);"
    for (i = 1; i <= count; i++) printf "    std::puts(\"%s\");\n    Example%d();\n", title[i], i
    print "}"
}
