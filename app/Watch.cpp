#include "app/Watch.h"

#include "app/Driver.h"
#include "app/Metrics.h"
#include "app/PassScheduler.h"
#include "app/PlainRun.h"
#include "app/RunDiagnostics.h"
#include "app/ServiceNotify.h"
#include "app/StopSignals.h"
#include "app/WatchEvents.h"
#include "common/Diagnostics.h"
#include "common/StopToken.h"
#include "common/ipcalc.h"
#include "link/AnnouncementFilter.h"
#include "link/ArpWatch.h"
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "link/LinkMonitor.h"
#include "device/TL.h"
#include "gvcp/LinkTap.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sys/time.h>

using GenICam::Client::CAnnouncementFilter;
using GenICam::Client::CArpWatch;
using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::CInterface;
using GenICam::Client::CLinkMonitor;
using GenICam::Client::CLinkStates;
using GenICam::Client::CTL;
using GenICam::Client::LINK_CHANGE;
using GenICam::Client::LINK_EVENT;
using GenICam::Client::MonotonicMs;
using GenICam::Client::ProcessStopToken;
using GenICam::Client::SleepUntil;
using GenICam::Client::Helper::Diag;

namespace {

const unsigned long kDiscoveryTimeoutMs = 3000;
// The moved cameras of a pass have as long to answer as the plain run gives every camera.
const uint64_t kConfirmLimitMs = 25000;
const uint64_t kConfirmPauseMs = 500;
const uint64_t kLinkReadMs = 1000;

// Wall-clock time only labels the events; every wait runs on the monotonic clock.
uint64_t WallMs()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

unsigned int MaskOf(const SEEN_INTERFACE& itf)
{
    return itf.strMask.empty() ? 0 : Cipcalc().iptolong(itf.strMask.c_str());
}

const SEEN_INTERFACE* FindInterface(const SEEN_MODEL& seen, const std::string& name)
{
    for (const SEEN_INTERFACE& itf : seen.vecInterface) {
        if (itf.strName == name) {
            return &itf;
        }
    }
    return nullptr;
}

bool Contains(const std::vector<std::string>& list, const std::string& text)
{
    return std::find(list.begin(), list.end(), text) != list.end();
}

// What the watch state makes of the outcome the reports give; false for a camera with nothing to tell.
bool ResultOf(const CAMERA_REPORT& camera, unsigned int interfaceMask, WATCH_RESULT* result)
{
    const CAMERA_OUTCOME& outcome = camera.stOutcome;
    result->strMac = camera.stCamera.strMAC;
    result->strReason = ReasonText(outcome);
    result->nIP = outcome.nNewIP;
    result->nMask = interfaceMask;
    switch (outcome.nAction) {
    case CAMERA_MOVED:
        result->nOutcome = WATCH_OUTCOME_MOVED;
        return true;
    case CAMERA_PLANNED:
        result->nOutcome = WATCH_OUTCOME_PLANNED;
        return true;
    case CAMERA_SENT:
    case CAMERA_LOST:
        // a camera that was sent nothing and vanished is counted out by the passes that miss it
        result->nOutcome = WATCH_OUTCOME_LOST;
        return outcome.nNewIP != 0;
    case CAMERA_FAILED:
        result->nOutcome = WATCH_OUTCOME_FAILED;
        result->nIP = camera.stCamera.nIP != outcome.nOldIP ? camera.stCamera.nIP : 0;
        result->nMask = camera.stCamera.nMask;
        return true;
    case CAMERA_NO_ADDRESS:
        result->nOutcome = WATCH_OUTCOME_NO_ADDRESS;
        return true;
    default:
        result->nOutcome = camera.stCamera.bAvailable ? WATCH_OUTCOME_KEPT : WATCH_OUTCOME_NO_ADDRESS;
        return true;
    }
}

// One link's ear for the announcements of devices that have just taken an address.
struct LINK_WATCH {
    std::unique_ptr<CArpWatch> pWatch;
    CAnnouncementFilter filter;
};

class CWatcher {
public:
    explicit CWatcher(const RUN_OPTIONS& options);
    int Run();

private:
    bool __FirstPass();
    void __Pass(const PASS_SCOPE& scope);
    void __Confirm(const CConfigPass& pass, const PASS_SCOPE& scope);
    int __Discover(const PASS_SCOPE& scope);
    void __Wait();
    void __OnLinks(uint64_t nowMs);
    void __OnLinkChange(LINK_CHANGE change, const LINK_EVENT& event, uint64_t nowMs);
    void __OnAnnouncements(uint64_t nowMs);
    void __WatchLinks();
    void __Tell(const std::vector<WATCH_EVENT>& events, size_t interfaces);

