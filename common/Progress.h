#pragma once

#include <cstdint>

namespace GenICam {
namespace Client {

// Liveness for the service manager's watchdog: a process hangs when its waits stop ending. Every wait
// slice bumps the count; a wait longer than a watchdog period first says when it will end at the latest.
void BumpProgress();
void ExpectProgressBy(uint64_t deadlineMs);

struct PROGRESS_MARK {
    uint64_t nCount;        // bumps so far
    uint64_t nBusyUntilMs;  // latest end (monotonic ms) any wait announced
};

PROGRESS_MARK ReadProgress();

// Whether the process moved since `before`: the count moved, or an announced wait has not ended yet.
bool MadeProgress(const PROGRESS_MARK& before, const PROGRESS_MARK& now, uint64_t nowMs);

} // namespace Client
} // namespace GenICam
