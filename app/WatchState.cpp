#include "app/WatchState.h"

#include <algorithm>
#include <set>

namespace {

const char kContested[] = "contested: moved 4 times in 10 minutes; left alone for 10 minutes";
// Keeps the shift of the back-off below the width of the number; the cap is reached long before.
const unsigned kMaxDoublings = 20;

WATCH_EVENT EventOf(WATCH_EVENT_KIND kind, const WATCH_SIGHTING& seen)
{
    WATCH_EVENT event;
    event.nKind = kind;
    event.stCamera = seen.stCamera;
    return event;
}

WATCH_EVENT MoveEvent(WATCH_EVENT_KIND kind, const WATCH_SIGHTING& seen, const WATCH_RESULT& result)
{
    WATCH_EVENT event = EventOf(kind, seen);
    event.stCamera.nIP = result.nIP;
    event.stCamera.nMask = result.nMask;
    event.bHasPreviousIP = true;
    event.nPreviousIP = seen.stCamera.nIP;
    event.strReason = result.strReason;
    return event;
}

const WATCH_RESULT* FindResult(const std::vector<WATCH_RESULT>& results, const std::string& mac)
{
    for (const WATCH_RESULT& result : results) {
        if (result.strMac == mac) {
            return &result;
        }
    }
    return nullptr;
}

} // namespace

bool WATCH_SIGHTING::SameRecord(const WATCH_SIGHTING& other) const
{
    const SEEN_CAMERA& a = stCamera;
    const SEEN_CAMERA& b = other.stCamera;
    return a.strInterface == b.strInterface && a.stId.strText == b.stId.strText && a.strModel == b.strModel &&
           a.strSerial == b.strSerial && a.nIP == b.nIP && a.nMask == b.nMask && nInterfaceIP == other.nInterfaceIP && nInterfaceMask == other.nInterfaceMask;
}

CWatchState::CWatchState(bool checkFitting) : m_bCheckFitting(checkFitting) {}

size_t CWatchState::CameraCount() const
{
    return m_mapCameras.size();
}

std::vector<uint32_t> CWatchState::KnownAddresses(const std::vector<std::string>& worked) const
{
    std::vector<uint32_t> addresses;
    for (const auto& camera : m_mapCameras) {
        if (std::find(worked.begin(), worked.end(), camera.first) != worked.end()) {
            continue;
        }
        addresses.push_back(camera.second.stSeen.stCamera.nIP);
        if (camera.second.nState == STATE_PLANNED) {
            addresses.push_back(camera.second.nPlannedIP);  // a dry run's plans must not collide either
        }
    }
    return addresses;
}

uint64_t CWatchState::NextRetryAfter(uint64_t afterMs) const
{
    uint64_t next = 0;
    for (const auto& camera : m_mapCameras) {
        const CAMERA& state = camera.second;
        const bool waiting = state.nState == STATE_FAILED || state.nState == STATE_CONTESTED;
        if (waiting && state.nRetryAtMs > afterMs && (next == 0 || state.nRetryAtMs < next)) {
            next = state.nRetryAtMs;
        }
    }
    return next;
}

std::vector<std::string> CWatchState::CamerasToWork(const WATCH_PASS_VIEW& view, uint64_t nowMs) const
{
    std::vector<std::string> macs;
    for (const WATCH_SIGHTING& seen : view.vecCameras) {
        const auto found = m_mapCameras.find(seen.stCamera.stId.strText);
        if (NeedsWork(found == m_mapCameras.end() ? nullptr : &found->second, seen, nowMs)) {
            macs.push_back(seen.stCamera.stId.strText);
        }
    }
    return macs;
}

bool CWatchState::NeedsWork(const CAMERA* camera, const WATCH_SIGHTING& seen, uint64_t nowMs) const
{
    const bool wanted = !seen.bFits || m_bCheckFitting;
    if (camera == nullptr) {
        return wanted;
    }
    if (camera->nState == STATE_CONTESTED && nowMs < camera->nRetryAtMs) {
        return false;
    }
    if (!camera->stSeen.SameRecord(seen)) {
        return wanted;
    }
    switch (camera->nState) {
    case STATE_PENDING:
        return true;
    case STATE_PLANNED:
        return false;
    case STATE_FAILED:
        return nowMs >= camera->nRetryAtMs;
    default:  // fine, or contested no longer
        return !seen.bFits;
    }
}

std::vector<WATCH_EVENT> CWatchState::EndPass(const WATCH_PASS_VIEW& view, const std::vector<WATCH_RESULT>& results,
                                              uint64_t nowMs, uint64_t wallMs)
{
    std::vector<WATCH_EVENT> events;
    for (const WATCH_SIGHTING& seen : view.vecCameras) {
        const bool known = m_mapCameras.count(seen.stCamera.stId.strText) != 0;
        CAMERA& camera = m_mapCameras[seen.stCamera.stId.strText];
        const bool changed = !known || !camera.stSeen.SameRecord(seen);
        if (changed) {
            camera.nFailures = 0;  // rebooted or reconfigured by someone else: a fresh start
        }
        camera.nMisses = 0;
        const WATCH_RESULT* result = FindResult(results, seen.stCamera.stId.strText);
        if (result != nullptr) {
            ApplyResult(camera, seen, *result, changed, nowMs, events);
        } else {
            Unworked(camera, seen, changed, nowMs, events);
        }
    }
    CountMisses(view, events);
    for (WATCH_EVENT& event : events) {
        event.nWallMs = wallMs;
    }
    return events;
}

