#include "app/Watch.h"

#include "app/AddressMemory.h"
#include "app/Metrics.h"
#include "app/PassRun.h"
#include "app/PassScheduler.h"
#include "app/RunDiagnostics.h"
#include "app/ServiceNotify.h"
#include "app/StopSignals.h"
#include "app/TextReport.h"
#include "app/WatchEvents.h"
#include "common/Diagnostics.h"
#include "common/Identity.h"
#include "common/StopToken.h"
#include "gvcp/LinkTap.h"
#include "link/AnnouncementFilter.h"
#include "link/ArpWatch.h"
#include "link/LinkMonitor.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sys/time.h>

using GenICam::Client::CAnnouncementFilter;
using GenICam::Client::CArpWatch;
using GenICam::Client::CLinkMonitor;
using GenICam::Client::CLinkStates;
using GenICam::Client::LINK_CHANGE;
using GenICam::Client::LINK_EVENT;
using GenICam::Client::MonotonicMs;
using GenICam::Client::ProcessStopToken;
using GenICam::Client::SleepUntil;
using GenICam::Client::Helper::Diag;

namespace {

const uint64_t kLinkReadMs = 1000;
const uint64_t kWaitRetryMs = 500;

// Wall-clock time only labels the events; every wait runs on the monotonic clock.
uint64_t WallMs()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

const SEEN_INTERFACE* FindInterface(const SEEN_MODEL& seen, const std::string& name)
{
    for (const SEEN_INTERFACE& itf : seen.vecInterface) {
        if (itf.stId.strLabel == name) {
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
    result->strMac = camera.stCamera.stId.strText;
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
    bool FirstPass();
    void Pass(const PASS_SCOPE& scope);
    void Wait();
    void OnLinks(uint64_t nowMs);
    void OnLinkChange(LINK_CHANGE change, const LINK_EVENT& event, uint64_t nowMs);
    void OnAnnouncements(uint64_t nowMs);
    void WatchLinks();
    void Tell(const std::vector<WATCH_EVENT>& events, size_t interfaces);
    void Remember(const PASS_RESULT& pass);
    void Memorise(const std::vector<WATCH_EVENT>& events);
    void Reload(uint64_t nowMs);

    RUN_OPTIONS m_stOptions;
    CWatchState m_state;
    CPassScheduler m_scheduler;
    CWatchEventWriter m_writer;
    CServiceNotify m_notify;
    CMetricsFile m_metrics;
    CReloadSignal m_reload;
    CAddressMemory m_memory;
    bool m_bReplan = false;  // the plan changed: the next pass works on every camera it sees
    CLinkMonitor m_monitor;
    CLinkStates m_links;
    std::map<std::string, LINK_WATCH> m_mapLinks;  // by kernel name
    std::vector<ARP_ANNOUNCEMENT> m_vecHeard;
    std::set<std::string> m_setLinks;  // the kernel links behind the interfaces the last pass saw
    unsigned long m_nPass;
    uint64_t m_nPassStartMs = 0;  // back-offs that ended before it were served by that pass
};

CWatcher::CWatcher(const RUN_OPTIONS& options)
    : m_stOptions(options), m_state(options.bCheckConflicts), m_scheduler(options.nIntervalMs),
      m_writer(stdout, options.bJson), m_metrics(options.strMetricsFile, options.bDryRun),
      m_memory(AddressMemoryDirectory(getenv("STATE_DIRECTORY"))), m_nPass(0)
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
    // Without the handler a reload request would end the service.
    if (!m_reload.Install(&error)) {
        fprintf(stderr, "autoipconfig: cannot catch SIGHUP: %s\n", strerror(error));
        return 1;
    }
    m_memory.Load();
    m_notify.StartWatchdog();
    if (m_monitor.Open(&error)) {
        for (const LINK_EVENT& event : m_monitor.ReadLinks(MonotonicMs() + kLinkReadMs)) {
            m_links.Apply(event);
        }
    } else {
        Diag("watch: no link notifications (%s): passes follow the interval only", strerror(error));
    }
    WarnWithoutRawNetworkRight();
    WarnWithoutUsableInterface(GenICam::Client::SurveyInterfaces(m_stOptions.vecInterface));
    m_scheduler.StartPass(MonotonicMs());
    const bool ok = FirstPass();
    m_scheduler.OnPassEnded(MonotonicMs());
    while (ok && !ProcessStopToken().IsRequested()) {
        WatchLinks();
        Wait();
        if (ProcessStopToken().IsRequested()) {
            break;
        }
        m_nPassStartMs = MonotonicMs();
        Pass(m_scheduler.StartPass(m_nPassStartMs));
        m_scheduler.OnPassEnded(MonotonicMs());
    }
    m_notify.Stopping();
    m_notify.StopWatchdog();
    EndPasses();
    return ok ? 0 : 1;
}

// The plain run with the same options; the text report stands for the first pass's events.
bool CWatcher::FirstPass()
{
    const uint64_t startedMs = MonotonicMs();
    PASS_REQUEST request;
    request.stOptions = PassOptionsOf(m_stOptions);
    request.stOptions.vecRemembered = m_memory.Addresses();
    request.bShowProgress = !m_stOptions.bJson;
    if (!m_stOptions.bJson) {
        printf("%s", BannerText().c_str());
    }
    if (m_stOptions.bVerbose) {
        DiagRawNetworkRight();
        DiagInterfaces(GenICam::Client::SurveyInterfaces(m_stOptions.vecInterface));
    }
    const PASS_RESULT pass = RunPass(request);
    if (pass.pResult == &kStopped) {
        return true;
    }
    if (!m_stOptions.bJson) {
        if (pass.pResult == &kFinished) {
            PrintTextReport(pass, request.stOptions);
        }
        printf("%s", pass.pResult->szText);
    } else if (pass.pResult != &kFinished) {
        fprintf(stderr, "autoipconfig: %s", pass.pResult->szText);
    }
    if (pass.pResult != &kFinished) {
        return false;
    }
    m_nPass = 1;
    Remember(pass);
    const std::vector<WATCH_EVENT> events =
        m_state.EndPass(WatchViewOf(pass.stFirst), WatchResultsOf(pass.vecReport, nullptr), MonotonicMs(), WallMs());
    Tell(events, pass.stFirst.vecInterface.size());
    Memorise(events);
    m_metrics.EndPass(pass.stFirst, pass.vecReport, startedMs);
    m_notify.Ready();
    ReuseKnownCameras();
    return true;
}

// Known cameras that still fit cost one discovery answer; only new or changed ones are worked on.
void CWatcher::Pass(const PASS_SCOPE& scope)
{
    const uint64_t startedMs = MonotonicMs();
    ++m_nPass;
    PASS_REQUEST request;
    request.stOptions = PassOptionsOf(m_stOptions);
    request.stScope = scope;
    request.bFirst = false;
    request.nConfirm = CONFIRM_QUIET;
    request.bShowProgress = false;
    WATCH_PASS_VIEW view;
    std::vector<std::string> work;
    // a pass on some links only leaves the others to the next full pass
    const bool replan = m_bReplan && scope.bEveryInterface;
    m_bReplan = m_bReplan && !replan;
    request.fnChoose = [&](const PASS_RESULT& discovered, PASS_OPTIONS* options) {
        if (!discovered.strDiscoveryError.empty()) {
            Diag("watch pass %lu: enumeration failed: %s", m_nPass, discovered.strDiscoveryError.c_str());
        }
        const SEEN_MODEL& seen = discovered.stFirst;
        view = scope.bEveryInterface ? WatchViewOf(seen) : WatchViewOn(WatchViewOf(seen), scope);
        work = m_state.CamerasToWork(view, MonotonicMs());
        if (replan) {
            work.clear();
            for (const WATCH_SIGHTING& camera : view.vecCameras) {
                work.push_back(camera.stCamera.stId.strText);
            }
        }
        Diag("watch pass %lu: %zu cameras, %zu to work on", m_nPass, view.vecCameras.size(), work.size());
        options->bOnlyListed = true;
        options->vecOnlyMAC = work;
        options->vecAlsoTaken = m_state.KnownAddresses(work);
        options->vecRemembered = work.empty() ? std::vector<REMEMBERED_ADDRESS>() : m_memory.Addresses();
        return !work.empty();
    };
    const PASS_RESULT pass = RunPass(request);
    if (pass.pResult == &kStopped || ProcessStopToken().IsRequested()) {
        return;
    }
    const std::vector<WATCH_RESULT> results =
        pass.bWorked ? WatchResultsOf(pass.vecReport, &work) : std::vector<WATCH_RESULT>();
    Remember(pass);
    const std::vector<WATCH_EVENT> events = m_state.EndPass(view, results, MonotonicMs(), WallMs());
    Tell(events, pass.stFirst.vecInterface.size());
    Memorise(events);
    m_metrics.EndPass(pass.stFirst, pass.bWorked ? pass.vecReport : std::vector<INTERFACE_REPORT>(), startedMs);
}

// Until the next pass is due: link changes and announcements may bring it forward.
void CWatcher::Wait()
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
        std::vector<int> fds{m_reload.GetFd()};
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
            SleepUntil(MonotonicMs() + kWaitRetryMs);
        }
        if (m_reload.TakeRequest()) {
            Reload(MonotonicMs());
        }
        OnLinks(MonotonicMs());
        OnAnnouncements(MonotonicMs());
    }
}

