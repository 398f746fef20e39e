#include "app/PassRun.h"

#include "app/RunDiagnostics.h"
#include "app/UpdateDevThread.h"
#include "app/cconfigalldevicesthread.h"
#include "common/Diagnostics.h"
#include "common/StopToken.h"
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/TL.h"
#include "ipconfig/IPConfigAllDevices.h"

#include <pthread.h>

using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::CInterface;
using GenICam::Client::CTL;

const RUN_RESULT kInitFailed = {"Init Module Failed! Please Retry.\n", "init failed"};
const RUN_RESULT kEnumFailed = {"Enum Device Failed! Please Retry.\n", "enumeration failed"};
const RUN_RESULT kUnexpected = {"Unexpected Error! Please Retry.\n", "unexpected error"};
const RUN_RESULT kFinished = {"Auto IP Configure Finished!\n", "finished"};
const RUN_RESULT kStopped = {"", "stopped"};

namespace {

// The device model's side of a pass.
bool InitDeviceModule()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    return manager != nullptr && manager->InitEnvironment() == 0;
}

void UnInitDeviceModule()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (manager != nullptr) {
        manager->UnInitEnvironment();
        CDeviceManager::ReleaseInstance();
    }
}

void ConfigAllDevices(CConfigPass& pass)
{
    CIPConfigAllDevices::Clear();
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (manager == nullptr) {
        return;
    }
    std::vector<CDevice*> devices;
    manager->GetAllDevice(&devices);
    if (devices.empty()) {
        return;
    }
    CConfigAllDevicesThread config(&pass);
    config.ConfigAllDevicesThread();
}

// Only these interfaces (kernel name or address label) take part; none given: all.
void SelectInterfaces(const std::vector<std::string>& names)
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (manager != nullptr && manager->GetTLObject() != nullptr) {
        manager->GetTLObject()->SetInterfaceFilter(names);
    }
}

SEEN_MODEL SeeDeviceModel()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    CTL* tl = manager == nullptr ? nullptr : manager->GetTLObject();
    return SeeInterfaces(tl == nullptr ? std::vector<CInterface*>() : *tl->GetCurInterfaceList());
}

std::vector<std::string> LinksOf(const PASS_SCOPE& scope)
{
    return scope.bEveryInterface ? std::vector<std::string>() : scope.vecInterfaces;
}

// False with the device model's reason when the enumeration failed.
bool Discover(const PASS_SCOPE& scope, std::string* error)
{
    CUpdateDevThread once(CDeviceManager::GetInstanse(), UPDATE_DEV_ONCE, std::vector<std::string>());
    once.SetLinks(LinksOf(scope));
    once.run();
    *error = once.GetLastError();
    return once.IsUpdateSuccessful();
}

struct PLAIN_CONFIRM {
    const CConfigPass* pPass;
    bool bShowProgress;
};

// Every camera of the first discovery must answer again, the moved ones named with their new address.
void* RunPlainConfirm(void* context)
{
    const PLAIN_CONFIRM* confirm = static_cast<const PLAIN_CONFIRM*>(context);
    std::vector<CDevice*> devices;
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    manager->GetAllDevice(&devices);
    std::vector<std::string> ids;
    std::vector<std::string> labels;
    std::vector<unsigned int> sent;
    for (CDevice* device : devices) {
        ids.push_back(device->GetDevID());
        if (GenICam::Client::Helper::IsDiagnostics()) {
            labels.push_back(device->GetIF()->GetInterfaceDescription() + ": camera " + device->GetStrMac());
            const CAMERA_OUTCOME* outcome = confirm->pPass->FindOutcome(ids.back());
            sent.push_back(outcome == nullptr ? 0 : outcome->nNewIP);
        }
    }
    CUpdateDevThread update(manager, UPDATE_DEV_UNTIL_FOUND, ids);
    if (GenICam::Client::Helper::IsDiagnostics()) {
        update.SetDevLabels(labels, sent);
    }
    update.ShowProgress(confirm->bShowProgress);
    update.run();
    return nullptr;
}

// The re-enumeration runs on its own thread; false if it cannot start.
bool ConfirmPlain(const CConfigPass& pass, bool showProgress)
{
    PLAIN_CONFIRM context{&pass, showProgress};
    pthread_t reupdate;
    if (pthread_create(&reupdate, nullptr, RunPlainConfirm, &context) != 0) {
        return false;
    }
    pthread_join(reupdate, nullptr);
    return true;
}

// Only the cameras sent an address hold the pass, and only until they answer there.
void ConfirmQuiet(const CConfigPass& pass, const PASS_SCOPE& scope)
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    const auto answered = [&] {
        for (const CAMERA_OUTCOME& outcome : pass.GetOutcomes()) {
            CDevice* device = nullptr;
            if (outcome.nAction == CAMERA_SENT &&
                !(manager->GetDevObjByID(outcome.strDevID, &device) && device->GetIntIP() == outcome.nNewIP)) {
                return false;
            }
        }
        return true;
    };
    if (answered()) {
        return;
    }
    CUpdateDevThread update(manager, UPDATE_DEV_UNTIL_FOUND, std::vector<std::string>());
    update.SetLinks(LinksOf(scope));
    update.SetAnswered(answered);
    update.PauseBefore(true);
    update.ShowProgress(false);
    update.run();
}

} // namespace

const CAMERA_OUTCOME* PASS_RESULT::FindOutcome(const std::string& devID) const
{
    for (const CAMERA_OUTCOME& outcome : vecOutcome) {
        if (outcome.strDevID == devID) {
            return &outcome;
        }
    }
    return nullptr;
}

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

// A dry run stops after the planner. A stop cuts the pass short: its outcomes are not final.
PASS_RESULT RunPass(const PASS_REQUEST& request)
{
    PASS_RESULT result;
    if (request.bFirst) {
        if (!InitDeviceModule()) {
            result.pResult = &kInitFailed;
            return result;
        }
        SelectInterfaces(request.stOptions.vecInterface);
    }
    std::string error;
    if (!Discover(request.stScope, &error)) {
        if (request.bFirst) {
            result.pResult = &kEnumFailed;
            return result;
        }
        result.strDiscoveryError = error;
    }
    result.stFirst = SeeDeviceModel();
    if (request.bFirst) {
        GenICam::Client::Helper::Diag("first enumeration: %zu cameras", result.stFirst.vecCamera.size());
    }
    PASS_OPTIONS options = request.stOptions;
    if (GenICam::Client::ProcessStopToken().IsRequested()) {
        result.pResult = &kStopped;
        return result;
    }
    if (request.fnChoose && !request.fnChoose(result, &options)) {
        return result;
    }
    CConfigPass pass(options);
    pass.RecordSeen(result.stFirst);
    ConfigAllDevices(pass);
    if (request.nConfirm == CONFIRM_QUIET) {
        ConfirmQuiet(pass, request.stScope);
    } else if (!options.bDryRun && !ConfirmPlain(pass, request.bShowProgress)) {
        result.pResult = &kUnexpected;
        return result;
    }
    if (GenICam::Client::ProcessStopToken().IsRequested()) {
        result.pResult = &kStopped;
        return result;
    }
    result.stEnd = SeeDeviceModel();
    result.vecReport = pass.Settle(result.stEnd);
    result.vecOutcome = pass.GetOutcomes();
    result.bWorked = true;
    DiagOutcomes(result.vecReport);
    return result;
}

void EndPasses()
{
    UnInitDeviceModule();
}

void ReuseKnownCameras()
{
    CDeviceManager::GetInstanse()->GetTLObject()->SetReuseKnownStatus(true);
}
