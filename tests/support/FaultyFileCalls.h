// FaultyFileCalls: file calls with one fault in them: the n-th call fails, once or from then on for good. "Short" lets
// a write take only half of its bytes (one byte at least); it is no failure. For one thread.
#pragma once

#include "support/FileCallsFilter.h"

class FaultyFileCalls : public FileCallsFilter {
public:
    using FileCallsFilter::FileCallsFilter;

    struct Fault {
        int call = 0;   // 1 is the first; 0: none
        int error = 0;  // errno; 0: a short write
        bool forGood = false;
    };

    void Arm(Fault newFault) {
        fault = newFault;
        count = 0;
    }
    // Whether the armed fault's turn came.
    bool HasFired() const { return fault.call > 0 && count >= fault.call; }

    ssize_t Write(int descriptor, const iovec* parts, int size) override {
        if (fault.error != 0 || !IsTurn(count + 1)) return FileCallsFilter::Write(descriptor, parts, size);
        const iovec half{parts->iov_base, (parts->iov_len + 1) / 2};
        return FileCallsFilter::Write(descriptor, &half, 1);
    }

protected:
    bool Admit(Call) override {
        if (!IsTurn(++count) || fault.error == 0) return true;
        errno = fault.error;
        return false;
    }

private:
    bool IsTurn(int call) const {
        return fault.call > 0 && (call == fault.call || (fault.forGood && call > fault.call));
    }

    Fault fault;
    int count = 0;
};
