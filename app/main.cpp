#include "app/JsonReport.h"
#include "app/Options.h"
#include "app/PassRun.h"
#include "app/RunDiagnostics.h"
#include "app/TextReport.h"
#include "app/Watch.h"
#include "common/Diagnostics.h"
#include "gvcp/LinkTap.h"

#include <cstdio>
#include <string>

namespace {

const int kUsageError = 2;

int UsageError(const std::string& problem)
{
    fprintf(stderr, "autoipconfig: %s\nTry 'autoipconfig --help'.\n", problem.c_str());
    return kUsageError;
}

// Enumerate, configure, enumerate again until the cameras answer, report. A dry run stops after
// the planner. Exits 0 whatever happened.
int Run(RUN_OPTIONS& options)
{
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
    return 0;
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
    const std::string unusable = FindInterfaceProblem(options.vecInterface);
    if (!unusable.empty()) {
        return UsageError(unusable);
    }
    // Without the right no probe goes out, and an unprobed candidate must not pass for free.
    if (options.bCheckConflicts && !GenICam::Client::HasRawNetworkRight()) {
        fprintf(stderr, "autoipconfig: --check-conflicts needs the raw-network right (CAP_NET_RAW)\n");
        return 1;
    }
    GenICam::Client::Helper::SetDiagnostics(options.bVerbose);
    return options.bWatch ? RunWatch(options) : Run(options);
}
