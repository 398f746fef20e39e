#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

// Tells the service manager how the process is doing (libsystemd's notify protocol). Without
// NOTIFY_SOCKET in the environment nothing is sent and no thread is started.
class CServiceNotify {
public:
    CServiceNotify();
    ~CServiceNotify();
    CServiceNotify(const CServiceNotify&) = delete;
    CServiceNotify& operator=(const CServiceNotify&) = delete;

    // Whether a service manager listens.
    bool IsEnabled() const;
    // Each returns sd_notify's result: > 0 sent, 0 nobody listens, < 0 a negative errno.
    int Ready();
    // One line: line breaks become spaces, so the text cannot carry another assignment.
    int Status(const std::string& text);
    int Stopping();

    // Pings WATCHDOG=1 every quarter of WATCHDOG_USEC while the process makes progress (common/Progress.h),
    // from a thread of its own, so a long wait of the main loop does not starve the manager. false, and
    // no thread, when the manager asked for no watchdog.
    bool StartWatchdog();
    // Stops and joins the pinger at once; nothing when none runs.
    void StopWatchdog();

private:
    void Ping(unsigned long periodMs);

    std::thread m_thPinger;
    std::mutex m_mtxStop;
    std::condition_variable m_cvStop;
    bool m_bStop;
};
