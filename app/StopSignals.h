#pragma once

#include <signal.h>

// SIGTERM and SIGINT request the process's stop token (common/StopToken.h), which every wait polls:
// the waits end, control privilege is given back, and the process exits 0. Another signal of either
// kind while stopping changes nothing.
class CStopSignals {
public:
    CStopSignals();
    ~CStopSignals();
    CStopSignals(const CStopSignals&) = delete;
    CStopSignals& operator=(const CStopSignals&) = delete;

    // false with the errno in `error` (may be null) when a handler cannot be set.
    bool Install(int* error);
    // Puts the handlers found by Install back.
    void Uninstall();

private:
    bool m_bInstalled;
    struct sigaction m_saTerm;
    struct sigaction m_saInt;
};

