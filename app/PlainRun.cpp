#include "app/PlainRun.h"

#include "app/Driver.h"
#include "app/RunDiagnostics.h"
#include "common/StopToken.h"

#include <pthread.h>

const RUN_RESULT kInitFailed = {"Init Module Failed! Please Retry.\n", "init failed"};
const RUN_RESULT kEnumFailed = {"Enum Device Failed! Please Retry.\n", "enumeration failed"};
const RUN_RESULT kUnexpected = {"Unexpected Error! Please Retry.\n", "unexpected error"};
const RUN_RESULT kFinished = {"Auto IP Configure Finished!\n", "finished"};
const RUN_RESULT kStopped = {"", "stopped"};

namespace {

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

} // namespace

PASS_OPTIONS PassOptionsOf(const RUN_OPTIONS& options)
{
    PASS_OPTIONS pass;
    pass.bDryRun = options.bDryRun;
    pass.bStandard = options.bStandard;
    pass.bCheckConflicts = options.bCheckConflicts;
    pass.vecInterface = options.vecInterface;
    pass.pPlan = options.pPlan;
    return pass;
}

// A dry run stops after the planner.
const RUN_RESULT* RunSequence(const RUN_OPTIONS& options, CConfigPass& pass, SEEN_MODEL* first)
{
    if (!InitDeviceModule()) {
        return &kInitFailed;
    }
    SelectInterfaces(options.vecInterface);
    if (!UpdateDeviceList()) {
        return &kEnumFailed;
    }
    *first = SeeDeviceModel();
    pass.RecordSeen(*first);
    ConfigAllDevices(pass);
    if (!options.bDryRun && !Confirm(pass, !options.bJson)) {
        return &kUnexpected;
    }
    // Only a watch run is stopped: outcomes cut short by the stop are not reported as if they were final.
    if (GenICam::Client::ProcessStopToken().IsRequested()) {
        return &kStopped;
    }
    pass.Settle(SeeDeviceModel());
    DiagOutcomes(pass);
    if (!options.bJson) {
        PrintInterfaceInfo(pass);
    }
    return &kFinished;
}
