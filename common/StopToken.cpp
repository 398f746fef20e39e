#include "common/StopToken.h"

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace GenICam {
namespace Client {

CStopToken::CStopToken() : m_nEventFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

CStopToken::~CStopToken()
{
    if (m_nEventFd >= 0) {
        close(m_nEventFd);
    }
}

int CStopToken::GetFd() const
{
    return m_nEventFd;
}

void CStopToken::Request()
{
    const uint64_t one = 1;
    // A full counter is still a request: the result does not matter.
    [[maybe_unused]] const ssize_t written = write(m_nEventFd, &one, sizeof(one));
}

bool CStopToken::IsRequested() const
{
    pollfd ready = {m_nEventFd, POLLIN, 0};
    return poll(&ready, 1, 0) > 0;
}

void CStopToken::Reset()
{
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t read_ = read(m_nEventFd, &count, sizeof(count));
}

CStopToken& ProcessStopToken()
{
    static CStopToken token;
    return token;
}

uint64_t MonotonicMs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

namespace {

int RemainingMs(uint64_t deadlineMs)
{
    const uint64_t now = MonotonicMs();
    return deadlineMs > now ? static_cast<int>(deadlineMs - now) : 0;
}

// fd -1 waits for the stop alone.
WAIT_RESULT PollWithStop(int fd, uint64_t deadlineMs, int* error)
{
    pollfd fds[2] = {{ProcessStopToken().GetFd(), POLLIN, 0}, {fd, POLLIN, 0}};
    const nfds_t count = fd < 0 ? 1 : 2;
    for (;;) {
        const int ready = poll(fds, count, RemainingMs(deadlineMs));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0) {
            if (error != nullptr) {
                *error = errno;
            }
            return WAIT_FAILED;
        }
        if ((fds[0].revents & POLLIN) != 0) {
            return WAIT_STOPPED;
        }
        if (count == 2 && fds[1].revents != 0) {
            return WAIT_READY;
        }
        if (RemainingMs(deadlineMs) == 0) {
            return WAIT_TIMEOUT;
        }
    }
}

} // namespace

WAIT_RESULT WaitReadable(int fd, uint64_t deadlineMs, int* error)
{
    return PollWithStop(fd, deadlineMs, error);
}

bool SleepUntil(uint64_t deadlineMs)
{
    return PollWithStop(-1, deadlineMs, nullptr) != WAIT_STOPPED;
}

} // namespace Client
} // namespace GenICam
