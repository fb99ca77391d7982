// Connecting, sending and receiving as operations that can be stopped: they wait in slices of 200 ms and ask in
// between. They give an LProcessResult; failed also means: timed out, or the peer has closed.
//
// A time-out is for waiting: as many slices without anything happening as fit into it, rounded up, at least one, over
// the whole operation. kSignalNoTimeOut waits for as long as it takes. No signal is raised when the peer is gone.
//
// Any thread; one that sends beside one that receives is fine, two that send or receive on one socket share its bytes.
#pragma once

#include "net/LIPSocket.h"
#include "threads/LProcessInterface.h"

// Into a new, non-blocking socket; the one that was there is closed. None is left unless it is connected.
int ProcessConnect(LProcessInterface& process, LIPSocketTCP& socket, const LIPAddressWithPort& address,
                   unsigned int timeoutMs);
// One address after the other, until one is connected or the operation is stopped.
int ProcessConnect(LProcessInterface& process, LIPSocketTCP& socket, const LIPAddressMultiHomedWithPort& addresses,
                   unsigned int timeoutMs);

int ProcessSend(LProcessInterface& process, LIPSocketTCPRef socket, const void* data, unsigned long size,
                unsigned int timeoutMs);

// Done when there is something to read, be it the end of the stream or an error.
int ProcessWaitForDataOrClose(LProcessInterface& process, LIPSocketTCPRef socket, unsigned int timeoutMs);
// What has come, at least one byte and at most `size`.
int ProcessRecvReady(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                     unsigned long& got, unsigned int timeoutMs);
// Exactly `size` bytes; each wait has the whole time-out. `got` counts also when it ends early.
int ProcessRecvBytes(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                     unsigned long& got, unsigned int timeoutMs);
int ProcessRecvBytes(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                     unsigned int timeoutMs);
int ProcessRecvByte(LProcessInterface& process, LIPSocketTCPRef socket, unsigned char& byte, unsigned int timeoutMs);
// What has come, up to the first byte that is one of the terminators (never NUL), which is the last one then.
int ProcessRecvToCharacter(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                           unsigned long& got, const char* terminators, unsigned int timeoutMs);
// As many bytes as come until it is stopped: true only then; the end of the stream, a time-out and a full buffer are
// false.
bool ProcessRecvAll(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                    unsigned long& got, unsigned int timeoutMs);

// Makes a socket as all here are: non-blocking, close-on-exec, a send buffer of 32 KB. -1 and errno on failure.
int LOpenSocketTCP();