// A file with errors leaves the plan in force; a good one applies from a pass that starts at once.
void CWatcher::Reload(uint64_t nowMs)
{
    const PLAN_LOAD plan = LoadAddressPlan(m_stOptions.strConfigFile);
    for (const std::string& error : plan.vecError) {
        fprintf(stderr, "autoipconfig: %s\n", error.c_str());
    }
    m_writer.Write(ConfigEvent(WallMs(), plan.vecError.empty() ? "" : plan.vecError.front()));
    if (!plan.vecError.empty()) {
        return;
    }
    m_stOptions.pPlan = plan.pPlan;
    m_bReplan = true;
    m_scheduler.OnInterfaceEvent(nowMs);
}

// The cameras this pass moved keep their addresses across restarts; a dry run moved none.
void CWatcher::Memorise(const std::vector<WATCH_EVENT>& events)
{
    if (m_stOptions.bDryRun) {
        return;
    }
    for (const WATCH_EVENT& event : events) {
        if (event.nKind == WATCH_EVENT_MOVED) {
            const SEEN_CAMERA& camera = event.stCamera;
            m_memory.Record(camera.stId.strText, camera.strSerial, camera.strInterface, camera.nIP, event.nWallMs);
        }
    }
    m_memory.Save();
}

void CWatcher::OnLinks(uint64_t nowMs)
{
    if (m_monitor.GetFd() < 0) {
        return;
    }
    for (const LINK_EVENT& event : m_monitor.Read()) {
        OnLinkChange(m_links.Apply(event), event, nowMs);
    }
}

