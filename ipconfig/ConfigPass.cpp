#include "ipconfig/ConfigPass.h"

#include "common/Exception.h"
#include "common/Helper.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/Interface.h"
#include "gvcp/GvcpProtocol.h"

#include <algorithm>
#include <system_error>

using GenICam::Client::CAppException;
using GenICam::Client::CDevice;
using GenICam::Client::CInterface;
using GenICam::Client::GVCP_RESULT;
using GenICam::Client::GVCP_RESULT_KIND;

namespace {

const char* NoteText(CAMERA_NOTE note)
{
    switch (note) {
    case CAMERA_NOTE_INTERFACE_NO_ADDRESS:
        return "interface has no address";
    case CAMERA_NOTE_INTERFACE_LINK_LOCAL:
        return "interface is link-local";
    case CAMERA_NOTE_INTERFACE_UNREADABLE:
        return "interface could not be read";
    case CAMERA_NOTE_NOT_SEEN_BEFORE:
        return "not seen before the configuration";
    case CAMERA_NOTE_CHANGED_ADDRESS:
        return "changed its address during the run";
    case CAMERA_NOTE_NOT_AT_NEW_ADDRESS:
        return "acknowledged, but not at the new address";
    default:
        return "";
    }
}

// The command never left this host, so the camera cannot have taken the address.
bool NeverSent(GVCP_RESULT_KIND kind)
{
    return kind == GenICam::Client::GVCP_RESULT_NOT_RUN || kind == GenICam::Client::GVCP_RESULT_SEND_FAILED ||
           kind == GenICam::Client::GVCP_RESULT_SOCKET_FAILED || kind == GenICam::Client::GVCP_RESULT_STOPPED;
}

bool Refused(GVCP_RESULT_KIND kind)
{
    return kind == GenICam::Client::GVCP_RESULT_REFUSED || kind == GenICam::Client::GVCP_RESULT_NOT_SUPPORTED;
}

bool HasCamera(const std::vector<CAMERA_REPORT>& cameras, const std::string& devID)
{
    return std::any_of(cameras.begin(), cameras.end(),
                       [&](const CAMERA_REPORT& camera) { return camera.stCamera.strDevID == devID; });
}

void ReadInterface(CInterface* itf, SEEN_INTERFACE* seen)
{
    try {
        seen->stId = GenICam::Client::InterfaceIdOf(itf->GetInterfaceDescription());
        seen->strDisplayName = itf->GetDisplayName();
        seen->strMAC = itf->GetStrMAC();
        seen->strIP = itf->GetInterfaceStrIP();
        seen->strMask = itf->GetInterfaceStrSubNet();
        seen->nIP = itf->GetInterfaceIP();
        seen->nMask = itf->GetInterfaceSubnetMask();
    } catch (CAppException&) {
        // what could be read stands; the rest stays empty
    }
}

} // namespace

CConfigPass::CConfigPass(const PASS_OPTIONS& options) : m_stOptions(options) {}

const PASS_OPTIONS& CConfigPass::GetOptions() const
{
    return m_stOptions;
}

bool CConfigPass::MaySelect(const std::string& mac) const
{
    const std::vector<std::string>& only = m_stOptions.vecOnlyMAC;
    return !m_stOptions.bOnlyListed || std::find(only.begin(), only.end(), mac) != only.end();
}

void CConfigPass::RecordSeen(const SEEN_MODEL& model)
{
    for (const SEEN_INTERFACE& itf : model.vecInterface) {
        const auto same = [&](const SEEN_INTERFACE& known) { return known.stId.strLabel == itf.stId.strLabel; };
        if (std::none_of(m_stSeen.vecInterface.begin(), m_stSeen.vecInterface.end(), same)) {
            m_stSeen.vecInterface.push_back(itf);
        }
    }
    for (const SEEN_CAMERA& camera : model.vecCamera) {
        const auto same = [&](const SEEN_CAMERA& known) {
            return known.strDevID == camera.strDevID && known.strInterface == camera.strInterface;
        };
        if (std::none_of(m_stSeen.vecCamera.begin(), m_stSeen.vecCamera.end(), same)) {
            m_stSeen.vecCamera.push_back(camera);
        }
    }
}

