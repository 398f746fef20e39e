#include "link/AnnouncementFilter.h"

namespace GenICam {
namespace Client {

namespace {

uint64_t Key(const uint8_t* mac)
{
    uint64_t key = 0;
    for (int i = 0; i < 6; ++i) {
        key = key << 8 | mac[i];
    }
    return key;
}

} // namespace

CAnnouncementFilter::CAnnouncementFilter(size_t capacity, uint64_t windowMs)
    : m_nCapacity(capacity > 0 ? capacity : 1), m_nWindowMs(windowMs), m_bStarted(false), m_nStartedMs(0),
      m_bHeldBack(false)
{
    m_mapHeard.reserve(m_nCapacity + 1);
}

bool CAnnouncementFilter::Heard(const uint8_t* mac, uint64_t nowMs)
{
    if (!Remember(Key(mac))) {
        return false;
    }
    if (Start(nowMs)) {
        return true;
    }
    m_bHeldBack = true;
    return false;
}

uint64_t CAnnouncementFilter::DueAtMs() const
{
    return m_bHeldBack ? m_nStartedMs + m_nWindowMs : 0;
}

bool CAnnouncementFilter::TakeDue(uint64_t nowMs)
{
    return m_bHeldBack && Start(nowMs);
}

void CAnnouncementFilter::Forget(const uint8_t* mac)
{
    const auto found = m_mapHeard.find(Key(mac));
    if (found != m_mapHeard.end()) {
        m_lstRecent.erase(found->second);
        m_mapHeard.erase(found);
    }
}

// True for a MAC not remembered; either way it becomes the most recently heard.
bool CAnnouncementFilter::Remember(uint64_t key)
{
    const auto found = m_mapHeard.find(key);
    if (found != m_mapHeard.end()) {
        m_lstRecent.splice(m_lstRecent.begin(), m_lstRecent, found->second);
        return false;
    }
    if (m_mapHeard.size() >= m_nCapacity) {
        m_mapHeard.erase(m_lstRecent.back());
        m_lstRecent.pop_back();
    }
    m_lstRecent.push_front(key);
    m_mapHeard.emplace(key, m_lstRecent.begin());
    return true;
}

// A pass starts when none started within the window; it takes any held-back one with it.
bool CAnnouncementFilter::Start(uint64_t nowMs)
{
    if (m_bStarted && nowMs < m_nStartedMs + m_nWindowMs) {
        return false;
    }
    m_bStarted = true;
    m_nStartedMs = nowMs;
    m_bHeldBack = false;
    return true;
}

} // namespace Client
} // namespace GenICam
