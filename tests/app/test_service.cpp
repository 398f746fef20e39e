#include "app/ServiceNotify.h"
#include "app/StopSignals.h"
#include "common/Progress.h"
#include "common/StopToken.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <poll.h>
#include <sys/socket.h>
#include <pthread.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using namespace GenICam::Client;

namespace {

struct HEARD {
    uint64_t nAtMs;
    std::string strText;
};

// A service manager's end of the notify protocol: a datagram socket in a directory of its own.
class NotifySocket : public ::testing::Test {
protected:
    void SetUp() override
    {
        char dir[] = "/tmp/aic-notify-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        m_dir = dir;
        m_path = m_dir + "/notify";
        m_socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, m_path.c_str(), sizeof(address.sun_path) - 1);
        ASSERT_EQ(bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        setenv("NOTIFY_SOCKET", m_path.c_str(), 1);
        setenv("WATCHDOG_USEC", "200000", 1);
        unsetenv("WATCHDOG_PID");
    }
    void TearDown() override
    {
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
        close(m_socket);
        unlink(m_path.c_str());
        rmdir(m_dir.c_str());
    }

    // Everything heard for `ms`; with `bump`, the process makes progress every 10 ms meanwhile.
    std::vector<HEARD> Listen(uint64_t ms, bool bump)
    {
        std::vector<HEARD> heard;
        const uint64_t end = MonotonicMs() + ms;
        for (uint64_t now = MonotonicMs(); now < end; now = MonotonicMs()) {
            if (bump) {
                BumpProgress();
            }
            // A plain poll: the product's waits count as progress themselves.
            pollfd ready = {m_socket, POLLIN, 0};
            if (poll(&ready, 1, static_cast<int>(std::min<uint64_t>(end - now, 10))) > 0) {
                char text[256];
                const ssize_t length = recv(m_socket, text, sizeof(text), 0);
                heard.push_back({MonotonicMs(), std::string(text, length > 0 ? static_cast<size_t>(length) : 0)});
            }
        }
        return heard;
    }

    std::string m_dir;
    std::string m_path;
    int m_socket = -1;
};

std::string Texts(const std::vector<HEARD>& heard)
{
    std::string out;
    for (const auto& h : heard) {
        out += h.strText + "|";
    }
    return out;
}

// The longest silence from `startMs` to now.
uint64_t LongestGap(uint64_t startMs, const std::vector<HEARD>& heard)
{
    uint64_t gap = 0;
    for (const auto& h : heard) {
        gap = std::max(gap, h.nAtMs - startMs);
        startMs = h.nAtMs;
    }
    return std::max(gap, MonotonicMs() - startMs);
}

} // namespace

TEST_F(NotifySocket, ReadyStatusAndStoppingAsOneLineEach)
{
    CServiceNotify notify;
    EXPECT_GT(notify.Ready(), 0);
    EXPECT_GT(notify.Status("pass 3: 2 cameras\nREADY=1"), 0);
    EXPECT_GT(notify.Stopping(), 0);
    EXPECT_EQ(Texts(Listen(100, false)), "READY=1|STATUS=pass 3: 2 cameras READY=1|STOPPING=1|");
}

TEST_F(NotifySocket, WatchdogOnlyWhileTheProcessMakesProgress)
{
    CServiceNotify notify;
    ASSERT_TRUE(notify.StartWatchdog());
    EXPECT_FALSE(notify.StartWatchdog()) << "one pinger";

    uint64_t start = MonotonicMs();
    std::vector<HEARD> heard = Listen(600, true);
    EXPECT_LE(LongestGap(start, heard), 100u) << "bumped: " << heard.size() << " pings";
    EXPECT_EQ(Texts(heard).find("WATCHDOG=1|"), 0u);

    Listen(100, false); // the last bumps' ping
    EXPECT_TRUE(Listen(400, false).empty()) << "a hung process is not kept alive";

    // A wait that announced its end counts as progress until then, without a bump.
    start = MonotonicMs();
    ExpectProgressBy(start + 400);
    heard = Listen(350, false);
    EXPECT_LE(LongestGap(start, heard), 100u) << "announced wait: " << heard.size() << " pings";
    Listen(150, false);
    EXPECT_TRUE(Listen(300, false).empty()) << "silent once the announced end passed";

    const uint64_t stopping = MonotonicMs();
    notify.StopWatchdog();
    EXPECT_LT(MonotonicMs() - stopping, 50u);
}

