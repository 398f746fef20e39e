#pragma once

#include "app/WatchEvents.h"
#include "ipconfig/ConfigPass.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// One camera as one pass's discovery saw it, with the address of the interface it was seen on.
// Any difference from the previous sighting is a change: the camera rebooted, was reconfigured,
// moved to another link, or its interface's address changed.
struct WATCH_SIGHTING {
    SEEN_CAMERA stCamera;      // as discovery made it; its MAC text is the camera's key
    uint32_t nInterfaceIP = 0;
    uint32_t nInterfaceMask = 0;
    bool bFits = false;        // its address fits the interface: a plain run leaves it alone

    bool SameRecord(const WATCH_SIGHTING& other) const;
};

// What one pass's discovery covered.
struct WATCH_PASS_VIEW {
    std::vector<std::string> vecInterfaces;  // the interfaces discovered on
    bool bEveryInterface = true;             // a camera behind an interface not listed is missing too
    std::vector<WATCH_SIGHTING> vecCameras;
};

// What the pass did to a camera it was asked to work on.
enum WATCH_OUTCOME {
    WATCH_OUTCOME_KEPT = 0,    // worked on, left where it is
    WATCH_OUTCOME_MOVED,       // answered at the new address
    WATCH_OUTCOME_PLANNED,     // dry run
    WATCH_OUTCOME_FAILED,      // refused or did not take
    WATCH_OUTCOME_LOST,        // acknowledged, never answered at the new address
    WATCH_OUTCOME_NO_ADDRESS,  // no free address, or the interface has none to give
};

struct WATCH_RESULT {
    std::string strMac;
    WATCH_OUTCOME nOutcome = WATCH_OUTCOME_KEPT;
    // MOVED, PLANNED, LOST: the address sent; FAILED: where the camera is after the pass (0: unchanged)
    uint32_t nIP = 0;
    uint32_t nMask = 0;
    std::string strReason;     // FAILED, LOST, NO_ADDRESS: the JSON report's reason
};

// What the watch mode remembers of every camera between passes: its last sighting, its state and
// back-off, and its recent moves. Pure: time is a parameter in monotonic ms.
class CWatchState {
public:
    static constexpr uint64_t kFirstBackOffMs = 2000;
    static constexpr uint64_t kMaxBackOffMs = 5 * 60 * 1000;
    static constexpr unsigned kMissesForGone = 3;
    static constexpr unsigned kMovesForContest = 4;
    static constexpr uint64_t kContestWindowMs = 10 * 60 * 1000;

    // With checkFitting (address conflict checks), new and changed cameras are worked on even when they fit.
    explicit CWatchState(bool checkFitting = false);

    // Before the configuration step: the MACs of the cameras this pass works on, in sighting order.
    std::vector<std::string> CamerasToWork(const WATCH_PASS_VIEW& view, uint64_t nowMs) const;

    // After the pass: remembers what it saw and did; returns the events, each state told once.
    std::vector<WATCH_EVENT> EndPass(const WATCH_PASS_VIEW& view, const std::vector<WATCH_RESULT>& results,
                                     uint64_t nowMs, uint64_t wallMs);

    size_t CameraCount() const;
    // The earliest back-off or quiet time that ends after `afterMs`; 0 when none: the watch runs a
    // pass then, so a retry does not wait for the interval.
    uint64_t NextRetryAfter(uint64_t afterMs) const;
    // Where every remembered camera was last seen or is planned to go: taken, also while a camera misses
    // a pass; a camera worked on may get its own back (one that cannot store it comes back at it after a
    // power cycle).
    std::vector<uint32_t> KnownAddresses(const std::vector<std::string>& worked) const;

private:
    enum CAMERA_STATE { STATE_FINE, STATE_PENDING, STATE_PLANNED, STATE_FAILED, STATE_CONTESTED };

    struct CAMERA {
        WATCH_SIGHTING stSeen;
        CAMERA_STATE nState = STATE_PENDING;
        bool bTold = false;            // an event about it was written since it was (re)found
        bool bUnreachable = false;     // the last event said it is not reachable where it fits
        unsigned nFailures = 0;
        uint64_t nRetryAtMs = 0;       // FAILED: back-off end; CONTESTED: end of the quiet time
        uint32_t nPlannedIP = 0;       // PLANNED: the address a dry run gave it
        unsigned nMisses = 0;
        std::vector<uint64_t> vecMovesMs;
    };

    bool NeedsWork(const CAMERA* camera, const WATCH_SIGHTING& seen, uint64_t nowMs) const;
    void ApplyResult(CAMERA& camera, const WATCH_SIGHTING& seen, const WATCH_RESULT& result, bool changed,
                       uint64_t nowMs, std::vector<WATCH_EVENT>& events);
    void Unworked(CAMERA& camera, const WATCH_SIGHTING& seen, bool changed, uint64_t nowMs,
                    std::vector<WATCH_EVENT>& events);
    void Fine(CAMERA& camera, std::vector<WATCH_EVENT>& events);
    void Fail(CAMERA& camera, uint64_t nowMs);
    bool CountMove(CAMERA& camera, uint64_t nowMs);
    void CountMisses(const WATCH_PASS_VIEW& view, std::vector<WATCH_EVENT>& events);

    bool m_bCheckFitting;
    std::map<std::string, CAMERA> m_mapCameras;
};
