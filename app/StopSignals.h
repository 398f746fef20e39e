#pragma once

#include "common/UniqueFd.h"

#include <signal.h>

// SIGHUP asks for the configuration to be read again: its descriptor becomes readable until the request
// is taken. The signal neither stops the process nor ends a wait. One instance at a time.
class CReloadSignal {
public:
    CReloadSignal() = default;
    ~CReloadSignal();
    CReloadSignal(const CReloadSignal&) = delete;
    CReloadSignal& operator=(const CReloadSignal&) = delete;

    // false with the errno in `error` (may be null) when the descriptor or the handler cannot be made.
    bool Install(int* error);
    void Uninstall();

    // To poll beside the others; -1 before Install.
    int GetFd() const { return m_fd.Get(); }
    // Whether a reload was asked for since the last call; several signals make one request.
    bool TakeRequest();

private:
    GenICam::Client::CUniqueFd m_fd;
    bool m_installed = false;
    struct sigaction m_saHup = {};
};

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

