#pragma once

#include <cstdint>
#include <ctime>
#include <sys/time.h>

namespace GenICam {
namespace Client {

// Millisecond stopwatch and tick count, both on the monotonic clock.
class CStopWatch {
public:
    CStopWatch();

    void Start();
    double Stop(bool restart);
    int64_t ElapsedTime() const;
    int64_t GetTickCount();

private:
    int64_t ReadWallClockMs();

    timeval m_tvNow;
    [[maybe_unused]] struct timezone m_tz;  // kept with the stopwatch; elapsed time no longer reads the wall clock
    int64_t m_nStartMs;
    int64_t m_nStopMs;
    timespec m_tsTick;
};

} // namespace Client
} // namespace GenICam