    RUN_OPTIONS m_stOptions;
    CWatchState m_state;
    CPassScheduler m_scheduler;
    CWatchEventWriter m_writer;
    CServiceNotify m_notify;
    CMetricsFile m_metrics;
    CLinkMonitor m_monitor;
    CLinkStates m_links;
    std::map<std::string, LINK_WATCH> m_mapLinks;  // by kernel name
    std::vector<ARP_ANNOUNCEMENT> m_vecHeard;
    unsigned long m_nPass;
    uint64_t m_nPassStartMs = 0;  // back-offs that ended before it were served by that pass
};

CWatcher::CWatcher(const RUN_OPTIONS& options)
    : m_stOptions(options), m_state(options.bCheckConflicts), m_scheduler(options.nIntervalMs),
      m_writer(stdout, options.bJson), m_metrics(options.strMetricsFile, options.bDryRun), m_nPass(0)
{
}

int CWatcher::Run()
{
    CStopSignals signals;
    int error = 0;
    if (!signals.Install(&error)) {
        fprintf(stderr, "autoipconfig: cannot catch SIGTERM: %s\n", strerror(error));
        return 1;
    }
    m_notify.StartWatchdog();
    if (m_monitor.Open(&error)) {
        for (const LINK_EVENT& event : m_monitor.ReadLinks(MonotonicMs() + kLinkReadMs)) {
            m_links.Apply(event);
        }
    } else {
        Diag("watch: no link notifications (%s): passes follow the interval only", strerror(error));
    }
    WarnWithoutRawNetworkRight();
    m_scheduler.StartPass(MonotonicMs());
    const bool ok = __FirstPass();
    m_scheduler.OnPassEnded(MonotonicMs());
    while (ok && !ProcessStopToken().IsRequested()) {
        __WatchLinks();
        __Wait();
        if (ProcessStopToken().IsRequested()) {
            break;
        }
        m_nPassStartMs = MonotonicMs();
        __Pass(m_scheduler.StartPass(m_nPassStartMs));
        m_scheduler.OnPassEnded(MonotonicMs());
    }
    m_notify.Stopping();
    m_notify.StopWatchdog();
    UnInitDeviceModule();
    return ok ? 0 : 1;
}

// The plain run with the same options; the text report stands for the first pass's events.
bool CWatcher::__FirstPass()
{
    const uint64_t startedMs = MonotonicMs();
    CConfigPass pass(PassOptionsOf(m_stOptions));
    if (!m_stOptions.bJson) {
        printf("%s", BannerText().c_str());
    }
    if (m_stOptions.bVerbose) {
        DiagRawNetworkRight();
        DiagInterfaces(GenICam::Client::SurveyInterfaces(m_stOptions.vecInterface));
    }
    SEEN_MODEL first;
    const RUN_RESULT* result = RunSequence(m_stOptions, pass, &first);
    if (result == &kStopped) {
        return true;
    }
    if (!m_stOptions.bJson) {
        printf("%s", result->szText);
    } else if (result != &kFinished) {
        fprintf(stderr, "autoipconfig: %s", result->szText);
    }
    if (result != &kFinished) {
        return false;
    }
    m_nPass = 1;
    __Tell(m_state.EndPass(WatchViewOf(first), WatchResultsOf(pass, nullptr), MonotonicMs(), WallMs()),
           first.vecInterface.size());
    m_metrics.EndPass(first, pass.GetReport(), startedMs);
    m_notify.Ready();
    CDeviceManager::GetInstanse()->GetTLObject()->SetReuseKnownStatus(true);
    return true;
}

// Known cameras that still fit cost one discovery answer; only new or changed ones are worked on.
void CWatcher::__Pass(const PASS_SCOPE& scope)
{
    const uint64_t startedMs = MonotonicMs();
    ++m_nPass;
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (__Discover(scope) != 0) {
        Diag("watch pass %lu: enumeration failed: %s", m_nPass, manager->GetLastErrorDescription().c_str());
    }
    if (ProcessStopToken().IsRequested()) {
        return;
    }
    const SEEN_MODEL seen = SeeDeviceModel();
    const WATCH_PASS_VIEW view = scope.bEveryInterface ? WatchViewOf(seen) : WatchViewOn(WatchViewOf(seen), scope);
    const std::vector<std::string> work = m_state.CamerasToWork(view, MonotonicMs());
    Diag("watch pass %lu: %zu cameras, %zu to work on", m_nPass, view.vecCameras.size(), work.size());
    std::vector<WATCH_RESULT> results;
    std::vector<INTERFACE_REPORT> report;
    if (!work.empty()) {
        PASS_OPTIONS options = PassOptionsOf(m_stOptions);
        options.bOnlyListed = true;
        options.vecOnlyMAC = work;
        options.vecAlsoTaken = m_state.KnownAddresses(work);
        CConfigPass pass(options);
        pass.RecordSeen(seen);
        ConfigAllDevices(pass);
        __Confirm(pass, scope);
        pass.Settle(SeeDeviceModel());
        DiagOutcomes(pass);
        results = WatchResultsOf(pass, &work);
        report = pass.GetReport();
    }
    if (ProcessStopToken().IsRequested()) {
        return;
    }
    __Tell(m_state.EndPass(view, results, MonotonicMs(), WallMs()), seen.vecInterface.size());
    m_metrics.EndPass(seen, report, startedMs);
}

int CWatcher::__Discover(const PASS_SCOPE& scope)
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    return scope.bEveryInterface ? manager->UpdateDeviceList(kDiscoveryTimeoutMs)
                                 : manager->UpdateDeviceListOn(kDiscoveryTimeoutMs, scope.vecInterfaces);
}