void CWatcher::OnLinkChange(LINK_CHANGE change, const LINK_EVENT& event, uint64_t nowMs)
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
                OnLinkChange(again, link, nowMs);
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

void CWatcher::OnAnnouncements(uint64_t nowMs)
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

// One announcement watch per kernel link the last pass saw; none without the raw-network right.
void CWatcher::WatchLinks()
{
    if (!GenICam::Client::HasRawNetworkRight()) {
        return;
    }
    for (auto it = m_mapLinks.begin(); it != m_mapLinks.end();) {
        it = m_setLinks.count(it->first) == 0 ? m_mapLinks.erase(it) : std::next(it);
    }
    for (const std::string& name : m_setLinks) {
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

void CWatcher::Remember(const PASS_RESULT& pass)
{
    m_setLinks.clear();
    for (const SEEN_INTERFACE& itf : (pass.bWorked ? pass.stEnd : pass.stFirst).vecInterface) {
        m_setLinks.insert(itf.stId.strLink);
    }
}

void CWatcher::Tell(const std::vector<WATCH_EVENT>& events, size_t interfaces)
{
    if (m_nPass > 1 || m_stOptions.bJson) {
        m_writer.Write(events);
    }
    for (const WATCH_EVENT& event : events) {
        if (event.nKind != WATCH_EVENT_GONE) {
            continue;
        }
        for (auto& link : m_mapLinks) {
            link.second.filter.Forget(event.stCamera.stId.aMAC.data());
        }
    }
    m_notify.Status(WatchStatusLine(m_nPass, interfaces, m_state.CameraCount(), events));
}

} // namespace

WATCH_PASS_VIEW WatchViewOf(const SEEN_MODEL& seen)
{
    WATCH_PASS_VIEW view;
    for (const SEEN_INTERFACE& itf : seen.vecInterface) {
        view.vecInterfaces.push_back(itf.stId.strLabel);
    }
    std::set<unsigned int> taken;
    for (const SEEN_CAMERA& camera : seen.vecCamera) {
        const SEEN_INTERFACE* itf = FindInterface(seen, camera.strInterface);
        WATCH_SIGHTING sighting;
        sighting.stCamera = camera;
        sighting.nInterfaceIP = itf == nullptr ? 0 : itf->nIP;
        sighting.nInterfaceMask = itf == nullptr ? 0 : itf->nMask;
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
        return Contains(scope.vecInterfaces, GenICam::Client::DeviceNameOf(label));
    };
    WATCH_PASS_VIEW narrowed;
    narrowed.bEveryInterface = false;
    std::copy_if(view.vecInterfaces.begin(), view.vecInterfaces.end(), std::back_inserter(narrowed.vecInterfaces),
                 inScope);
    std::copy_if(view.vecCameras.begin(), view.vecCameras.end(), std::back_inserter(narrowed.vecCameras),
                 [&inScope](const WATCH_SIGHTING& camera) { return inScope(camera.stCamera.strInterface); });
    return narrowed;
}

std::vector<WATCH_RESULT> WatchResultsOf(const std::vector<INTERFACE_REPORT>& report,
                                         const std::vector<std::string>* only)
{
    std::vector<WATCH_RESULT> results;
    for (const INTERFACE_REPORT& itf : report) {
        for (const CAMERA_REPORT& camera : itf.vecCamera) {
            WATCH_RESULT result;
            if ((only == nullptr || Contains(*only, camera.stCamera.stId.strText)) &&
                ResultOf(camera, itf.stInterface.nMask, &result)) {
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
