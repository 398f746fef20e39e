#include "app/PassScheduler.h"

#include <algorithm>
#include <limits>

namespace {
const uint64_t kNever = std::numeric_limits<uint64_t>::max();
}

CPassScheduler::CPassScheduler(uint64_t intervalMs)
    : m_nIntervalMs(intervalMs), m_nIntervalDueMs(0), m_nTriggerDueMs(kNever), m_bFullPassRunning(false)
{
}

uint64_t CPassScheduler::NextPassAt() const
{
    uint64_t next = std::min(m_nIntervalDueMs, m_nTriggerDueMs);
    for (const auto& burst : m_mapBursts) {
        next = std::min(next, burst.second.nNextMs);
    }
    return next;
}

void CPassScheduler::Trigger(uint64_t nowMs)
{
    // the first trigger sets the time; later ones join it instead of pushing it back
    m_nTriggerDueMs = std::min(m_nTriggerDueMs, nowMs + kDebounceMs);
}

void CPassScheduler::OnInterfaceEvent(uint64_t nowMs)
{
    Trigger(nowMs);
}

void CPassScheduler::OnAnnouncement(uint64_t nowMs)
{
    Trigger(nowMs);
}

void CPassScheduler::OnRetryDue(uint64_t nowMs)
{
    Trigger(nowMs);
}

void CPassScheduler::OnCarrierUp(const std::string& ifname, uint64_t nowMs)
{
    m_mapBursts[ifname] = BURST{nowMs + kBurstMs, nowMs + kDebounceMs};
}

PASS_SCOPE CPassScheduler::StartPass(uint64_t nowMs)
{
    PASS_SCOPE scope;
    scope.bEveryInterface = nowMs >= m_nIntervalDueMs || nowMs >= m_nTriggerDueMs;
    if (scope.bEveryInterface) {
        m_nTriggerDueMs = kNever;
        m_nIntervalDueMs = kNever;  // set again when this pass ends
    }
    m_bFullPassRunning = scope.bEveryInterface;
    for (auto it = m_mapBursts.begin(); it != m_mapBursts.end();) {
        BURST& burst = it->second;
        const bool due = scope.bEveryInterface || nowMs >= burst.nNextMs;
        if (due && !scope.bEveryInterface) {
            scope.vecInterfaces.push_back(it->first);
        }
        if (due) {
            burst.nNextMs = nowMs + kBurstStepMs;
        }
        it = burst.nNextMs > burst.nUntilMs ? m_mapBursts.erase(it) : std::next(it);
    }
    return scope;
}

void CPassScheduler::OnPassEnded(uint64_t nowMs)
{
    if (m_bFullPassRunning) {
        m_nIntervalDueMs = nowMs + m_nIntervalMs;
    }
    m_bFullPassRunning = false;
}
