#include "app/StopSignals.h"

#include "common/StopToken.h"

#include <cerrno>
#include <cstring>

using namespace GenICam::Client;

namespace {

// Async-signal-safe: the token's request is one write to its eventfd.
void OnStopSignal(int)
{
    const int saved = errno;
    ProcessStopToken().Request();
    errno = saved;
}

bool Failed(int* error)
{
    if (error != nullptr) {
        *error = errno;
    }
    return false;
}

} // namespace

CStopSignals::CStopSignals() : m_bInstalled(false), m_saTerm(), m_saInt() {}

CStopSignals::~CStopSignals()
{
    Uninstall();
}

// Restarting calls keep the code that reads sockets without the token unaware of the signal.
bool CStopSignals::Install(int* error)
{
    Uninstall();
    // The token is made here: a static's first construction inside a handler is not safe.
    ProcessStopToken();
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = OnStopSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    if (sigaction(SIGTERM, &action, &m_saTerm) != 0) {
        return Failed(error);
    }
    if (sigaction(SIGINT, &action, &m_saInt) != 0) {
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

