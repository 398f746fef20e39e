#include "app/JsonReport.h"

#include "app/Driver.h"
#include "app/Options.h"
#include "common/ErrorCodes.h"
#include "common/Helper.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/TL.h"
#include "gvcp/GvcpProtocol.h"
#include "ipconfig/IPConfigAllDevices.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::CInterface;
using GenICam::Client::CTL;
namespace Helper = GenICam::Client::Helper;
using Json = nlohmann::ordered_json;

namespace {

// A camera as the first enumeration saw it: one that never answers again is still reported.
struct FIRST_SEEN {
    std::string strInterface;
    std::string strDevID;
    Json facts;
};
std::vector<FIRST_SEEN> g_vecFirstSeen;

const char kBadAck[] = "ACK error!";

Json CameraFacts(CDevice* device)
{
    return {
        {"model", device->GetModelName()},
        {"serial", device->GetSN()},
        {"mac", device->GetStrMac()},
        {"ip", device->GetStrIP()},
        {"mask", DottedText(device->GetIntSubNetMask())},
    };
}

const FIRST_SEEN* FindFirstSeen(const std::string& id)
{
    for (const FIRST_SEEN& seen : g_vecFirstSeen) {
        if (seen.strDevID == id) {
            return &seen;
        }
    }
    return nullptr;
}

std::string ForceIPFailure(const IP_ASSIGNMENT& assignment)
{
    if (assignment.nStatus == GenICam::Client::GVCP_STATUS_NOT_IMPLEMENTED) {
        return "command not implemented (status 0x8001)";
    }
    if (assignment.nStatus != 0) {
        return Helper::MsgComposer("refused (status 0x%04x)", static_cast<unsigned int>(assignment.nStatus));
    }
    // An exception's text starts with its code.
    const std::string timeout = Helper::MsgComposer("{%d}", GenICam::Client::GC_ERR_TIMEOUT);
    if (assignment.strError.compare(0, timeout.size(), timeout) == 0) {
        return "no answer";
    }
    if (assignment.strError.find(kBadAck) != std::string::npos) {
        return "no valid acknowledge";
    }
    return "force-IP not sent";
}

// Why a camera is not where the planner meant it to be, or not reachable; empty when nothing is amiss.
std::string Reason(CDevice* device, CInterface* itf, const IP_ASSIGNMENT* assignment)
{
    const std::string id = device->GetDevID();
    if (assignment != nullptr) {
        switch (assignment->nOutcome) {
        case IP_OUTCOME_PLANNED:
            return "dry run: nothing sent";
        case IP_OUTCOME_FAILED:
            return ForceIPFailure(*assignment);
        default:
            return device->GetIntIP() == assignment->nNewIP ? "" : "acknowledged, but not at the new address";
        }
    }
    if (FindRecord(CIPConfigAllDevices::GetUnassigned(), id) != nullptr) {
        return "no free address for every camera of this interface";
    }
    if (device->IsSameSubnetWithIF()) {
        return "";
    }
    const unsigned int ip = itf->GetInterfaceIP();
    if (ip == 0) {
        return "interface has no address";
    }
    if (!IsIPValid(ip)) {
        return "interface is link-local";
    }
    const FIRST_SEEN* seen = FindFirstSeen(id);
    if (seen == nullptr) {
        return "not seen before the configuration";
    }
    return seen->facts["ip"] == device->GetStrIP() ? "interface could not be read" : "changed its address during the run";
}

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
    Json camera = CameraFacts(device);
    if (planned) {
        camera["ip"] = DottedText(assignment->nNewIP);
        camera["mask"] = itf->GetInterfaceStrSubNet();
    }
    camera["available"] = device->IsSameSubnetWithIF();
    camera["action"] = action;
    if (assignment != nullptr) {
        camera["previous_ip"] = DottedText(assignment->nOldIP);
    }
    const std::string reason = Reason(device, itf, assignment);
    if (!reason.empty()) {
        camera["reason"] = reason;
    }
    if (!planned && assignment != nullptr && CIPConfigAllDevices::IsStandard()) {
        camera["persistent"] = assignment->bPersistent;
    }
    return camera;
}

// Gone since the first enumeration: where it was sent, if anywhere, is where the operator looks.
Json LostJson(const FIRST_SEEN& seen, CInterface* itf)
{
    const IP_ASSIGNMENT* assignment = FindAssignment(seen.strDevID);
    const bool sent = assignment != nullptr && assignment->nOutcome == IP_OUTCOME_SENT;
    Json camera = seen.facts;
    if (sent) {
        camera["ip"] = DottedText(assignment->nNewIP);
        camera["mask"] = itf->GetInterfaceStrSubNet();
    }
    camera["available"] = false;
    camera["action"] = "lost";
    camera["previous_ip"] = seen.facts["ip"];
    camera["reason"] = sent ? "no answer at the new address" : "no answer since the first discovery";
    return camera;
}

bool IsPresent(const std::string& id, const std::vector<CDevice*>& devices)
{
    for (CDevice* device : devices) {
        if (device->GetDevID() == id) {
            return true;
        }
    }
    return false;
}

// Lost cameras join the others in the device list's order, by MAC text.
Json InterfaceJson(CInterface* itf)
{
    std::vector<Json> cameras;
    const std::vector<CDevice*> devices = *itf->GetDeviceList();
    for (CDevice* device : devices) {
        cameras.push_back(CameraJson(device, itf));
    }
    const std::string name = itf->GetInterfaceDescription();
    for (const FIRST_SEEN& seen : g_vecFirstSeen) {
        if (seen.strInterface == name && !IsPresent(seen.strDevID, devices)) {
            cameras.push_back(LostJson(seen, itf));
        }
    }
    std::stable_sort(cameras.begin(), cameras.end(),
                     [](const Json& a, const Json& b) { return a["mac"] < b["mac"]; });
    return {
        {"name", name},
        {"mac", itf->GetStrMAC()},
        {"ip", itf->GetInterfaceStrIP()},
        {"mask", itf->GetInterfaceStrSubNet()},
        {"usable", IsIPValid(itf->GetInterfaceIP())},
        {"cameras", cameras},
    };
}

std::vector<CInterface*> Interfaces()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    CTL* tl = manager == nullptr ? nullptr : manager->GetTLObject();
    return tl == nullptr ? std::vector<CInterface*>() : *tl->GetCurInterfaceList();
}

Json InterfacesJson()
{
    Json interfaces = Json::array();
    for (CInterface* itf : Interfaces()) {
        interfaces.push_back(InterfaceJson(itf));
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

void RememberFirstCameras()
{
    g_vecFirstSeen.clear();
    for (CInterface* itf : Interfaces()) {
        const std::vector<CDevice*> devices = *itf->GetDeviceList();
        for (CDevice* device : devices) {
            g_vecFirstSeen.push_back(FIRST_SEEN{itf->GetInterfaceDescription(), device->GetDevID(), CameraFacts(device)});
        }
    }
}

void PrintJsonReport(const char* result, bool withInterfaces,
                     const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts)
{
    const Json report = {
        {"version", kReportVersion},
        {"result", result},
        {"dry_run", CIPConfigAllDevices::IsDryRun()},
        {"interfaces", withInterfaces ? InterfacesJson() : Json::array()},
        {"skipped_interfaces", SkippedJson(verdicts)},
    };
    // Camera texts are whatever bytes came off the wire: invalid UTF-8 becomes U+FFFD.
    printf("%s\n", report.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}