void CWatchState::Unworked(CAMERA& camera, const WATCH_SIGHTING& seen, bool changed, uint64_t nowMs,
                             std::vector<WATCH_EVENT>& events)
{
    camera.stSeen = seen;
    if (camera.nState == STATE_CONTESTED && nowMs < camera.nRetryAtMs) {
        return;
    }
    if (seen.bFits && !(m_bCheckFitting && changed)) {
        Fine(camera, events);
    } else if (changed || camera.nState == STATE_FINE || camera.nState == STATE_CONTESTED) {
        camera.nState = STATE_PENDING;  // needs work that no pass has done yet
    }
}

void CWatchState::Fine(CAMERA& camera, std::vector<WATCH_EVENT>& events)
{
    if (!camera.bTold || camera.bUnreachable) {
        events.push_back(EventOf(WATCH_EVENT_APPEARED, camera.stSeen));
    }
    camera.nState = STATE_FINE;
    camera.nFailures = 0;
    camera.bTold = true;
    camera.bUnreachable = false;
}

void CWatchState::ApplyResult(CAMERA& camera, const WATCH_SIGHTING& seen, const WATCH_RESULT& result, bool changed,
                                uint64_t nowMs, std::vector<WATCH_EVENT>& events)
{
    camera.stSeen = seen;
    switch (result.nOutcome) {
    case WATCH_OUTCOME_KEPT:
        Fine(camera, events);
        return;
    case WATCH_OUTCOME_MOVED:
        // the next pass finds it where it was sent: unchanged, nothing to do
        camera.stSeen.stCamera.nIP = result.nIP;
        camera.stSeen.stCamera.nMask = result.nMask;
        events.push_back(MoveEvent(WATCH_EVENT_MOVED, seen, result));
        camera.bTold = true;
        camera.bUnreachable = false;
        camera.nState = STATE_FINE;
        camera.nFailures = 0;
        if (CountMove(camera, nowMs)) {
            WATCH_EVENT contested = EventOf(WATCH_EVENT_FAILED, camera.stSeen);
            contested.strReason = kContested;
            events.push_back(contested);
            camera.nState = STATE_CONTESTED;
            camera.nRetryAtMs = nowMs + kContestWindowMs;
            camera.bUnreachable = true;
        }
        return;
    case WATCH_OUTCOME_PLANNED:
        events.push_back(MoveEvent(WATCH_EVENT_PLANNED, seen, result));
        camera.bTold = true;
        camera.nState = STATE_PLANNED;
        camera.nPlannedIP = result.nIP;
        return;
    case WATCH_OUTCOME_FAILED: {
        // where it is now is what the next pass compares with: a camera that took another address is no change
        if (result.nIP != 0) {
            camera.stSeen.stCamera.nIP = result.nIP;
            camera.stSeen.stCamera.nMask = result.nMask != 0 ? result.nMask : seen.stCamera.nMask;
        }
        WATCH_EVENT failed = EventOf(WATCH_EVENT_FAILED, camera.stSeen);
        failed.bHasPreviousIP = true;
        failed.nPreviousIP = seen.stCamera.nIP;
        failed.strReason = result.strReason;
        events.push_back(failed);
        break;
    }
    case WATCH_OUTCOME_LOST:
        events.push_back(MoveEvent(WATCH_EVENT_LOST, seen, result));
        break;
    case WATCH_OUTCOME_NO_ADDRESS:
        if (!camera.bTold || changed) {
            WATCH_EVENT appeared = EventOf(WATCH_EVENT_APPEARED, seen);
            appeared.strReason = result.strReason;
            events.push_back(appeared);
        }
        break;
    }
    camera.bTold = true;
    camera.bUnreachable = true;
    Fail(camera, nowMs);
}

void CWatchState::Fail(CAMERA& camera, uint64_t nowMs)
{
    const unsigned doublings = std::min(camera.nFailures, kMaxDoublings);
    camera.nFailures++;
    camera.nState = STATE_FAILED;
    camera.nRetryAtMs = nowMs + std::min(kFirstBackOffMs << doublings, kMaxBackOffMs);
}

bool CWatchState::CountMove(CAMERA& camera, uint64_t nowMs)
{
    std::vector<uint64_t>& moves = camera.vecMovesMs;
    moves.erase(std::remove_if(moves.begin(), moves.end(),
                               [nowMs](uint64_t at) { return at + kContestWindowMs <= nowMs; }),
                moves.end());
    moves.push_back(nowMs);
    if (moves.size() < kMovesForContest) {
        return false;
    }
    moves.clear();
    return true;
}

void CWatchState::CountMisses(const WATCH_PASS_VIEW& view, std::vector<WATCH_EVENT>& events)
{
    std::set<std::string> seen;
    for (const WATCH_SIGHTING& camera : view.vecCameras) {
        seen.insert(camera.stCamera.stId.strText);
    }
    const std::set<std::string> covered(view.vecInterfaces.begin(), view.vecInterfaces.end());
    for (auto it = m_mapCameras.begin(); it != m_mapCameras.end();) {
        CAMERA& camera = it->second;
        const bool looked = view.bEveryInterface || covered.count(camera.stSeen.stCamera.strInterface) != 0;
        if (seen.count(it->first) != 0 || !looked || ++camera.nMisses < kMissesForGone) {
            ++it;
            continue;
        }
        // forgotten once gone: what is remembered stays bounded by the cameras present
        if (camera.bTold) {
            events.push_back(EventOf(WATCH_EVENT_GONE, camera.stSeen));
        }
        it = m_mapCameras.erase(it);
    }
}
