#include "app/UpdateDevThread.h"

#include "common/Diagnostics.h"
#include "common/StopToken.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/DeviceManager.h"

#include <cstdio>

using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::MonotonicMs;

CUpdateDevThread::CUpdateDevThread(CDeviceManager* manager, int mode, const std::vector<std::string>& devIDs)
    : m_pDeviceManager(manager), m_nMode(mode), m_bUpdateSuccess(true), m_nRunning(0), m_vecDevID(devIDs),
      m_bShowProgress(true)
{
}

CUpdateDevThread::~CUpdateDevThread()
{
    m_nRunning = 0;
}

void CUpdateDevThread::run()
{
    try {
        if (m_nMode == UPDATE_DEV_ONCE) {
            __RunOnce();
        } else {
            __RunUntilFound();
        }
    } catch (...) {
        __SetUpdateDevStatus(false);
        if (m_nMode != UPDATE_DEV_ONCE) {
            __EndLine();
        }
    }
}

bool CUpdateDevThread::IsUpdateSuccessful()
{
    return m_bUpdateSuccess;
}

const std::string& CUpdateDevThread::GetLastError() const
{
    return m_strError;
}

void CUpdateDevThread::SetLinks(const std::vector<std::string>& links)
{
    m_vecLinks = links;
}

void CUpdateDevThread::SetAnswered(std::function<bool()> answered)
{
    m_fnAnswered = std::move(answered);
}

void CUpdateDevThread::PauseBefore(bool pause)
{
    m_bPauseBefore = pause;
}

void CUpdateDevThread::ShowProgress(bool show)
{
    m_bShowProgress = show;
}

void CUpdateDevThread::SetDevLabels(const std::vector<std::string>& labels, const std::vector<unsigned int>& sentIPs)
{
    m_vecDevLabel = labels;
    m_vecSentIP = sentIPs;
    m_bDiagPasses = true;
}

void CUpdateDevThread::__SetUpdateDevStatus(bool success)
{
    m_bUpdateSuccess = success;
}

void CUpdateDevThread::__RunOnce()
{
    __Enumerate();
}

// One dot per pass; gives up after the first pass that ends more than 25 s after the start, measured on
// the monotonic clock so a stepped wall clock neither cuts nor stretches it; a stop request ends it at once.
// The pause follows each pass (also the last, timed-out one), or with PauseBefore() precedes it.
void CUpdateDevThread::__RunUntilFound()
{
    const uint64_t startMs = MonotonicMs();
    const auto pause = [] { return GenICam::Client::SleepUntil(MonotonicMs() + kConfirmPauseMs); };
    m_nRunning = 1;
    int pass = 0;
    while (m_nRunning != 0) {
        if (m_bPauseBefore && !pause()) {
            break;
        }
        __Print(".");
        __Enumerate();
        __DiagPass(++pass);
        if (m_fnAnswered ? m_fnAnswered() : m_pDeviceManager->CheckDeviceFromList(m_vecDevID)) {
            break;
        }
        if (MonotonicMs() - startMs > kConfirmLimitMs) {
            m_nRunning = 0;
            __EndLine();
        }
        if (!m_bPauseBefore && !pause() && m_nRunning != 0) {
            break;
        }
    }
    if (m_nRunning != 0) {
        m_nRunning = 0;
        __EndLine();
    }
}

// A failed enumeration is recorded, never printed.
void CUpdateDevThread::__Enumerate()
{
    const int failed = m_vecLinks.empty() ? m_pDeviceManager->UpdateDeviceList(kDiscoveryTimeoutMs)
                                          : m_pDeviceManager->UpdateDeviceListOn(kDiscoveryTimeoutMs, m_vecLinks);
    if (failed != 0) {
        m_strError = m_pDeviceManager->GetLastErrorDescription();
        __SetUpdateDevStatus(false);
    }
}

// Moved cameras: back, and at which address; any camera: still missing.
void CUpdateDevThread::__DiagPass(int pass)
{
    if (!GenICam::Client::Helper::IsDiagnostics() || !m_bDiagPasses || m_vecDevLabel.size() != m_vecDevID.size() ||
        m_vecSentIP.size() != m_vecDevID.size()) {
        return;
    }
    size_t back = 0;
    for (size_t i = 0; i < m_vecDevID.size(); ++i) {
        CDevice* device = nullptr;
        const bool found = m_pDeviceManager->GetDevObjByID(m_vecDevID[i], &device);
        back += found ? 1 : 0;
        const unsigned int sent = m_vecSentIP[i];
        const std::string target = sent == 0 ? std::string("not moved") : "sent " + DottedText(sent);
        if (found && sent != 0) {
            GenICam::Client::Helper::Diag("%s: answered at %s (%s)", m_vecDevLabel[i].c_str(),
                                          device->GetStrIP().c_str(), target.c_str());
        } else if (!found) {
            GenICam::Client::Helper::Diag("%s: still missing (%s)", m_vecDevLabel[i].c_str(), target.c_str());
        }
    }
    GenICam::Client::Helper::Diag("confirmation pass %d: %zu of %zu cameras answered", pass, back, m_vecDevID.size());
}

void CUpdateDevThread::__EndLine()
{
    __Print("\n");
}

void CUpdateDevThread::__Print(const char* text)
{
    if (m_bShowProgress) {
        printf("%s", text);
        fflush(stdout);
    }
}
