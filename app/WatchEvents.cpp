#include "app/WatchEvents.h"

#include "common/ipcalc.h"

#include <ctime>
#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

const char* WatchEventName(WATCH_EVENT_KIND kind)
{
    static const char* const names[] = {"appeared", "moved", "planned", "failed", "lost", "gone", "config"};
    return kind <= WATCH_EVENT_CONFIG ? names[kind] : "unknown";
}

WATCH_EVENT ConfigEvent(uint64_t wallMs, const std::string& reason)
{
    WATCH_EVENT event;
    event.nWallMs = wallMs;
    event.nKind = WATCH_EVENT_CONFIG;
    event.strReason = reason;
    return event;
}

std::string UtcMsText(uint64_t wallMs)
{
    const time_t seconds = static_cast<time_t>(wallMs / 1000);
    struct tm utc = {};
    gmtime_r(&seconds, &utc);
    char text[64];
    snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03uZ", utc.tm_year + 1900, utc.tm_mon + 1,
             utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<unsigned int>(wallMs % 1000));
    return text;
}

std::string WatchEventJson(const WATCH_EVENT& event)
{
    if (event.nKind == WATCH_EVENT_CONFIG) {
        Json line = {{"time", UtcMsText(event.nWallMs)}, {"event", WatchEventName(event.nKind)}};
        if (!event.strReason.empty()) {
            line["reason"] = event.strReason;
        }
        return line.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    Json line = {
        {"time", UtcMsText(event.nWallMs)},
        {"event", WatchEventName(event.nKind)},
        {"interface", event.stCamera.strInterface},
    };
    if (!event.stCamera.stId.strText.empty()) {
        line["mac"] = event.stCamera.stId.strText;
        line["ip"] = DottedText(event.stCamera.nIP);
        line["mask"] = DottedText(event.stCamera.nMask);
        line["model"] = event.stCamera.strModel;
        line["serial"] = event.stCamera.strSerial;
    }
    if (event.bHasPreviousIP) {
        line["previous_ip"] = DottedText(event.nPreviousIP);
    }
    if (!event.strReason.empty()) {
        line["reason"] = event.strReason;
    }
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string WatchEventText(const WATCH_EVENT& event)
{
    std::string text = UtcMsText(event.nWallMs) + " " + event.stCamera.strInterface;
    if (!event.stCamera.stId.strText.empty()) {
        text += " " + event.stCamera.stId.strText;
    }
    text += std::string(" ") + WatchEventName(event.nKind);
    const std::string ip = DottedText(event.stCamera.nIP);
    switch (event.nKind) {
    case WATCH_EVENT_APPEARED:
        text += " at " + ip;
        break;
    case WATCH_EVENT_CONFIG:  // neither interface nor camera: the time and the outcome only
        return UtcMsText(event.nWallMs) + " config " +
               (event.strReason.empty() ? "applied" : "rejected: " + event.strReason);
    case WATCH_EVENT_GONE:
        text += " from " + ip;
        break;
    case WATCH_EVENT_FAILED:
        text += " " + ip;
        break;
    default:  // moved, planned, lost: from where to where
        text += " " + (event.bHasPreviousIP ? DottedText(event.nPreviousIP) + " -> " : std::string()) + ip;
        break;
    }
    return event.strReason.empty() ? text : text + ": " + event.strReason;
}

CWatchEventWriter::CWatchEventWriter(FILE* out, bool json) : m_pOut(out), m_bJson(json) {}

bool CWatchEventWriter::Write(const WATCH_EVENT& event)
{
    const std::string line = (m_bJson ? WatchEventJson(event) : WatchEventText(event)) + "\n";
    const bool written = fwrite(line.data(), 1, line.size(), m_pOut) == line.size();
    return fflush(m_pOut) == 0 && written;
}

bool CWatchEventWriter::Write(const std::vector<WATCH_EVENT>& events)
{
    bool written = true;
    for (const WATCH_EVENT& event : events) {
        written = Write(event) && written;
    }
    return written;
}

std::string WatchStatusLine(unsigned long pass, size_t interfaces, size_t cameras,
                            const std::vector<WATCH_EVENT>& events)
{
    size_t moved = 0;
    size_t planned = 0;
    size_t failed = 0;
    for (const WATCH_EVENT& event : events) {
        moved += event.nKind == WATCH_EVENT_MOVED;
        planned += event.nKind == WATCH_EVENT_PLANNED;
        failed += event.nKind == WATCH_EVENT_FAILED || event.nKind == WATCH_EVENT_LOST;
    }
    std::string line = "pass " + std::to_string(pass) + ": " + std::to_string(interfaces) + " interface" +
                       (interfaces == 1 ? "" : "s") + ", " + std::to_string(cameras) + " camera" +
                       (cameras == 1 ? "" : "s") + ", " + std::to_string(moved) + " moved, " +
                       std::to_string(failed) + " failed";
    return planned == 0 ? line : line + ", " + std::to_string(planned) + " planned";
}
