#pragma once

#include "ipconfig/ConfigPass.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Whether a camera of a settled report ends reachable: its "available!"; in a dry run also when the
// plan gives it an address. A camera gone by the end is not.
bool IsReachable(const CAMERA_REPORT& camera, bool dryRun);

// The exit status --exit-code asks for: 0 every camera reachable, 1 some left unreachable, 3 the run
// could not finish.
const int kExitUnreachable = 1;
const int kExitUnfinished = 3;
int ExitStatusOf(bool finished, const std::vector<INTERFACE_REPORT>& report, bool dryRun);

// Moves by result since the process started, per interface: moved, failed, lost.
enum MOVE_RESULT { MOVE_MOVED = 0, MOVE_FAILED, MOVE_LOST, MOVE_RESULTS };
struct METRICS_COUNTERS {
    std::map<std::string, std::array<uint64_t, MOVE_RESULTS>> mapMoves;  // by interface name
    uint64_t nPasses = 0;
};

// Adds one settled pass: its moves, and every interface it has so that its counters start at 0.
void CountPass(const std::vector<INTERFACE_REPORT>& report, METRICS_COUNTERS* counters);

// The pass's figures besides the report.
struct METRICS_PASS {
    double fEndedAtS = 0;   // wall clock, seconds since the epoch
    double fDurationS = 0;
    bool bDryRun = false;
    std::string strVersion;
};

// The text exposition format of Prometheus for one settled pass and the counters so far.
std::string MetricsText(const std::vector<INTERFACE_REPORT>& report, const METRICS_COUNTERS& counters,
                        const METRICS_PASS& pass);

// The metrics file of a run: counts every pass and replaces the file after it. No path: does nothing.
class CMetricsFile {
public:
    CMetricsFile(std::string path, bool dryRun);

    // After a pass that began at `startedMs` (monotonic): `report` when it worked on cameras, or
    // empty, when what it saw stands for it. A file that cannot be written is one line on stderr.
    void EndPass(const SEEN_MODEL& seen, const std::vector<INTERFACE_REPORT>& report, uint64_t startedMs);

private:
    std::string path;
    bool dryRun;
    METRICS_COUNTERS counters;
};
