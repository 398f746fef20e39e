#pragma once

#include "common/UniqueFd.h"

#include <cstddef>
#include <cstdint>

namespace GenICam {
namespace Client {

// How a wait ended.
enum WAIT_RESULT {
    WAIT_READY = 0,    // the descriptor is readable
    WAIT_TIMEOUT = 1,  // the deadline passed
    WAIT_STOPPED = 2,  // a stop was requested
    WAIT_FAILED = 3,   // poll failed: see the errno
};

// The process's stop request: an eventfd that every wait polls beside its socket, so a SIGTERM ends
// any wait at once. Requesting is async-signal-safe.
class CStopToken {
public:
    CStopToken();

    int GetFd() const;
    void Request();
    bool IsRequested() const;

private:
    CUniqueFd m_eventFd;
};

// The one token of this process.
CStopToken& ProcessStopToken();

// Milliseconds on CLOCK_MONOTONIC: a stepped wall clock neither cuts nor stretches a wait.
uint64_t MonotonicMs();

// Waits until `fd` is readable, the monotonic deadline passes or a stop is requested. EINTR is retried
// against the same deadline. `error` (may be null) gets the errno of WAIT_FAILED.
WAIT_RESULT WaitReadable(int fd, uint64_t deadlineMs, int* error);

// WaitReadable over several descriptors; `ready` (may be null) gets the index of one that is readable.
WAIT_RESULT WaitAnyReadable(const int* fds, size_t count, uint64_t deadlineMs, size_t* ready, int* error);

// Sleeps until the monotonic deadline; false when a stop ended it early.
bool SleepUntil(uint64_t deadlineMs);

} // namespace Client
} // namespace GenICam