// Enumerates until every camera sent an address answers there; the others do not hold the pass.
void CWatcher::__Confirm(const CConfigPass& pass, const PASS_SCOPE& scope)
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
    const uint64_t giveUpAt = MonotonicMs() + kConfirmLimitMs;
    while (!answered() && MonotonicMs() < giveUpAt && SleepUntil(MonotonicMs() + kConfirmPauseMs)) {
        __Discover(scope);
    }
}

// Until the next pass is due: link changes and announcements may bring it forward.
void CWatcher::__Wait()
{
    for (;;) {
        const uint64_t now = MonotonicMs();
        const uint64_t retry = m_state.NextRetryAfter(m_nPassStartMs);
        if (retry != 0 && retry <= now) {
            m_scheduler.OnRetryDue(now);
            m_nPassStartMs = now;  // served: the pass it asks for starts after this
        }
        uint64_t deadline = m_scheduler.NextPassAt();
        if (deadline <= now) {
            return;
        }
        deadline = retry > now ? std::min(deadline, retry) : deadline;
        std::vector<int> fds;
        if (m_monitor.GetFd() >= 0) {
            fds.push_back(m_monitor.GetFd());
        }
        for (auto& link : m_mapLinks) {
            fds.push_back(link.second.pWatch->GetFd());
            const uint64_t due = link.second.filter.DueAtMs();
            deadline = due != 0 ? std::min(deadline, due) : deadline;
        }
        size_t ready = 0;
        int error = 0;
        const GenICam::Client::WAIT_RESULT waited =
            GenICam::Client::WaitAnyReadable(fds.data(), fds.size(), deadline, &ready, &error);
        if (waited == GenICam::Client::WAIT_STOPPED) {
            return;
        }
        if (waited == GenICam::Client::WAIT_FAILED) {
            Diag("watch: wait failed: %s", strerror(error));
            SleepUntil(MonotonicMs() + kConfirmPauseMs);
        }
        __OnLinks(MonotonicMs());
        __OnAnnouncements(MonotonicMs());
    }
}

void CWatcher::__OnLinks(uint64_t nowMs)
{
    if (m_monitor.GetFd() < 0) {
        return;
    }
    for (const LINK_EVENT& event : m_monitor.Read()) {
        __OnLinkChange(m_links.Apply(event), event, nowMs);
    }
}

void CWatcher::__OnLinkChange(LINK_CHANGE change, const LINK_EVENT& event, uint64_t nowMs)
{
    switch (change) {
    case GenICam::Client::LINK_CHANGE_CARRIER_UP:
        Diag("watch: %s: carrier up", event.strName.c_str());
        m_scheduler.OnCarrierUp(event.strName, nowMs);
        break;
    case GenICam::Client::LINK_CHANGE_RESYNC:
        // notifications were lost: what the links are now is all that can be trusted
        Diag("watch: link notifications lost: reading every link again");
        for (const LINK_EVENT& link : m_monitor.ReadLinks(nowMs + kLinkReadMs)) {
            const LINK_CHANGE again = m_links.Apply(link);
            if (again == GenICam::Client::LINK_CHANGE_CARRIER_UP) {
                __OnLinkChange(again, link, nowMs);
            }
        }
        m_scheduler.OnInterfaceEvent(nowMs);
        break;
    case GenICam::Client::LINK_CHANGE_NONE:
        break;
    default:
        Diag("watch: %s: link or address changed", event.strName.c_str());
        m_scheduler.OnInterfaceEvent(nowMs);
        break;
    }
}

void CWatcher::__OnAnnouncements(uint64_t nowMs)
{
    for (auto& link : m_mapLinks) {
        link.second.pWatch->Read(m_vecHeard);
        bool start = false;
        for (const ARP_ANNOUNCEMENT& heard : m_vecHeard) {
            start = link.second.filter.Heard(heard.aMAC, nowMs) || start;
        }
        start = link.second.filter.TakeDue(nowMs) || start;
        if (start) {
            Diag("watch: %s: a new device announced itself", link.first.c_str());
            m_scheduler.OnAnnouncement(nowMs);
        }
    }
}