TEST_F(NotifySocket, NoPingerWithoutAManagerOrAWatchdog)
{
    const struct {
        bool socket;
        const char* watchdog;
        const char* pid;
    } cases[] = {
        {false, "200000", nullptr},
        {true, nullptr, nullptr},
        {true, "200000", "1"}, // the watchdog is another process's
    };
    for (const auto& c : cases) {
        c.socket ? setenv("NOTIFY_SOCKET", m_path.c_str(), 1) : unsetenv("NOTIFY_SOCKET");
        c.watchdog ? setenv("WATCHDOG_USEC", c.watchdog, 1) : unsetenv("WATCHDOG_USEC");
        c.pid ? setenv("WATCHDOG_PID", c.pid, 1) : unsetenv("WATCHDOG_PID");
        CServiceNotify notify;
        EXPECT_EQ(notify.IsEnabled(), c.socket);
        EXPECT_FALSE(notify.StartWatchdog());
        EXPECT_EQ(notify.Ready() > 0, c.socket);
    }
    EXPECT_EQ(Texts(Listen(50, true)), "READY=1|READY=1|");
    unsetenv("WATCHDOG_PID");
}

TEST(StopSignals, TermAndIntRequestTheStopAndUninstallRestores)
{
    for (const int number : {SIGTERM, SIGINT}) {
        struct sigaction previous = {};
        previous.sa_handler = SIG_IGN;
        ASSERT_EQ(sigaction(number, &previous, nullptr), 0);
        // The stop cannot be taken back: each signal is tried in a child process of its own.
        EXPECT_EXIT(
            {
                CStopSignals signals;
                const bool installed = signals.Install(nullptr);
                const bool before = ProcessStopToken().IsRequested();
                raise(number);
                const bool requested = ProcessStopToken().IsRequested();
                raise(number);  // a second signal while stopping is harmless
                signals.Uninstall();
                struct sigaction now = {};
                sigaction(number, nullptr, &now);
                _exit(installed && !before && requested && now.sa_handler == SIG_IGN ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "")
            << number;
        signal(number, SIG_DFL);
    }
}

// SIGHUP while a wait runs: the wait goes on to its deadline, the request waits on its descriptor.
TEST(ReloadSignal, HupIsARequestThatEndsNoWaitAndUninstallRestores)
{
    struct sigaction previous = {};
    previous.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGHUP, &previous, nullptr), 0);
    CReloadSignal reload;
    ASSERT_TRUE(reload.Install(nullptr));
    EXPECT_FALSE(reload.TakeRequest());
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    const pthread_t waiter = pthread_self();
    std::thread sender([waiter] {
        usleep(50 * 1000);
        pthread_kill(waiter, SIGHUP);
        pthread_kill(waiter, SIGHUP);
    });
    const uint64_t start = MonotonicMs();
    EXPECT_EQ(WaitReadable(pipeFds[0], start + 300, nullptr), WAIT_TIMEOUT);
    EXPECT_GE(MonotonicMs() - start, 300u);
    sender.join();
    EXPECT_FALSE(ProcessStopToken().IsRequested());
    size_t ready = 9;
    const int fds[] = {pipeFds[0], reload.GetFd()};
    EXPECT_EQ(WaitAnyReadable(fds, 2, MonotonicMs(), &ready, nullptr), WAIT_READY);
    EXPECT_EQ(ready, 1u);
    EXPECT_TRUE(reload.TakeRequest());
    EXPECT_FALSE(reload.TakeRequest()) << "two signals, one request";
    reload.Uninstall();
    EXPECT_EQ(reload.GetFd(), -1);
    struct sigaction now = {};
    sigaction(SIGHUP, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_IGN);
    close(pipeFds[0]);
    close(pipeFds[1]);
    signal(SIGHUP, SIG_DFL);
}
