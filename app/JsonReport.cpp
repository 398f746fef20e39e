#include "app/JsonReport.h"

#include "app/Options.h"
#include "common/ipcalc.h"
#include "ipconfig/ConfigPass.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using Json = nlohmann::ordered_json;

namespace {

// A planned camera shows the address it would get, a gone one the address it was sent; both with the
// interface's mask, and where the camera was as previous_ip.
Json CameraJson(const CAMERA_REPORT& report, const SEEN_INTERFACE& itf, bool standard)
{
    const SEEN_CAMERA& camera = report.stCamera;
    const CAMERA_OUTCOME& outcome = report.stOutcome;
    const bool planned = outcome.nAction == CAMERA_PLANNED;
    Json json = {
        {"model", camera.strModel},     {"serial", camera.strSerial},       {"mac", camera.stId.strText},
        {"ip", DottedText(camera.nIP)}, {"mask", DottedText(camera.nMask)},
    };
    if (planned || (report.bGone && outcome.nNewIP != 0)) {
        json["ip"] = DottedText(outcome.nNewIP);
        json["mask"] = itf.strMask;
    }
    json["available"] = camera.bAvailable;
    json["action"] = ActionText(outcome.nAction);
    if (outcome.nNewIP != 0 || report.bGone) {
        json["previous_ip"] = DottedText(outcome.nOldIP);
    }
    const std::string reason = ReasonText(outcome);
    if (!reason.empty()) {
        json["reason"] = reason;
    }
    if (!planned && !report.bGone && outcome.nNewIP != 0 && standard) {
        json["persistent"] = outcome.IsPersistent();
    }
    return json;
}

Json InterfacesJson(const std::vector<INTERFACE_REPORT>& reports, bool standard)
{
    Json interfaces = Json::array();
    for (const INTERFACE_REPORT& report : reports) {
        const SEEN_INTERFACE& itf = report.stInterface;
        Json cameras = Json::array();
        for (const CAMERA_REPORT& camera : report.vecCamera) {
            cameras.push_back(CameraJson(camera, itf, standard));
        }
        interfaces.push_back({
            {"name", itf.stId.strLabel},
            {"mac", itf.strMAC},
            {"ip", itf.strIP},
            {"mask", itf.strMask},
            {"usable", IsIPValid(itf.nIP)},
            {"cameras", cameras},
        });
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

void PrintJsonReport(const PASS_RESULT& result, const PASS_OPTIONS& options,
                     const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts)
{
    const bool finished = result.pResult == &kFinished;
    const Json report = {
        {"version", kReportVersion},
        {"result", result.pResult->szJson},
        {"dry_run", options.bDryRun},
        {"interfaces", finished ? InterfacesJson(result.vecReport, options.bStandard) : Json::array()},
        {"skipped_interfaces", SkippedJson(verdicts)},
    };
    // Camera texts are whatever bytes came off the wire: invalid UTF-8 becomes U+FFFD.
    printf("%s\n", report.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}
