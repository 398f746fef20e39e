#include "device/ARP.h"
#include "support/LinkTest.h"

#include <arpa/inet.h>
#include <cstring>
#include <future>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <memory>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using aictest::PeerLink;
using Frame = std::vector<uint8_t>;

namespace {

// A link-level socket on the peer's end of the link: it sees the frames the probe sends.
class LinkPeer {
public:
    explicit LinkPeer(const PeerLink& link)
    {
        // setns on a thread of its own leaves the test's thread where it is.
        std::thread([this, &link] {
            if (setns(link.PeerNamespace(), CLONE_NEWNET) == 0) {
                m_fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
                m_ifindex = static_cast<int>(if_nametoindex(PeerLink::kPeerIf));
            }
        }).join();
        sockaddr_ll address;
        memset(&address, 0, sizeof(address));
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = m_ifindex;
        if (m_fd < 0 || bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::runtime_error("cannot open a packet socket on the peer link");
        }
    }
    ~LinkPeer() { close(m_fd); }
    LinkPeer(const LinkPeer&) = delete;
    LinkPeer& operator=(const LinkPeer&) = delete;

    // The first incoming frame of the ARP type, or an empty frame after timeoutMs.
    Frame NextARP(int timeoutMs)
    {
        const int64_t end = aictest::NowMs() + timeoutMs;
        for (int64_t left = timeoutMs; left > 0; left = end - aictest::NowMs()) {
            pollfd entry{m_fd, POLLIN, 0};
            if (poll(&entry, 1, static_cast<int>(left)) <= 0) {
                break;
            }
            Frame frame(1514);
            sockaddr_ll from;
            socklen_t length = sizeof(from);
            const ssize_t n =
                recvfrom(m_fd, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
            if (n >= 14 && from.sll_pkttype != PACKET_OUTGOING && frame[12] == 0x08 && frame[13] == 0x06) {
                frame.resize(static_cast<size_t>(n));
                return frame;
            }
        }
        return {};
    }

private:
    int m_fd = -1;
    int m_ifindex = 0;
};

class ArpProbe : public aictest::LinkTest {
protected:
    void SetUp() override
    {
        LinkTest::SetUp();
        m_peer.reset(new LinkPeer(*m_link));
        m_mac = aictest::MacOf(PeerLink::kHostIf);
        ASSERT_EQ(m_mac.size(), 17u);
    }

    // Runs the probe while the silent peer watches the link; returns the probe's answer and the request seen.
    bool Probe(const char* localIP, const char* probeIP, Frame& seen, int64_t& elapsedMs)
    {
        std::future<Frame> watcher = std::async(std::launch::async, [this] { return m_peer->NextARP(2000); });
        const int64_t start = aictest::NowMs();
        const bool taken = CARP().DetectIP(localIP, probeIP, m_mac.c_str(), PeerLink::kHostIf);
        elapsedMs = aictest::NowMs() - start;
        seen = watcher.get();
        return taken;
    }

    std::unique_ptr<LinkPeer> m_peer;
    std::string m_mac;
};

} // namespace

TEST_F(ArpProbe, SendsTheHandBuiltFrameAndSilenceMeansFreeAfterOneSecond)
{
    Frame seen;
    int64_t elapsed = 0;
    EXPECT_FALSE(Probe("10.77.0.1", "10.77.0.23", seen, elapsed));
    std::cout << "[ measured ] ARP probe silence: " << elapsed << " ms\n";
    EXPECT_GE(elapsed, 950);
    EXPECT_LT(elapsed, 1500);

    Frame expected(60);
    memset(&expected[0], 0xFF, 5); // the sixth destination byte stays 0
    unsigned int mac[6];
    ASSERT_EQ(sscanf(m_mac.c_str(), "%x-%x-%x-%x-%x-%x", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]), 6);
    for (int i = 0; i < 6; ++i) {
        expected[6 + i] = static_cast<uint8_t>(mac[i]);
        expected[22 + i] = static_cast<uint8_t>(mac[i]);
    }
    const uint8_t head[] = {0x08, 0x06, 0x00, 0x01, 0x08, 0x00, 6, 4, 0x00, 0x01};
    memcpy(&expected[12], head, sizeof(head));
    const uint8_t candidate[] = {10, 77, 0, 23};
    const uint8_t local[] = {10, 77, 0, 1};
    memcpy(&expected[28], candidate, 4); // sender: the candidate
    memcpy(&expected[38], local, 4);     // target: our own address
    EXPECT_EQ(seen, expected);
}

TEST_F(ArpProbe, OwnAddressIsTakenWithoutAFrame)
{
    Frame seen;
    int64_t elapsed = 0;
    EXPECT_TRUE(Probe("10.77.0.1", "10.77.0.1", seen, elapsed));
    EXPECT_LT(elapsed, 50);
    EXPECT_TRUE(seen.empty()) << "nothing may be sent";
    // Not even an interface is needed.
    EXPECT_TRUE(CARP().DetectIP("10.1.2.3", "10.1.2.3", "00-00-00-00-00-00", "no-such-if"));
}
