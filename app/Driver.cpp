#include "app/Driver.h"

#include "app/UpdateDevThread.h"
#include "app/cconfigalldevicesthread.h"
#include "common/Diagnostics.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/TL.h"
#include "ipconfig/ConfigPass.h"
#include "ipconfig/IPConfigAllDevices.h"

#include <cstdio>
#include <new>
#include <string>
#include <vector>

using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::CInterface;
using GenICam::Client::CTL;

namespace {

std::string Join(const std::vector<std::string>& names)
{
    std::string joined;
    for (const std::string& name : names) {
        joined += (joined.empty() ? "" : ",") + name;
    }
    return joined;
}

void PrintSummary(const std::vector<std::string>& names, const char* ending)
{
    if (!names.empty()) {
        printf("%s%s", Join(names).c_str(), ending);
    }
}

// A dry run shows the plan where the run would show whether the camera is reachable.
std::string CameraEnding(const CDevice* device, const CConfigPass& pass)
{
    const CAMERA_OUTCOME* outcome = pass.FindOutcome(device->GetDevID());
    const bool assigned = outcome != nullptr && outcome->nNewIP != 0;
    if (assigned && pass.GetOptions().bDryRun) {
        return " would get " + DottedText(outcome->nNewIP);
    }
    if (!device->IsSameSubnetWithIF()) {
        return " not available!";
    }
    // Only a standard FORCEIP whose address the device did not store is lost when it restarts.
    const bool untilRestart = pass.GetOptions().bStandard && assigned && device->GetIntIP() == outcome->nNewIP &&
                              !outcome->IsPersistent();
    return untilRestart ? " available! (until restart)" : " available!";
}

} // namespace

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

bool UpdateDeviceList()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (manager == nullptr) {
        return false;
    }
    CUpdateDevThread* update = new (std::nothrow) CUpdateDevThread(manager, UPDATE_DEV_ONCE, std::vector<std::string>());
    if (update == nullptr) {
        return false;
    }
    update->run();
    const bool ok = update->IsUpdateSuccessful();
    delete update;
    return ok;
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

// The IDs are taken before the first pass: they name the devices that must answer again.
void* OnThreadReUpdateDeviceList(void* context)
{
    const CONFIRM_CONTEXT* confirm = static_cast<const CONFIRM_CONTEXT*>(context);
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    std::vector<CDevice*> devices;
    manager->GetAllDevice(&devices);
    std::vector<std::string> ids;
    std::vector<std::string> labels;
    std::vector<unsigned int> sent;
    for (CDevice* device : devices) {
        ids.push_back(device->GetDevID());
        if (GenICam::Client::Helper::IsDiagnostics()) {
            labels.push_back(device->GetIF()->GetInterfaceDescription() + ": camera " + device->GetStrMac());
            const CAMERA_OUTCOME* outcome =
                confirm == nullptr || confirm->pPass == nullptr ? nullptr : confirm->pPass->FindOutcome(ids.back());
            sent.push_back(outcome == nullptr ? 0 : outcome->nNewIP);
        }
    }
    CUpdateDevThread* update = new (std::nothrow) CUpdateDevThread(manager, UPDATE_DEV_UNTIL_FOUND, ids);
    if (update != nullptr) {
        update->SetDevLabels(labels, sent);
        update->ShowProgress(confirm == nullptr || confirm->bShowProgress);
        update->run();
        delete update;
    }
    return nullptr;
}

void PrintInterfaceInfo(const CConfigPass& pass)
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    CTL* tl = manager == nullptr ? nullptr : manager->GetTLObject();
    if (tl == nullptr) {
        return;
    }
    const std::vector<CInterface*> interfaces = *tl->GetCurInterfaceList();
    if (interfaces.empty()) {
        printf("The interface's IP is not configured, please configure!\n");
        return;
    }
    std::vector<std::string> noAddress;
    std::vector<std::string> linkLocal;
    for (CInterface* itf : interfaces) {
        const unsigned int ip = itf->GetInterfaceIP();
        const char* ending = "\n";
        if (ip == 0) {
            ending = " invalid IP!\n";
            noAddress.push_back(itf->GetInterfaceDescription());
        } else if (!IsIPValid(ip)) {  // the rest of what the planner cannot use: link-local
            ending = " invalid IP!\n";
            linkLocal.push_back(itf->GetInterfaceDescription());
        }
        printf("GigeE Interface:%s%s", itf->GetDisplayName().c_str(), ending);
        PrintDeviceInfo(itf, pass);
    }
    PrintSummary(noAddress, " is invalid IP, please modify the IP manually!\n");
    PrintSummary(linkLocal,
                 " is invalid IP, the tool does not support configuring device IP between 169.254.0.0~169.254.255.255!\n");
}

void PrintDeviceInfo(CInterface* itf, const CConfigPass& pass)
{
    if (itf == nullptr || CDeviceManager::GetInstanse() == nullptr) {
        return;
    }
    const std::vector<CDevice*> devices = *itf->GetDeviceList();
    for (CDevice* device : devices) {
        printf("    Camera:%s(%s[%s][%s])%s\n", device->GetModelName().c_str(), device->GetStrIP().c_str(),
               device->GetStrMac().c_str(), device->GetSN().c_str(), CameraEnding(device, pass).c_str());
    }
}

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
