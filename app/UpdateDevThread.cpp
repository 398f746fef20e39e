#include "app/UpdateDevThread.h"

#include "common/StopWatch.h"
#include "device/DeviceManager.h"

#include <cstdio>
#include <unistd.h>

using GenICam::Client::CDeviceManager;
using GenICam::Client::CStopWatch;

namespace {

const unsigned long kDiscoveryTimeoutMs = 3000;
const double kGiveUpAfterMs = 25000.0;
const useconds_t kPauseBetweenPassesUs = 500000;

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

void CUpdateDevThread::__SetUpdateDevStatus(bool success)
{
    m_bUpdateSuccess = success;
}

void CUpdateDevThread::__RunOnce()
{
    __Enumerate();
}

// One dot per pass; gives up after the first pass that ends more than 25 s after the start.
void CUpdateDevThread::__RunUntilFound()
{
    double totalMs = 0.0;
    CStopWatch watch;
    watch.Start();
    m_nRunning = 1;
    while (m_nRunning != 0) {
        __Print(".");
        __Enumerate();
        if (m_pDeviceManager->CheckDeviceFromList(m_vecDevID)) {
            m_nRunning = 0;
            __EndLine();
            return;
        }
        totalMs += watch.Stop(true);
        if (static_cast<int>(totalMs) > kGiveUpAfterMs) {
            m_nRunning = 0;
            __EndLine();
        }
        usleep(kPauseBetweenPassesUs);
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
