#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What one watch pass discovers on.
struct PASS_SCOPE {
    bool bEveryInterface = true;
    std::vector<std::string> vecInterfaces;  // with bEveryInterface false: only these kernel names
};

// When the watch mode runs its next pass: an interval after the previous full pass ended, soon after
// a link or address change or an announcement (triggers are collected for a moment, so a burst costs
// one pass), and every second on a link whose carrier just came up. Pure: time in monotonic ms.
class CPassScheduler {
public:
    static constexpr uint64_t kDebounceMs = 100;
    static constexpr uint64_t kBurstStepMs = 1000;
    static constexpr uint64_t kBurstMs = 30000;

    explicit CPassScheduler(uint64_t intervalMs);

    // When the next pass is due; the first is due at once.
    uint64_t NextPassAt() const;

    void OnInterfaceEvent(uint64_t nowMs);
    // Announcements come rate-limited already; each asks for one full pass like a link change.
    void OnAnnouncement(uint64_t nowMs);
    // A camera's back-off ended: a full pass, as for a link change.
    void OnRetryDue(uint64_t nowMs);
    // A camera behind that link may be booting: a pass on it now and every second for a while.
    void OnCarrierUp(const std::string& ifname, uint64_t nowMs);

    // Call when NextPassAt() has come: what this pass covers; the triggers it serves are cleared.
    PASS_SCOPE StartPass(uint64_t nowMs);
    void OnPassEnded(uint64_t nowMs);

private:
    struct BURST {
        uint64_t nUntilMs;
        uint64_t nNextMs;
    };

    void Trigger(uint64_t nowMs);

    uint64_t m_nIntervalMs;
    uint64_t m_nIntervalDueMs;
    uint64_t m_nTriggerDueMs;
    bool m_bFullPassRunning;
    std::map<std::string, BURST> m_mapBursts;
};
