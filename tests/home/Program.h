// Program: a program that a test started, with what it writes. Everything that it starts in turn writes there too.
// Single-threaded.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

class Program {
public:
    Program(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment);
    ~Program();  // kills it where it still runs
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Reads on until `text` has come so many times; false when it hasn't within 15 s, or nobody is left to write it.
    bool AwaitOutput(const std::string& text, size_t times = 1);
    // Everything read up to now.
    const std::string& Output() const { return output; }
    pid_t Pid() const { return pid; }
    bool IsRunning() const;
    void Signal(int number) const;
    // The exit status; 1000 + the signal's number when one ended it; -1 when it still runs after 15 s.
    int AwaitEnd();

private:
    bool ReadMore(int timeoutMs);

    pid_t pid = -1;
    int outputPipe = -1;
    std::string output;
};

size_t CountOf(const std::string& text, const std::string& part);
