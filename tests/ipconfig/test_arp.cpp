#include "ipconfig/ARP.h"
#include "support/NetNamespace.h"
#include "support/PeerLink.h"

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <functional>
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
#include <unistd.h>
#include <vector>

using aictest::PeerLink;
using Frame = std::vector<uint8_t>;

namespace {

int64_t MonotonicMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// A link-level socket on the peer's end of the link: it sees the frames the probe sends and can
// answer with any frame.
class LinkPeer {
public:
    explicit LinkPeer(const PeerLink& link)
    {
        const int home = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        if (home < 0 || setns(link.PeerNamespace(), CLONE_NEWNET) != 0) {
            throw std::runtime_error("cannot enter the peer namespace");
        }
        m_fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
        m_ifindex = static_cast<int>(if_nametoindex(PeerLink::kPeerIf));
        if (setns(home, CLONE_NEWNET) != 0) {
            abort(); // the rest of the test would run in the wrong namespace
        }
        close(home);
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
        const int64_t end = MonotonicMs() + timeoutMs;
        for (int64_t left = timeoutMs; left > 0; left = end - MonotonicMs()) {
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

    void Send(const Frame& frame)
    {
        sockaddr_ll to;
        memset(&to, 0, sizeof(to));
        to.sll_family = AF_PACKET;
        to.sll_ifindex = m_ifindex;
        to.sll_halen = 6;
        memcpy(to.sll_addr, frame.data(), 6);
        sendto(m_fd, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to));
    }

private:
    int m_fd = -1;
    int m_ifindex = 0;
};

// What the peer does with the request it sees: nothing, or answer with a frame made from it.
using Answer = std::function<Frame(const Frame& request)>;

// The kind of frame the probe's socket takes in: the RARP type, with ARP fields.
Frame ReplyTo(const Frame& request, uint16_t operation, std::array<uint8_t, 4> sender, bool toProbeMac)
{
    Frame reply(60);
    memcpy(&reply[0], &request[6], 6);
    const uint8_t peerMac[6] = {0x02, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    memcpy(&reply[6], peerMac, 6);
    reply[12] = 0x80;
    reply[13] = 0x35;
    reply[15] = 1;
    reply[16] = 0x08;
    reply[18] = 6;
    reply[19] = 4;
    reply[21] = static_cast<uint8_t>(operation);
    memcpy(&reply[22], peerMac, 6);
    memcpy(&reply[28], sender.data(), 4);
    memcpy(&reply[32], toProbeMac ? &request[6] : peerMac, 6);
    return reply;
}

class ArpProbe : public aictest::NetNamespaceTest {
protected:
    void SetUp() override
    {
        NetNamespaceTest::SetUp();
        m_link.reset(new PeerLink);
        m_peer.reset(new LinkPeer(*m_link));
        m_mac = aictest::Capture(std::string("ip -br link show ") + PeerLink::kHostIf +
                                 " | awk '{print $3}' | tr a-f: A-F-")
                    .substr(0, 17);
        ASSERT_EQ(m_mac.size(), 17u);
    }

    // Runs the probe while the peer watches the link; returns the probe's answer and the request seen.
    bool Probe(const char* localIP, const char* probeIP, const Answer& answer, Frame& seen, int64_t& elapsedMs)
    {
        std::future<Frame> watcher = std::async(std::launch::async, [this, &answer] {
            Frame request = m_peer->NextARP(2000);
            if (!request.empty() && answer) {
                m_peer->Send(answer(request));
            }
            return request;
        });
        const int64_t start = MonotonicMs();
        const bool taken = CARP().DetectIP(localIP, probeIP, m_mac.c_str(), PeerLink::kHostIf);
        elapsedMs = MonotonicMs() - start;
        seen = watcher.get();
        return taken;
    }

    std::unique_ptr<PeerLink> m_link;
    std::unique_ptr<LinkPeer> m_peer;
    std::string m_mac;
};

} // namespace

TEST_F(ArpProbe, SendsTheHandBuiltFrame)
{
    Frame seen;
    int64_t elapsed = 0;
    EXPECT_FALSE(Probe("10.77.0.1", "10.77.0.23", nullptr, seen, elapsed));

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

TEST_F(ArpProbe, OnlyAMatchingReplyOfTheFilteredTypeCountsAsTaken)
{
    // The reply's first sender byte is compared with the whole local address, so only local
    // addresses whose inet_addr value is below 256 (first byte n, then zeros) can ever match,
    // and a reply from exactly our own address never does.
    const struct {
        const char* name;
        const char* localIP;
        uint16_t operation;
        std::array<uint8_t, 4> sender;
        bool toProbeMac;
        bool taken;
    } cases[] = {
        {"matching reply", "7.0.0.0", 2, {{7, 77, 0, 1}}, true, true},
        {"another request", "7.0.0.0", 1, {{7, 77, 0, 1}}, true, false},
        {"reply to another MAC", "7.0.0.0", 2, {{7, 77, 0, 1}}, false, false},
        {"other sender byte", "7.0.0.0", 2, {{8, 0, 0, 0}}, true, false},
        {"ordinary local address", "10.77.0.1", 2, {{10, 77, 0, 1}}, true, false},
    };
    for (const auto& c : cases) {
        const Answer answer = [&c](const Frame& request) {
            return ReplyTo(request, c.operation, c.sender, c.toProbeMac);
        };
        Frame seen;
        int64_t elapsed = 0;
        EXPECT_EQ(Probe(c.localIP, "10.77.0.23", answer, seen, elapsed), c.taken) << c.name;
        EXPECT_FALSE(seen.empty()) << c.name;
        EXPECT_LT(elapsed, 900) << c.name << ": the reply ends the wait";
    }
}

TEST_F(ArpProbe, SilenceMeansFreeAfterOneSecond)
{
    Frame seen;
    int64_t elapsed = 0;
    EXPECT_FALSE(Probe("10.77.0.1", "10.77.0.23", nullptr, seen, elapsed));
    std::cout << "[ measured ] ARP probe silence: " << elapsed << " ms\n";
    EXPECT_GE(elapsed, 950);
    EXPECT_LT(elapsed, 1500);
}

TEST_F(ArpProbe, OwnAddressIsTakenWithoutAFrame)
{
    Frame seen;
    int64_t elapsed = 0;
    EXPECT_TRUE(Probe("10.77.0.1", "10.77.0.1", nullptr, seen, elapsed));
    EXPECT_LT(elapsed, 50);
    EXPECT_TRUE(seen.empty()) << "nothing may be sent";
    // Not even an interface is needed.
    EXPECT_TRUE(CARP().DetectIP("10.1.2.3", "10.1.2.3", "00-00-00-00-00-00", "no-such-if"));
}
