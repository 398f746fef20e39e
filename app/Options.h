#pragma once

#include "ipconfig/AddressPlan.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// What the command line asks for. With no arguments every field keeps its default: the plain run.
struct RUN_OPTIONS {
    bool bDryRun = false;
    bool bJson = false;
    bool bHelp = false;
    bool bVersion = false;
    bool bStandard = false;
    bool bCheckConflicts = false;
    bool bVerbose = false;
    bool bWatch = false;
    bool bExitCode = false;  // the exit status tells whether every camera ends reachable
    std::string strMetricsFile;  // Prometheus text written after every pass; empty: none
    uint64_t nIntervalMs = 10000;  // --watch: from the end of one pass to the start of the next
    std::vector<std::string> vecInterface;
    std::string strConfigFile;  // --config: this file instead of the default ones
    bool bCheckConfig = false;
    std::shared_ptr<const ADDRESS_PLAN> pPlan;  // read from the files after parsing; null: none
};

// Fills options from argv; false with the problem in one phrase when the command line is wrong.
bool ParseOptions(int argc, char* argv[], RUN_OPTIONS* options, std::string* problem);

// Why the first unusable name cannot be worked on (no such interface, or the reason the run skips
// it); empty when the run uses every name.
std::string FindInterfaceProblem(const std::vector<std::string>& names);

// The report's own version, a fixed text of the banner and the JSON report: a release that bumps the
// package does not change what the report says.
const char kReportVersion[] = "1.0.1906.9272";

// The plain run's first two lines.
std::string BannerText();
// What --version prints: the package's version.
std::string VersionText();

void PrintHelp();
void PrintVersion();
