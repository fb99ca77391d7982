// Pipes to and from commands of the shell, which start with default signals. Closing waits for the command's end. One
// thread at a time.
#pragma once

#include <bsd/LDescriptor.h>

#include <cstdio>
#include <sys/types.h>

// What LPipeIn and LPipeOut share.
class LPipeStream {
public:
    LPipeStream(const LPipeStream&) = delete;
    LPipeStream& operator=(const LPipeStream&) = delete;

    std::FILE* Stream() const { return stream; }   // null when not open
    int Descriptor() const { return descriptor; }  // -1 when not open
    void Close();

protected:
    LPipeStream() = default;
    ~LPipeStream() { Close(); }
    bool Open(const char* command, bool isReading);

private:
    std::FILE* stream = nullptr;
    int descriptor = -1;
    pid_t pid = -1;
};

// Reads what the command writes. A command that there isn't is no failure: it ends at once.
class LPipeIn : public LPipeStream {
public:
    bool _Open(const char* command) { return Open(command, true); }
};

// Writes what the command reads.
class LPipeOut : public LPipeStream {
public:
    bool _Open(const char* command) { return Open(command, false); }
};

// Both. Who writes much without reading may wait for ever: the command's output has to go somewhere.
class LPipeInOut {
public:
    LPipeInOut() = default;
    ~LPipeInOut() { Close(); }
    LPipeInOut(const LPipeInOut&) = delete;
    LPipeInOut& operator=(const LPipeInOut&) = delete;

    // The sizes are not used. False when there are no descriptors or no process to be had.
    bool _Open(const char* command, unsigned long readSize, unsigned long writeSize);
    void Close();

    int ReadDescriptor() const { return reading.Get(); }
    int WriteDescriptor() const { return writing.Get(); }
    void CloseWriting() { writing.Reset(); }  // the end of the command's input
    pid_t ProcessId() const { return pid; }   // -1 when not open

private:
    LDescriptor reading, writing;
    pid_t pid = -1;
};
