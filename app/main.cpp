#include "app/JsonReport.h"
#include "app/Metrics.h"
#include "app/Options.h"
#include "app/PassRun.h"
#include "app/PlanCheck.h"
#include "app/RunDiagnostics.h"
#include "app/TextReport.h"
#include "app/Watch.h"
#include "common/Diagnostics.h"
#include "common/StopToken.h"
#include "gvcp/LinkTap.h"

#include <cstdio>
#include <string>

namespace {

const int kUsageError = 2;
const int kConfigError = 78;  // EX_CONFIG

int UsageError(const std::string& problem)
{
    fprintf(stderr, "autoipconfig: %s\nTry 'autoipconfig --help'.\n", problem.c_str());
    return kUsageError;
}

// Enumerate, configure, enumerate again until the cameras answer, report. A dry run stops after
// the planner. Exits 0 whatever happened, unless --exit-code asks what became of the cameras.
int Run(RUN_OPTIONS& options)
{
    const uint64_t startedMs = GenICam::Client::MonotonicMs();
    PASS_REQUEST request;
    request.stOptions = PassOptionsOf(options);
    request.bShowProgress = !options.bJson;
    if (!options.bJson) {
        printf("%s", BannerText().c_str());
    }
    std::vector<GenICam::Client::INTERFACE_VERDICT> verdicts;
    if (options.bVerbose || options.bJson) {
        verdicts = GenICam::Client::SurveyInterfaces(options.vecInterface);
        DiagRawNetworkRight();
        DiagInterfaces(verdicts);
    }
    const PASS_RESULT result = RunPass(request);
    if (result.pResult == &kFinished) {
        CMetricsFile(options.strMetricsFile, options.bDryRun).EndPass(result.stFirst, result.vecReport, startedMs);
    }
    if (options.bJson) {
        PrintJsonReport(result, request.stOptions, verdicts);
    } else if (result.pResult == &kFinished) {
        PrintTextReport(result, request.stOptions);
    }
    EndPasses();
    // Printed after the report on purpose: it is the last line of output.
    if (!options.bJson) {
        printf("%s", result.pResult->szText);
    }
    return options.bExitCode ? ExitStatusOf(result.pResult == &kFinished, result.vecReport, options.bDryRun) : 0;
}

} // namespace

int main(int argc, char* argv[])
{
    // A pipe or the journal sees each line as it is printed; the dots are flushed one by one.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    RUN_OPTIONS options;
    std::string problem;
    if (!ParseOptions(argc, argv, &options, &problem)) {
        return UsageError(problem);
    }
    if (options.bHelp) {
        PrintHelp();
        return 0;
    }
    if (options.bVersion) {
        PrintVersion();
        return 0;
    }
    // A configuration with errors stops the run before anything is sent.
    const PLAN_LOAD plan = LoadAddressPlan(options.strConfigFile);
    for (const std::string& error : plan.vecError) {
        fprintf(stderr, "autoipconfig: %s\n", error.c_str());
    }
    if (!plan.vecError.empty()) {
        return kConfigError;
    }
    options.pPlan = plan.pPlan;
    const std::string unusable = FindInterfaceProblem(options.vecInterface);
    if (!unusable.empty()) {
        return UsageError(unusable);
    }
    if (options.bCheckConfig) {
        return RunCheckConfig(options);
    }
    // Without the right no probe goes out, and an unprobed candidate must not pass for free.
    if (options.bCheckConflicts && !GenICam::Client::HasRawNetworkRight()) {
        fprintf(stderr, "autoipconfig: --check-conflicts needs the raw-network right (CAP_NET_RAW)\n");
        return options.bExitCode ? kExitUnfinished : 1;
    }
    GenICam::Client::Helper::SetDiagnostics(options.bVerbose);
    if (options.bWatch) {
        // a watch that could not finish its first pass says so as a finished run would
        const int status = RunWatch(options);
        return status != 0 && options.bExitCode ? kExitUnfinished : status;
    }
    return Run(options);
}
