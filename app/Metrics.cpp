#include "app/Metrics.h"

#include "common/AtomicFile.h"
#include "common/StopToken.h"
#include "common/ipcalc.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

namespace {

const char* const kResultNames[MOVE_RESULTS] = {"moved", "failed", "lost"};
const mode_t kFileMode = 0644;

// Label values as the exposition format escapes them: backslash, double quote, line feed.
std::string Escaped(const std::string& value)
{
    std::string out;
    for (const char c : value) {
        out += c == '\\' ? "\\\\" : c == '"' ? "\\\"" : c == '\n' ? "\\n" : std::string(1, c);
    }
    return out;
}

std::string Labels(std::initializer_list<std::pair<const char*, std::string>> labels)
{
    std::string out;
    for (const auto& label : labels) {
        out += std::string(out.empty() ? "{" : ",") + label.first + "=\"" + Escaped(label.second) + "\"";
    }
    return out.empty() ? out : out + "}";
}

void Family(std::string* text, const char* name, const char* type, const char* help)
{
    *text += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

template <typename T>
void Sample(std::string* text, const char* name, const std::string& labels, T value)
{
    *text += name + labels + " " + std::to_string(value) + "\n";
}

// Seconds with millisecond resolution: to_string's six digits would claim more than the clocks give.
std::string Seconds(double seconds)
{
    char buffer[32];
    snprintf(buffer, sizeof(buffer), "%.3f", seconds);
    return buffer;
}

double WallSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// What one look at the device model says stands for a pass that worked on no camera.
std::vector<INTERFACE_REPORT> ReportOfSeen(const SEEN_MODEL& seen)
{
    std::vector<INTERFACE_REPORT> report;
    for (const SEEN_INTERFACE& itf : seen.vecInterface) {
        INTERFACE_REPORT entry;
        entry.stInterface = itf;
        for (const SEEN_CAMERA& camera : seen.vecCamera) {
            if (camera.strInterface == itf.stId.strLabel) {
                entry.vecCamera.push_back(CAMERA_REPORT{camera, CAMERA_OUTCOME(), false});
            }
        }
        report.push_back(entry);
    }
    return report;
}

} // namespace

bool IsReachable(const CAMERA_REPORT& camera, bool dryRun)
{
    return !camera.bGone && (camera.stCamera.bAvailable || (dryRun && camera.stOutcome.nAction == CAMERA_PLANNED));
}

int ExitStatusOf(bool finished, const std::vector<INTERFACE_REPORT>& report, bool dryRun)
{
    if (!finished) {
        return kExitUnfinished;
    }
    for (const INTERFACE_REPORT& itf : report) {
        for (const CAMERA_REPORT& camera : itf.vecCamera) {
            if (!IsReachable(camera, dryRun)) {
                return kExitUnreachable;
            }
        }
    }
    return 0;
}

void CountPass(const std::vector<INTERFACE_REPORT>& report, METRICS_COUNTERS* counters)
{
    ++counters->nPasses;
    for (const INTERFACE_REPORT& itf : report) {
        std::array<uint64_t, MOVE_RESULTS>& moves = counters->mapMoves[itf.stInterface.stId.strLabel];
        for (const CAMERA_REPORT& camera : itf.vecCamera) {
            const CAMERA_OUTCOME& outcome = camera.stOutcome;
            if (outcome.nAction == CAMERA_MOVED) {
                ++moves[MOVE_MOVED];
            } else if (outcome.nAction == CAMERA_FAILED) {
                ++moves[MOVE_FAILED];
            } else if (outcome.nAction == CAMERA_LOST && outcome.nNewIP != 0) {
                // one that vanished without being sent an address was never moved
                ++moves[MOVE_LOST];
            }
        }
    }
}

std::string MetricsText(const std::vector<INTERFACE_REPORT>& report, const METRICS_COUNTERS& counters,
                        const METRICS_PASS& pass)
{
    std::string text;
    Family(&text, "autoipconfig_cameras", "gauge", "Cameras of an interface by their state after the last pass.");
    for (const INTERFACE_REPORT& itf : report) {
        size_t reachable = 0;
        for (const CAMERA_REPORT& camera : itf.vecCamera) {
            reachable += IsReachable(camera, pass.bDryRun) ? 1 : 0;
        }
        const std::string& name = itf.stInterface.stId.strLabel;
        Sample(&text, "autoipconfig_cameras", Labels({{"interface", name}, {"state", "reachable"}}), reachable);
        Sample(&text, "autoipconfig_cameras", Labels({{"interface", name}, {"state", "unreachable"}}),
               itf.vecCamera.size() - reachable);
    }
    Family(&text, "autoipconfig_camera_info", "gauge", "A camera the last pass saw, with its address.");
    for (const INTERFACE_REPORT& itf : report) {
        for (const CAMERA_REPORT& entry : itf.vecCamera) {
            const SEEN_CAMERA& camera = entry.stCamera;
            Sample(&text, "autoipconfig_camera_info",
                   Labels({{"interface", itf.stInterface.stId.strLabel}, {"mac", camera.stId.strText}, {"serial", camera.strSerial},
                           {"model", camera.strModel}, {"ip", DottedText(camera.nIP)}}),
                   1);
        }
    }
    Family(&text, "autoipconfig_moves_total", "counter", "Cameras sent a new address since the start, by result.");
    for (const auto& moves : counters.mapMoves) {
        for (int result = 0; result < MOVE_RESULTS; ++result) {
            Sample(&text, "autoipconfig_moves_total", Labels({{"interface", moves.first}, {"result", kResultNames[result]}}),
                   moves.second[result]);
        }
    }
    Family(&text, "autoipconfig_passes_total", "counter", "Passes finished since the start.");
    Sample(&text, "autoipconfig_passes_total", "", counters.nPasses);
    Family(&text, "autoipconfig_last_pass_timestamp_seconds", "gauge", "When the last pass ended, since the epoch.");
    text += "autoipconfig_last_pass_timestamp_seconds " + Seconds(pass.fEndedAtS) + "\n";
    Family(&text, "autoipconfig_last_pass_duration_seconds", "gauge", "How long the last pass took.");
    text += "autoipconfig_last_pass_duration_seconds " + Seconds(pass.fDurationS) + "\n";
    Family(&text, "autoipconfig_build_info", "gauge", "The running version.");
    Sample(&text, "autoipconfig_build_info", Labels({{"version", pass.strVersion}}), 1);
    return text;
}

CMetricsFile::CMetricsFile(std::string path, bool dryRun) : path(std::move(path)), dryRun(dryRun)
{
}

void CMetricsFile::EndPass(const SEEN_MODEL& seen, const std::vector<INTERFACE_REPORT>& report, uint64_t startedMs)
{
    if (path.empty()) {
        return;
    }
    const std::vector<INTERFACE_REPORT> settled = report.empty() ? ReportOfSeen(seen) : report;
    CountPass(settled, &counters);
    METRICS_PASS pass;
    pass.fEndedAtS = WallSeconds();
    pass.fDurationS = static_cast<double>(GenICam::Client::MonotonicMs() - startedMs) / 1000;
    pass.bDryRun = dryRun;
    pass.strVersion = AIC_VERSION;
    int error = 0;
    if (!GenICam::Client::WriteFileAtomically(path, MetricsText(settled, counters, pass), kFileMode, &error)) {
        fprintf(stderr, "autoipconfig: cannot write the metrics file %s: %s\n", path.c_str(), strerror(error));
    }
}
