#include "app/Driver.h"
#include "app/JsonReport.h"
#include "app/Options.h"
#include "app/RunDiagnostics.h"
#include "common/Diagnostics.h"
#include "gvcp/LinkTap.h"
#include "ipconfig/ConfigPass.h"

#include <cstdio>
#include <pthread.h>
#include <string>

namespace {

const int kUsageError = 2;

// How a run ends: the text run's last line and the JSON report's result.
struct RUN_RESULT {
    const char* szText;
    const char* szJson;
};
const RUN_RESULT kInitFailed = {"Init Module Failed! Please Retry.\n", "init failed"};
const RUN_RESULT kEnumFailed = {"Enum Device Failed! Please Retry.\n", "enumeration failed"};
const RUN_RESULT kUnexpected = {"Unexpected Error! Please Retry.\n", "unexpected error"};
const RUN_RESULT kFinished = {"Auto IP Configure Finished!\n", "finished"};

int UsageError(const std::string& problem)
{
    fprintf(stderr, "autoipconfig: %s\nTry 'autoipconfig --help'.\n", problem.c_str());
    return kUsageError;
}

// Waits on its own thread for the moved cameras to answer again; false if it cannot start.
bool Confirm(const CConfigPass& pass, bool showProgress)
{
    CONFIRM_CONTEXT context{&pass, showProgress};
    pthread_t reupdate;
    if (pthread_create(&reupdate, nullptr, OnThreadReUpdateDeviceList, &context) != 0) {
        return false;
    }
    pthread_join(reupdate, nullptr);
    return true;
}

// Enumerate, configure, enumerate again until the cameras answer, report. A dry run stops after
// the planner. Exits 0 whatever happened.
int Run(RUN_OPTIONS& options)
{
    const RUN_RESULT* result = &kFinished;
    PASS_OPTIONS passOptions;
    passOptions.bDryRun = options.bDryRun;
    passOptions.bStandard = options.bStandard;
    passOptions.bCheckConflicts = options.bCheckConflicts;
    passOptions.vecInterface = options.vecInterface;
    CConfigPass pass(passOptions);
    if (!options.bJson) {
        printf("%s", BannerText().c_str());
    }
    std::vector<GenICam::Client::INTERFACE_VERDICT> verdicts;
    if (options.bVerbose || options.bJson) {
        verdicts = GenICam::Client::SurveyInterfaces(options.vecInterface);
        DiagRawNetworkRight();
        DiagInterfaces(verdicts);
    }
    if (!InitDeviceModule()) {
        result = &kInitFailed;
    } else {
        SelectInterfaces(options.vecInterface);
        if (!UpdateDeviceList()) {
            result = &kEnumFailed;
        } else {
            pass.RecordSeen(SeeDeviceModel());
            ConfigAllDevices(pass);
            if (!options.bDryRun && !Confirm(pass, !options.bJson)) {
                result = &kUnexpected;
            } else {
                pass.Settle(SeeDeviceModel());
                DiagOutcomes(pass);
                if (!options.bJson) {
                    PrintInterfaceInfo(pass);
                }
            }
        }
    }
    if (options.bJson) {
        PrintJsonReport(result->szJson, result == &kFinished, verdicts, pass);
    }
    UnInitDeviceModule();
    // Printed after the report on purpose: it is the last line of output.
    if (!options.bJson) {
        printf("%s", result->szText);
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
    return Run(options);
}
