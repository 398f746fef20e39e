#include "app/StopSignals.h"

#include "common/StopToken.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/eventfd.h>

using namespace GenICam::Client;

namespace {

// Async-signal-safe: the token's request is one write to its eventfd.
void OnStopSignal(int)
{
    const int saved = errno;
    ProcessStopToken().Request();
    errno = saved;
}

volatile sig_atomic_t g_nReloadFd = -1;

// Async-signal-safe as well: one write to the reload eventfd, whose full counter is still a request.
void OnReloadSignal(int)
{
    const int saved = errno;
    const uint64_t one = 1;
    const int fd = g_nReloadFd;
    if (fd >= 0) {
        [[maybe_unused]] const ssize_t written = write(fd, &one, sizeof(one));
    }
    errno = saved;
}

// Restarting calls keep the code that reads sockets without the token unaware of the signal.
bool Catch(int number, void (*handler)(int), struct sigaction* previous)
{
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    return sigaction(number, &action, previous) == 0;
}

bool Failed(int* error)
{
    if (error != nullptr) {
        *error = errno;
    }
    return false;
}

} // namespace

CReloadSignal::~CReloadSignal()
{
    Uninstall();
}

bool CReloadSignal::Install(int* error)
{
    Uninstall();
    m_fd.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!m_fd.IsOpen()) {
        return Failed(error);
    }
    g_nReloadFd = m_fd.Get();
    if (!Catch(SIGHUP, OnReloadSignal, &m_saHup)) {
        Failed(error);
        g_nReloadFd = -1;
        m_fd.Reset();
        return false;
    }
    m_installed = true;
    return true;
}

void CReloadSignal::Uninstall()
{
    if (m_installed) {
        sigaction(SIGHUP, &m_saHup, nullptr);
        g_nReloadFd = -1;
        m_fd.Reset();
        m_installed = false;
    }
}

bool CReloadSignal::TakeRequest()
{
    uint64_t count = 0;
    return m_fd.IsOpen() && read(m_fd.Get(), &count, sizeof(count)) == sizeof(count) && count != 0;
}

CStopSignals::CStopSignals() : m_bInstalled(false), m_saTerm(), m_saInt() {}

CStopSignals::~CStopSignals()
{
    Uninstall();
}

bool CStopSignals::Install(int* error)
{
    Uninstall();
    // The token is made here: a static's first construction inside a handler is not safe.
    ProcessStopToken();
    if (!Catch(SIGTERM, OnStopSignal, &m_saTerm)) {
        return Failed(error);
    }
    if (!Catch(SIGINT, OnStopSignal, &m_saInt)) {
        sigaction(SIGTERM, &m_saTerm, nullptr);
        return Failed(error);
    }
    m_bInstalled = true;
    return true;
}

void CStopSignals::Uninstall()
{
    if (m_bInstalled) {
        sigaction(SIGTERM, &m_saTerm, nullptr);
        sigaction(SIGINT, &m_saInt, nullptr);
        m_bInstalled = false;
    }
}

