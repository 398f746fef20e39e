#pragma once

#include "ipconfig/ConfigPass.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// What the watch mode tells about a camera; each state is told once.
enum WATCH_EVENT_KIND {
    WATCH_EVENT_APPEARED = 0,  // first seen (or back) at an address that fits; nothing sent
    WATCH_EVENT_MOVED,         // answered at the address it was sent
    WATCH_EVENT_PLANNED,       // dry run: the address it would be sent
    WATCH_EVENT_FAILED,        // refused, did not take, or left alone as contested
    WATCH_EVENT_LOST,          // sent an address, never answered there
    WATCH_EVENT_GONE,          // not seen for several passes in a row
    WATCH_EVENT_CONFIG,        // the configuration was read again on SIGHUP; a reason: rejected, old one kept
};

// One event as a value: written as a JSON line or a text line, counted into the status summary.
struct WATCH_EVENT {
    uint64_t nWallMs = 0;        // Unix time in ms, for display only
    WATCH_EVENT_KIND nKind = WATCH_EVENT_APPEARED;
    // The camera's record as discovery made it, but its address: where it is, or is sent, or would be
    // sent; no MAC for an event without a camera.
    SEEN_CAMERA stCamera;
    bool bHasPreviousIP = false;
    uint32_t nPreviousIP = 0;    // where it was before this pass
    std::string strReason;       // the JSON report's reason texts; empty: none
};

// The event that tells a reload, without interface or camera: `reason` is the file's error
// (file:line:col: ...), empty when the new configuration applies.
WATCH_EVENT ConfigEvent(uint64_t wallMs, const std::string& reason);

const char* WatchEventName(WATCH_EVENT_KIND kind);

// RFC 3339 in UTC with milliseconds: 2026-11-25T06:30:00.123Z.
std::string UtcMsText(uint64_t wallMs);

// One JSON object without the line end; camera texts with invalid UTF-8 get U+FFFD.
std::string WatchEventJson(const WATCH_EVENT& event);
// One text line without the line end, e.g. "... eth0 00-11-22-33-44-55 moved 10.0.0.7 -> 192.168.1.11".
std::string WatchEventText(const WATCH_EVENT& event);

// Writes events one line each and flushes every line: a reader (journal, pipe) sees it at once.
class CWatchEventWriter {
public:
    CWatchEventWriter(FILE* out, bool json);

    // False when the line could not be written (a closed pipe): the caller decides whether to go on.
    bool Write(const WATCH_EVENT& event);
    bool Write(const std::vector<WATCH_EVENT>& events);

private:
    FILE* m_pOut;
    bool m_bJson;
};

// The one-line STATUS= summary of a pass, e.g. "pass 12: 2 interfaces, 5 cameras, 1 moved, 0 failed".
std::string WatchStatusLine(unsigned long pass, size_t interfaces, size_t cameras,
                            const std::vector<WATCH_EVENT>& events);