// One announcement watch per kernel link the device model uses; none without the raw-network right.
void CWatcher::__WatchLinks()
{
    if (!GenICam::Client::HasRawNetworkRight()) {
        return;
    }
    std::set<std::string> names;
    for (CInterface* itf : *CDeviceManager::GetInstanse()->GetTLObject()->GetCurInterfaceList()) {
        const std::string label = itf->GetInterfaceDescription();
        names.insert(label.substr(0, label.find(':')));
    }
    for (auto it = m_mapLinks.begin(); it != m_mapLinks.end();) {
        it = names.count(it->first) == 0 ? m_mapLinks.erase(it) : std::next(it);
    }
    for (const std::string& name : names) {
        if (m_mapLinks.count(name) != 0) {
            continue;
        }
        std::unique_ptr<CArpWatch> watch(new CArpWatch());
        int error = 0;
        if (watch->Open(name, &error)) {
            m_mapLinks[name].pWatch = std::move(watch);
        } else {
            Diag("watch: %s: no announcement watch: %s", name.c_str(), strerror(error));
        }
    }
}

void CWatcher::__Tell(const std::vector<WATCH_EVENT>& events, size_t interfaces)
{
    if (m_nPass > 1 || m_stOptions.bJson) {
        m_writer.Write(events);
    }
    for (const WATCH_EVENT& event : events) {
        if (event.nKind != WATCH_EVENT_GONE) {
            continue;
        }
        uint8_t mac[6] = {0};
        Cipcalc().StrToMac(event.strMac.c_str(), mac);
        for (auto& link : m_mapLinks) {
            link.second.filter.Forget(mac);
        }
    }
    m_notify.Status(WatchStatusLine(m_nPass, interfaces, m_state.CameraCount(), events));
}

} // namespace

WATCH_PASS_VIEW WatchViewOf(const SEEN_MODEL& seen)
{
    WATCH_PASS_VIEW view;
    for (const SEEN_INTERFACE& itf : seen.vecInterface) {
        view.vecInterfaces.push_back(itf.strName);
    }
    std::set<unsigned int> taken;
    for (const SEEN_CAMERA& camera : seen.vecCamera) {
        const SEEN_INTERFACE* itf = FindInterface(seen, camera.strInterface);
        WATCH_SIGHTING sighting;
        sighting.strInterface = camera.strInterface;
        sighting.strMac = camera.strMAC;
        sighting.strModel = camera.strModel;
        sighting.strSerial = camera.strSerial;
        sighting.nIP = camera.nIP;
        sighting.nMask = camera.nMask;
        sighting.nInterfaceIP = itf == nullptr ? 0 : itf->nIP;
        sighting.nInterfaceMask = itf == nullptr ? 0 : MaskOf(*itf);
        // a second camera at an address already met needs another one, as the planner decides
        sighting.bFits = camera.bAvailable && taken.insert(camera.nIP).second;
        view.vecCameras.push_back(sighting);
    }
    return view;
}

// The links not discovered on this pass keep their old lists: they neither count as seen nor as missing.
WATCH_PASS_VIEW WatchViewOn(const WATCH_PASS_VIEW& view, const PASS_SCOPE& scope)
{
    const auto inScope = [&scope](const std::string& label) {
        return Contains(scope.vecInterfaces, label.substr(0, label.find(':')));
    };
    WATCH_PASS_VIEW narrowed;
    narrowed.bEveryInterface = false;
    std::copy_if(view.vecInterfaces.begin(), view.vecInterfaces.end(), std::back_inserter(narrowed.vecInterfaces),
                 inScope);
    std::copy_if(view.vecCameras.begin(), view.vecCameras.end(), std::back_inserter(narrowed.vecCameras),
                 [&inScope](const WATCH_SIGHTING& camera) { return inScope(camera.strInterface); });
    return narrowed;
}

std::vector<WATCH_RESULT> WatchResultsOf(const CConfigPass& pass, const std::vector<std::string>* only)
{
    std::vector<WATCH_RESULT> results;
    for (const INTERFACE_REPORT& itf : pass.GetReport()) {
        for (const CAMERA_REPORT& camera : itf.vecCamera) {
            WATCH_RESULT result;
            if ((only == nullptr || Contains(*only, camera.stCamera.strMAC)) &&
                ResultOf(camera, MaskOf(itf.stInterface), &result)) {
                results.push_back(result);
            }
        }
    }
    return results;
}

int RunWatch(const RUN_OPTIONS& options)
{
    CWatcher watcher(options);
    return watcher.Run();
}
