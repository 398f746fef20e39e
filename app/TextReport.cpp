#include "app/TextReport.h"

#include "common/ipcalc.h"
#include "ipconfig/IPConfigAllDevices.h"

#include <cstdio>
#include <string>
#include <vector>

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
std::string CameraEnding(const SEEN_CAMERA& camera, const PASS_RESULT& result, const PASS_OPTIONS& options)
{
    const CAMERA_OUTCOME* outcome = result.FindOutcome(camera.strDevID);
    const bool assigned = outcome != nullptr && outcome->nNewIP != 0;
    if (assigned && options.bDryRun) {
        return " would get " + DottedText(outcome->nNewIP);
    }
    if (!camera.bAvailable) {
        return " not available!";
    }
    // Only a standard FORCEIP whose address the device did not store is lost when it restarts.
    const bool untilRestart =
        options.bStandard && assigned && camera.nIP == outcome->nNewIP && !outcome->IsPersistent();
    return untilRestart ? " available! (until restart)" : " available!";
}

} // namespace

void PrintTextReport(const PASS_RESULT& result, const PASS_OPTIONS& options)
{
    const SEEN_MODEL& end = result.stEnd;
    if (end.vecInterface.empty()) {
        printf("The interface's IP is not configured, please configure!\n");
        return;
    }
    std::vector<std::string> noAddress;
    std::vector<std::string> linkLocal;
    for (const SEEN_INTERFACE& itf : end.vecInterface) {
        const char* ending = "\n";
        if (itf.nIP == 0) {
            ending = " invalid IP!\n";
            noAddress.push_back(itf.stId.strLabel);
        } else if (!IsIPValid(itf.nIP)) {  // the rest of what the planner cannot use: link-local
            ending = " invalid IP!\n";
            linkLocal.push_back(itf.stId.strLabel);
        }
        printf("GigeE Interface:%s%s", itf.strDisplayName.c_str(), ending);
        for (const SEEN_CAMERA& camera : end.vecCamera) {
            if (camera.strInterface == itf.stId.strLabel) {
                printf("    Camera:%s(%s[%s][%s])%s\n", camera.strModel.c_str(), DottedText(camera.nIP).c_str(),
                       camera.stId.strText.c_str(), camera.strSerial.c_str(), CameraEnding(camera, result, options).c_str());
            }
        }
    }
    PrintSummary(noAddress, " is invalid IP, please modify the IP manually!\n");
    PrintSummary(linkLocal,
                 " is invalid IP, the tool does not support configuring device IP between 169.254.0.0~169.254.255.255!\n");
}
