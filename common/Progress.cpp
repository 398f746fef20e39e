#include "common/Progress.h"

#include <atomic>

namespace GenICam {
namespace Client {

namespace {

std::atomic<uint64_t> g_nBumps(0);
std::atomic<uint64_t> g_nBusyUntilMs(0);

} // namespace

void BumpProgress()
{
    g_nBumps.fetch_add(1, std::memory_order_relaxed);
}

// Waits of several threads overlap: the latest end among them counts.
void ExpectProgressBy(uint64_t deadlineMs)
{
    uint64_t current = g_nBusyUntilMs.load(std::memory_order_relaxed);
    while (current < deadlineMs &&
           !g_nBusyUntilMs.compare_exchange_weak(current, deadlineMs, std::memory_order_relaxed)) {
    }
    BumpProgress();
}

PROGRESS_MARK ReadProgress()
{
    return PROGRESS_MARK{g_nBumps.load(std::memory_order_relaxed), g_nBusyUntilMs.load(std::memory_order_relaxed)};
}

bool MadeProgress(const PROGRESS_MARK& before, const PROGRESS_MARK& now, uint64_t nowMs)
{
    return now.nCount != before.nCount || nowMs <= now.nBusyUntilMs;
}

} // namespace Client
} // namespace GenICam