void CConfigPass::RecordOutcome(const CAMERA_OUTCOME& outcome)
{
    std::lock_guard<std::mutex> lock(m_OutcomeLock);
    m_vecOutcome.push_back(outcome);
}

const CAMERA_OUTCOME* CConfigPass::FindOutcome(const std::string& devID) const
{
    for (const CAMERA_OUTCOME& outcome : m_vecOutcome) {
        if (outcome.strDevID == devID) {
            return &outcome;
        }
    }
    return nullptr;
}

const std::vector<CAMERA_OUTCOME>& CConfigPass::GetOutcomes() const
{
    return m_vecOutcome;
}

std::unique_lock<std::mutex> CConfigPass::LockUsed()
{
    return std::unique_lock<std::mutex>(m_UsedLock);
}

void CConfigPass::NoteHolder(unsigned int ip, const std::string& who)
{
    m_mapUsedBy.emplace(ip, who);
}

std::string CConfigPass::GetHolder(unsigned int ip) const
{
    const auto holder = m_mapUsedBy.find(ip);
    return holder == m_mapUsedBy.end() ? std::string() : holder->second;
}

const std::vector<INTERFACE_REPORT>& CConfigPass::Settle(const SEEN_MODEL& now)
{
    m_vecReport.clear();
    for (const SEEN_INTERFACE& itf : now.vecInterface) {
        INTERFACE_REPORT report;
        report.stInterface = itf;
        for (const SEEN_CAMERA& camera : now.vecCamera) {
            if (camera.strInterface == itf.stId.strLabel) {
                report.vecCamera.push_back(Judge(camera, itf));
            }
        }
        m_vecReport.push_back(report);
    }
    for (const SEEN_INTERFACE& itf : m_stSeen.vecInterface) {
        const auto same = [&](const INTERFACE_REPORT& known) { return known.stInterface.stId.strLabel == itf.stId.strLabel; };
        if (std::none_of(m_vecReport.begin(), m_vecReport.end(), same)) {
            m_vecReport.push_back(INTERFACE_REPORT{itf, true, {}});
        }
    }
    for (INTERFACE_REPORT& report : m_vecReport) {
        const std::vector<CAMERA_REPORT> present = report.vecCamera;
        for (const SEEN_CAMERA& seen : m_stSeen.vecCamera) {
            if (seen.strInterface == report.stInterface.stId.strLabel && !HasCamera(present, seen.strDevID)) {
                report.vecCamera.push_back(JudgeGone(seen));
            }
        }
        std::stable_sort(report.vecCamera.begin(), report.vecCamera.end(),
                         [](const CAMERA_REPORT& a, const CAMERA_REPORT& b) {
                             return a.stCamera.stId.strText < b.stCamera.stId.strText;
                         });
    }
    RecordSeen(now);
    return m_vecReport;
}

const std::vector<INTERFACE_REPORT>& CConfigPass::GetReport() const
{
    return m_vecReport;
}

// A camera that answers at the address it was sent has moved, whatever became of the acknowledge.
CAMERA_REPORT CConfigPass::Judge(const SEEN_CAMERA& camera, const SEEN_INTERFACE& itf) const
{
    CAMERA_REPORT report{camera, CAMERA_OUTCOME(), false};
    CAMERA_OUTCOME& outcome = report.stOutcome;
    const CAMERA_OUTCOME* planned = FindOutcome(camera.strDevID);
    if (planned != nullptr) {
        outcome = *planned;
    } else {
        outcome.strDevID = camera.strDevID;
        outcome.nOldIP = camera.nIP;
    }
    if (outcome.nAction == CAMERA_SENT || outcome.nAction == CAMERA_FAILED) {
        const bool there = camera.nIP == outcome.nNewIP;
        outcome.nAction = there ? CAMERA_MOVED : CAMERA_FAILED;
        outcome.nNote = !there && outcome.stForceIP.stMove.IsOk() ? CAMERA_NOTE_NOT_AT_NEW_ADDRESS : CAMERA_NOTE_NONE;
    } else if (outcome.nAction == CAMERA_KEPT && !camera.bAvailable && outcome.strPlanNote.empty()) {
        const SEEN_CAMERA* first = FindSeen(camera.strDevID);
        outcome.nNote = itf.nIP == 0            ? CAMERA_NOTE_INTERFACE_NO_ADDRESS
                        : !IsIPValid(itf.nIP)   ? CAMERA_NOTE_INTERFACE_LINK_LOCAL
                        : first == nullptr      ? CAMERA_NOTE_NOT_SEEN_BEFORE
                        : first->nIP == camera.nIP ? CAMERA_NOTE_INTERFACE_UNREADABLE
                                                   : CAMERA_NOTE_CHANGED_ADDRESS;
    }
    return report;
}

