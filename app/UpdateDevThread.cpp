#include "app/UpdateDevThread.h"

#include "common/Diagnostics.h"
#include "common/StopToken.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/TL.h"

#include <cstdio>

using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::MonotonicMs;

namespace {

const unsigned long kDiscoveryTimeoutMs = 3000;
const uint64_t kGiveUpAfterMs = 25000;
const uint64_t kPauseBetweenPassesMs = 500;

} // namespace

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

void CUpdateDevThread::ShowProgress(bool show)
{
    m_bShowProgress = show;
}

void CUpdateDevThread::SetDevLabels(const std::vector<std::string>& labels, const std::vector<unsigned int>& sentIPs)
{
    m_vecDevLabel = labels;
    m_vecSentIP = sentIPs;
}

void CUpdateDevThread::__SetUpdateDevStatus(bool success)
{
    m_bUpdateSuccess = success;
}

void CUpdateDevThread::__RunOnce()
{
    __Enumerate();
    if (GenICam::Client::Helper::IsDiagnostics()) {
        size_t cameras = 0;  // counted without GetAllDevice, which clears the same-address flags
        for (GenICam::Client::CInterface* itf : *m_pDeviceManager->GetTLObject()->GetCurInterfaceList()) {
            cameras += itf->GetDeviceList()->size();
        }
        GenICam::Client::Helper::Diag("first enumeration: %zu cameras", cameras);
    }
}

// One dot per pass; gives up after the first pass that ends more than 25 s after the start, measured on
// the monotonic clock so a stepped wall clock neither cuts nor stretches it; a stop request ends it at once.
void CUpdateDevThread::__RunUntilFound()
{
    const uint64_t startMs = MonotonicMs();
    m_nRunning = 1;
    int pass = 0;
    while (m_nRunning != 0) {
        __Print(".");
        __Enumerate();
        __DiagPass(++pass);
        if (m_pDeviceManager->CheckDeviceFromList(m_vecDevID)) {
            m_nRunning = 0;
            __EndLine();
            return;
        }
        if (MonotonicMs() - startMs > kGiveUpAfterMs) {
            m_nRunning = 0;
            __EndLine();
        }
        if (!GenICam::Client::SleepUntil(MonotonicMs() + kPauseBetweenPassesMs) && m_nRunning != 0) {
            m_nRunning = 0;
            __EndLine();
        }
    }
}

// A failed enumeration is recorded, never printed.
void CUpdateDevThread::__Enumerate()
{
    if (m_pDeviceManager->UpdateDeviceList(kDiscoveryTimeoutMs) != 0) {
        m_strError = m_pDeviceManager->GetLastErrorDescription();
        __SetUpdateDevStatus(false);
    }
}

// Moved cameras: back, and at which address; any camera: still missing.
void CUpdateDevThread::__DiagPass(int pass)
{
    if (!GenICam::Client::Helper::IsDiagnostics() || m_vecDevLabel.size() != m_vecDevID.size() ||
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
