#include "common/StopToken.h"

#include "common/Progress.h"

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

namespace GenICam {
namespace Client {

CStopToken::CStopToken() : m_eventFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

int CStopToken::GetFd() const
{
    return m_eventFd.Get();
}

void CStopToken::Request()
{
    const uint64_t one = 1;
    // A full counter is still a request: the result does not matter.
    [[maybe_unused]] const ssize_t written = write(m_eventFd.Get(), &one, sizeof(one));
}

bool CStopToken::IsRequested() const
{
    pollfd ready = {m_eventFd.Get(), POLLIN, 0};
    return poll(&ready, 1, 0) > 0;
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

// No descriptors waits for the stop alone; `ready` gets the index of the first readable one.
WAIT_RESULT PollWithStop(const int* fds, size_t count, uint64_t deadlineMs, size_t* ready, int* error)
{
    std::vector<pollfd> polled(1 + count, pollfd{-1, POLLIN, 0});
    polled[0].fd = ProcessStopToken().GetFd();
    for (size_t i = 0; i < count; ++i) {
        polled[1 + i].fd = fds[i];
    }
    for (;;) {
        ExpectProgressBy(deadlineMs);
        const int result = poll(polled.data(), polled.size(), RemainingMs(deadlineMs));
        if (result < 0 && errno == EINTR) {
            continue;
        }
        if (result < 0) {
            if (error != nullptr) {
                *error = errno;
            }
            return WAIT_FAILED;
        }
        if ((polled[0].revents & POLLIN) != 0) {
            return WAIT_STOPPED;
        }
        for (size_t i = 0; i < count; ++i) {
            if (polled[1 + i].revents != 0) {
                if (ready != nullptr) {
                    *ready = i;
                }
                return WAIT_READY;
            }
        }
        if (RemainingMs(deadlineMs) == 0) {
            return WAIT_TIMEOUT;
        }
    }
}

} // namespace

WAIT_RESULT WaitReadable(int fd, uint64_t deadlineMs, int* error)
{
    return PollWithStop(&fd, 1, deadlineMs, nullptr, error);
}

WAIT_RESULT WaitAnyReadable(const int* fds, size_t count, uint64_t deadlineMs, size_t* ready, int* error)
{
    return PollWithStop(fds, count, deadlineMs, ready, error);
}

bool SleepUntil(uint64_t deadlineMs)
{
    return PollWithStop(nullptr, 0, deadlineMs, nullptr, nullptr) != WAIT_STOPPED;
}

} // namespace Client
} // namespace GenICam