// Gone: lost at the address it was sent, unless the force-IP never left the host (failed) or the
// camera refused it (lost where it was).
CAMERA_REPORT CConfigPass::JudgeGone(const SEEN_CAMERA& camera) const
{
    CAMERA_REPORT report{camera, CAMERA_OUTCOME(), true};
    report.stCamera.bAvailable = false;
    CAMERA_OUTCOME& outcome = report.stOutcome;
    const CAMERA_OUTCOME* planned = FindOutcome(camera.strDevID);
    if (planned != nullptr) {
        outcome = *planned;
    }
    outcome.strDevID = camera.strDevID;
    outcome.nOldIP = camera.nIP;
    outcome.nNote = CAMERA_NOTE_NONE;
    const GVCP_RESULT_KIND move = outcome.stForceIP.stMove.nKind;
    const bool tried = outcome.nAction == CAMERA_SENT || outcome.nAction == CAMERA_FAILED;
    if (tried && NeverSent(move)) {
        outcome.nAction = CAMERA_FAILED;
        return report;
    }
    if (!tried || Refused(move)) {
        outcome.nNewIP = 0;
    }
    outcome.nAction = CAMERA_LOST;
    return report;
}

const SEEN_CAMERA* CConfigPass::FindSeen(const std::string& devID) const
{
    for (const SEEN_CAMERA& seen : m_stSeen.vecCamera) {
        if (seen.strDevID == devID) {
            return &seen;
        }
    }
    return nullptr;
}

const char* ActionText(CAMERA_ACTION action)
{
    switch (action) {
    case CAMERA_PLANNED:
        return "planned";
    case CAMERA_MOVED:
        return "moved";
    case CAMERA_SENT:
    case CAMERA_FAILED:
        return "failed";
    case CAMERA_LOST:
        return "lost";
    default:
        return "kept";
    }
}

std::string ReasonText(const CAMERA_OUTCOME& outcome)
{
    if (!outcome.strPlanNote.empty() && (outcome.nAction == CAMERA_KEPT || outcome.nAction == CAMERA_MOVED)) {
        return outcome.strPlanNote;
    }
    if (!outcome.strPlanNote.empty() && outcome.nAction == CAMERA_PLANNED) {
        return outcome.strPlanNote + " (dry run: nothing sent)";
    }
    switch (outcome.nAction) {
    case CAMERA_PLANNED:
        return "dry run: nothing sent";
    case CAMERA_NO_ADDRESS:
        return "no free address for every camera of this interface";
    case CAMERA_LOST:
        return outcome.nNewIP != 0 ? "no answer at the new address" : "no answer since the first discovery";
    case CAMERA_FAILED:
        if (outcome.nNote != CAMERA_NOTE_NONE) {
            return NoteText(outcome.nNote);
        }
        return ForceIPText(outcome.stForceIP.stMove);
    case CAMERA_KEPT:
        return NoteText(outcome.nNote);
    default:
        return "";
    }
}

SEEN_MODEL SeeInterfaces(const std::vector<CInterface*>& interfaces)
{
    SEEN_MODEL model;
    for (CInterface* itf : interfaces) {
        SEEN_INTERFACE seen;
        ReadInterface(itf, &seen);
        model.vecInterface.push_back(seen);
        const std::vector<CDevice*> devices = *itf->GetDeviceList();
        for (CDevice* device : devices) {
            model.vecCamera.push_back(SEEN_CAMERA{seen.stId.strLabel, device->GetDevID(), device->GetModelName(),
                                                  device->GetSN(), GenICam::Client::CameraIdOf(device->GetStrMac()),
                                                  device->GetIntIP(), device->GetIntSubNetMask(),
                                                  device->IsSameSubnetWithIF()});
        }
    }
    return model;
}
