#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

namespace GenICam {
namespace Client {

// What one link remembers of the MACs it heard, and how often they may start a pass.
const size_t kAnnouncementMemory = 4096;
const uint64_t kAnnouncementWindowMs = 1000;

// Decides which ARP probes and announcements on one link start a pass: one from a MAC not heard
// before, at most one pass per window; a new MAC inside the window holds a pass back to the window's
// end. The link is not trusted: the least recently heard MAC is forgotten beyond the bound, so a flood
// of forged senders costs one lookup each and no memory growth.
class CAnnouncementFilter {
public:
    explicit CAnnouncementFilter(size_t capacity = kAnnouncementMemory, uint64_t windowMs = kAnnouncementWindowMs);

    // True when a pass should start now (monotonic ms).
    bool Heard(const uint8_t* mac, uint64_t nowMs);
    // When the held-back pass is due, 0 when none is held back: the caller's next timer.
    uint64_t DueAtMs() const;
    // True once, at or after DueAtMs, for the held-back pass.
    bool TakeDue(uint64_t nowMs);
    // Forgets a MAC, so that its next announcement starts a pass again (a camera gone from the link).
    void Forget(const uint8_t* mac);

private:
    bool Remember(uint64_t key);
    bool Start(uint64_t nowMs);

    size_t m_nCapacity;
    uint64_t m_nWindowMs;
    std::list<uint64_t> m_lstRecent;  // most recently heard first
    std::unordered_map<uint64_t, std::list<uint64_t>::iterator> m_mapHeard;
    bool m_bStarted;
    uint64_t m_nStartedMs;
    bool m_bHeldBack;
};

} // namespace Client
} // namespace GenICam
