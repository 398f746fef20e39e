#include "app/JsonReport.h"

#include "app/Driver.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/TL.h"
#include "ipconfig/IPConfigAllDevices.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::CInterface;
using GenICam::Client::CTL;
using Json = nlohmann::ordered_json;

namespace {

// A planned camera shows the address and mask it would get, and where it is now as previous_ip.
Json CameraJson(CDevice* device, CInterface* itf)
{
    const IP_ASSIGNMENT* assignment = FindAssignment(device);
    const bool planned = assignment != nullptr && CIPConfigAllDevices::IsDryRun();
    const char* action = "kept";
    if (planned) {
        action = "planned";
    } else if (assignment != nullptr) {
        action = device->GetIntIP() == assignment->nNewIP ? "moved" : "failed";
    }
    Json camera = {
        {"model", device->GetModelName()},
        {"serial", device->GetSN()},
        {"mac", device->GetStrMac()},
        {"ip", planned ? DottedText(assignment->nNewIP) : device->GetStrIP()},
        {"mask", planned ? itf->GetInterfaceStrSubNet() : DottedText(device->GetIntSubNetMask())},
        {"available", device->IsSameSubnetWithIF()},
        {"action", action},
    };
    if (assignment != nullptr) {
        camera["previous_ip"] = DottedText(assignment->nOldIP);
    }
    return camera;
}

Json InterfaceJson(CInterface* itf)
{
    Json cameras = Json::array();
    const std::vector<CDevice*> devices = *itf->GetDeviceList();
    for (CDevice* device : devices) {
        cameras.push_back(CameraJson(device, itf));
    }
    return {
        {"name", itf->GetInterfaceDescription()},
        {"mac", itf->GetStrMAC()},
        {"ip", itf->GetInterfaceStrIP()},
        {"mask", itf->GetInterfaceStrSubNet()},
        {"usable", IsIPValid(itf->GetInterfaceIP())},
        {"cameras", cameras},
    };
}

Json InterfacesJson()
{
    Json interfaces = Json::array();
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    CTL* tl = manager == nullptr ? nullptr : manager->GetTLObject();
    if (tl != nullptr) {
        const std::vector<CInterface*> list = *tl->GetCurInterfaceList();
        for (CInterface* itf : list) {
            interfaces.push_back(InterfaceJson(itf));
        }
    }
    return interfaces;
}

Json SkippedJson(const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts)
{
    Json skipped = Json::array();
    for (const GenICam::Client::INTERFACE_VERDICT& verdict : verdicts) {
        if (!verdict.bUsed) {
            skipped.push_back({{"name", verdict.stEntry.strName}, {"reason", verdict.strReason}});
        }
    }
    return skipped;
}

} // namespace

void PrintJsonReport(const char* result, bool withInterfaces,
                     const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts)
{
    const Json report = {
        {"version", "1.0.1906.9272"},
        {"result", result},
        {"dry_run", CIPConfigAllDevices::IsDryRun()},
        {"interfaces", withInterfaces ? InterfacesJson() : Json::array()},
        {"skipped_interfaces", SkippedJson(verdicts)},
    };
    // Camera texts are whatever bytes came off the wire: invalid UTF-8 becomes U+FFFD.
    printf("%s\n", report.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}
