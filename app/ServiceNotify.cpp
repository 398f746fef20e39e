#include "app/ServiceNotify.h"

#include "common/Progress.h"
#include "common/StopToken.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <systemd/sd-daemon.h>

using namespace GenICam::Client;

CServiceNotify::CServiceNotify() : m_bStop(false) {}

CServiceNotify::~CServiceNotify()
{
    StopWatchdog();
}

bool CServiceNotify::IsEnabled() const
{
    const char* socket = getenv("NOTIFY_SOCKET");
    return socket != nullptr && socket[0] != '\0';
}

int CServiceNotify::Ready()
{
    return sd_notify(0, "READY=1");
}

int CServiceNotify::Status(const std::string& text)
{
    std::string line = "STATUS=" + text;
    for (char& c : line) {
        c = c == '\n' || c == '\r' ? ' ' : c;
    }
    return sd_notify(0, line.c_str());
}

int CServiceNotify::Stopping()
{
    return sd_notify(0, "STOPPING=1");
}

bool CServiceNotify::StartWatchdog()
{
    uint64_t usec = 0;
    if (m_thPinger.joinable() || !IsEnabled() || sd_watchdog_enabled(0, &usec) <= 0 || usec == 0) {
        return false;
    }
    // A quarter of the period leaves a missed wake-up or two before the manager gives up.
    const unsigned long periodMs = usec / 4000 > 0 ? static_cast<unsigned long>(usec / 4000) : 1;
    m_bStop = false;
    m_thPinger = std::thread(&CServiceNotify::Ping, this, periodMs);
    return true;
}

void CServiceNotify::StopWatchdog()
{
    if (!m_thPinger.joinable()) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(m_mtxStop);
        m_bStop = true;
    }
    m_cvStop.notify_all();
    m_thPinger.join();
}

// Silence when nothing moved: a hung pass is then caught by the manager rather than kept alive.
void CServiceNotify::Ping(unsigned long periodMs)
{
    PROGRESS_MARK last = ReadProgress();
    std::unique_lock<std::mutex> lock(m_mtxStop);
    while (!m_cvStop.wait_for(lock, std::chrono::milliseconds(periodMs), [this] { return m_bStop; })) {
        const PROGRESS_MARK now = ReadProgress();
        if (MadeProgress(last, now, MonotonicMs())) {
            sd_notify(0, "WATCHDOG=1");
        }
        last = now;
    }
}
