#include "common/StopWatch.h"

namespace GenICam {
namespace Client {

CStopWatch::CStopWatch() : m_tvNow(), m_tz(), m_nStartMs(0), m_nStopMs(0), m_tsTick() {}

// Elapsed time runs on CLOCK_MONOTONIC too, so a stepped wall clock cannot end the runner's time budget.
int64_t CStopWatch::ReadWallClockMs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    m_tvNow.tv_sec = now.tv_sec;
    m_tvNow.tv_usec = now.tv_nsec / 1000;
    return static_cast<int64_t>(m_tvNow.tv_sec) * 1000 + m_tvNow.tv_usec / 1000;
}

void CStopWatch::Start()
{
    m_nStartMs = ReadWallClockMs();
}

double CStopWatch::Stop(bool restart)
{
    m_nStopMs = ReadWallClockMs();
    const double elapsed = static_cast<int>(ElapsedTime());
    if (restart) {
        m_nStartMs = m_nStopMs;
    }
    return elapsed;
}

int64_t CStopWatch::ElapsedTime() const
{
    return m_nStopMs - m_nStartMs;
}

int64_t CStopWatch::GetTickCount()
{
    clock_gettime(CLOCK_MONOTONIC, &m_tsTick);
    return static_cast<int64_t>(m_tsTick.tv_sec) * 1000 + m_tsTick.tv_nsec / 1000000;
}

} // namespace Client
} // namespace GenICam
