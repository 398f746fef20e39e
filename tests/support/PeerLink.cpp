#include "support/PeerLink.h"

#include "support/NetNamespace.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace aictest {

namespace {

int OpenOwnNamespace()
{
    const int fd = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error("cannot open the thread's network namespace");
    }
    return fd;
}

// Makes a fresh namespace and returns a descriptor of it, leaving the caller where it was.
int NewDetachedNamespace()
{
    const int home = OpenOwnNamespace();
    if (unshare(CLONE_NEWNET) != 0) {
        close(home);
        throw std::runtime_error("unshare(CLONE_NEWNET) failed: needs root");
    }
    const int peer = OpenOwnNamespace();
    const int back = setns(home, CLONE_NEWNET);
    close(home);
    if (back != 0) {
        // Staying in the new namespace would send the rest of the test to the wrong place.
        abort();
    }
    return peer;
}

} // namespace

void Run(const std::string& command)
{
    if (system(command.c_str()) != 0) {
        throw std::runtime_error("command failed: " + command);
    }
}

PeerLink::PeerLink() : m_peerFd(NewDetachedNamespace())
{
    try {
        Run(std::string("ip link add ") + kHostIf + " type veth peer name " + kPeerIf + " netns " + __PeerPath());
        Run(std::string("ip addr add 10.77.0.1/24 dev ") + kHostIf + " && ip link set " + kHostIf + " up");
        // The default route gives the peer's limited broadcasts a way out of aic1.
        InPeer(std::string("ip link set lo up && ip addr add 10.77.0.2/24 dev ") + kPeerIf + " && ip link set " +
               kPeerIf + " up && ip route add default dev " + kPeerIf);
        __WaitUntilUp(kHostIf, kPeerIf);
    } catch (...) {
        close(m_peerFd);
        throw;
    }
}

PeerLink::~PeerLink()
{
    close(m_peerFd);
}

void PeerLink::InPeer(const std::string& command) const
{
    Run("nsenter --net=" + __PeerPath() + " sh -c '" + command + "'");
}

void PeerLink::AddLink(const std::string& name, const std::string& hostCidr, const std::string& peerCidr) const
{
    Run("ip link add " + name + " type veth peer name p" + name + " netns " + __PeerPath());
    Run("ip addr add " + hostCidr + " dev " + name + " && ip link set " + name + " up");
    InPeer("ip addr add " + peerCidr + " dev p" + name + " && ip link set p" + name + " up");
    __WaitUntilUp(name, "p" + name);
}

void PeerLink::__WaitUntilUp(const std::string& hostIf, const std::string& peerIf) const
{
    // The kernel drops what is sent before it has marked both ends up, which it does up to a second late.
    const std::string host = "ip -o link show " + hostIf;
    const std::string peer = "nsenter --net=" + __PeerPath() + " ip -o link show " + peerIf;
    for (int i = 0; i < 300; ++i) {
        const bool up = Capture(host).find("state UP") != std::string::npos;
        if (up && Capture(peer).find("state UP") != std::string::npos) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("veth link did not come up");
}

std::string PeerLink::__PeerPath() const
{
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_peerFd);
}

} // namespace aictest
