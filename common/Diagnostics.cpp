#include "common/Diagnostics.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace GenICam {
namespace Client {
namespace Helper {

namespace {

std::atomic<bool> g_bDiagnostics(false);

double MonotonicSeconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Taken at static initialisation, so the stamps count from the start of the process.
const double g_dStart = MonotonicSeconds();

} // namespace

void SetDiagnostics(bool enabled)
{
    g_bDiagnostics = enabled;
}

bool IsDiagnostics()
{
    return g_bDiagnostics;
}

void Diag(const char* format, ...)
{
    if (!g_bDiagnostics) {
        return;
    }
    char line[1024];
    int used = snprintf(line, sizeof(line), "[%7.3f] ", MonotonicSeconds() - g_dStart);
    va_list args;
    va_start(args, format);
    const int text = vsnprintf(line + used, sizeof(line) - used - 1, format, args);
    va_end(args);
    used += text < 0 ? 0 : text;
    if (used > static_cast<int>(sizeof(line)) - 2) {
        used = sizeof(line) - 2;  // cut, but keep the line end
    }
    line[used++] = '\n';
    // One write per line: stderr is unbuffered and a short write to a pipe is not interleaved.
    ssize_t written = write(STDERR_FILENO, line, used);
    (void)written;
}

} // namespace Helper
} // namespace Client
} // namespace GenICam
