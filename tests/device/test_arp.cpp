#include "device/ARP.h"
#include "support/NetNamespace.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <future>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <unistd.h>
#include <vector>

using Frame = std::vector<uint8_t>;

namespace {

const uint8_t kMac[6] = {0x02, 0x00, 0x00, 0x00, 0xFA, 0x01};
const uint8_t kOther[6] = {0x02, 0x00, 0x00, 0x00, 0xFA, 0x02};
const uint8_t kNone[6] = {0};

Frame Of(const ARP_PACKET& packet)
{
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&packet);
    return Frame(p, p + sizeof(packet));
}

// A broadcast ARP frame from `sender`, written out offset by offset.
Frame Arp(uint16_t operation, const uint8_t* sender, const char* senderIp, const char* targetIp,
          const uint8_t* targetMac = kNone, uint16_t type = 0x0806)
{
    Frame f(60, 0xFF);
    memcpy(&f[6], sender, 6);
    const uint8_t head[] = {uint8_t(type >> 8), uint8_t(type), 0, 1, 8, 0, 6, 4, 0, uint8_t(operation)};
    memcpy(&f[12], head, sizeof(head));
    memcpy(&f[22], sender, 6);
    const in_addr_t addresses[] = {inet_addr(senderIp), inet_addr(targetIp)};
    memcpy(&f[28], &addresses[0], 4);
    memcpy(&f[32], targetMac, 6);
    memcpy(&f[38], &addresses[1], 4);
    std::fill(f.begin() + 42, f.end(), 0);
    return f;
}

Frame With(Frame frame, size_t offset, uint8_t value)
{
    frame[offset] = value;
    return frame;
}

Frame Cut(Frame frame, size_t length)
{
    frame.resize(length);
    return frame;
}

ARP_PACKET Packet(const Frame& frame)
{
    ARP_PACKET packet;
    memcpy(&packet, frame.data(), sizeof(packet));
    return packet;
}

// A reply to the probe of kMac: the probe's socket listens for the reverse-ARP type.
Frame Reply(uint16_t operation, const char* senderIp, const uint8_t* targetMac, uint16_t type = 0x8035)
{
    return Arp(operation, kOther, senderIp, "0.0.0.0", targetMac, type);
}

const uint32_t kLocalSeven = inet_addr("7.0.0.0"); // 7: below 256, so the one-byte compare can match

} // namespace

TEST(ArpFrame, ProbesByteForByte)
{
    // The address probe claims the candidate and asks for our own address, to FF-FF-FF-FF-FF-00.
    EXPECT_EQ(Of(EncodeArpProbe(kMac, inet_addr("10.77.0.1"), inet_addr("10.77.0.23"))),
              With(Arp(1, kMac, "10.77.0.23", "10.77.0.1"), 5, 0));
    // The conflict probe asks for the candidate from no address, to broadcast.
    EXPECT_EQ(Of(EncodeArpConflictProbe(kMac, inet_addr("192.168.1.11"))), Arp(1, kMac, "0.0.0.0", "192.168.1.11"));
}

TEST(ArpFrame, ReplyTestAndEveryRejection)
{
    const struct {
        const char* name;
        Frame frame;
        uint32_t local;
        ARP_REJECTION expected;
    } cases[] = {
        {"reply to us", Reply(2, "7.0.0.0", kMac), kLocalSeven, ARP_MATCH},
        {"a request", Reply(1, "7.0.0.0", kMac), kLocalSeven, ARP_REJECT_OPERATION},
        {"only the first sender byte counts", Reply(2, "10.77.0.1", kMac), inet_addr("10.77.0.1"), ARP_REJECT_SENDER},
        {"first byte alone matches", Reply(2, "10.77.0.1", kMac), 10, ARP_MATCH},
        {"reply to another MAC", Reply(2, "7.0.0.0", kOther), kLocalSeven, ARP_REJECT_TARGET_MAC},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MatchArpReply(Packet(c.frame), c.local, kMac), c.expected) << c.name;
    }
}

namespace {

// The probe on one end of a veth pair; the other end sends one frame back for each request.
class ArpProbe : public aictest::NetNamespaceTest {
protected:
    void SetUp() override
    {
        NetNamespaceTest::SetUp();
        Sh("ip link add pr0 address 02:00:00:00:fa:01 type veth peer name pr1 && ip link set pr0 up && "
           "ip link set pr1 up");
        m_peer = socket(AF_PACKET, SOCK_RAW, htons(0x0806));
        sockaddr_ll address = {};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(0x0806);
        address.sll_ifindex = static_cast<int>(if_nametoindex("pr1"));
        ASSERT_EQ(bind(m_peer, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        m_to = address;
    }
    void TearDown() override { close(m_peer); }

    // Runs the probe while the peer answers (or not); the request the peer saw comes back in seen.
    bool Probe(const char* local, const Frame& answer, Frame& seen, int64_t& ms)
    {
        std::future<Frame> peer = std::async(std::launch::async, [&] {
            Frame request(1514);
            pollfd ready = {m_peer, POLLIN, 0};
            if (poll(&ready, 1, 1500) != 1) {
                return Frame();
            }
            request.resize(static_cast<size_t>(recv(m_peer, request.data(), request.size(), 0)));
            if (!answer.empty()) {
                sendto(m_peer, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&m_to), sizeof(m_to));
            }
            return request;
        });
        const auto start = std::chrono::steady_clock::now();
        const bool taken = CARP().DetectIP(local, "10.98.0.20", "02-00-00-00-FA-01", "pr0");
        ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
        seen = peer.get();
        return taken;
    }

    int m_peer = -1;
    sockaddr_ll m_to = {};
};

} // namespace

TEST_F(ArpProbe, ListensForTheReverseArpTypeAndWaitsOneSecondAtMost)
{
    const struct {
        const char* name;
        const char* local;
        Frame answer;
        bool taken;
        int64_t minMs, maxMs;
    } cases[] = {
        {"matching reply of the listened type", "7.0.0.0", Reply(2, "7.0.0.0", kMac), true, 0, 500},
        {"the same reply as ARP is not heard: a second's wait", "7.0.0.0", Reply(2, "7.0.0.0", kMac, 0x0806), false,
         950, 1500},
        {"own address: taken, nothing sent", "10.98.0.20", {}, true, 0, 50},
    };
    for (const auto& c : cases) {
        Frame seen;
        int64_t ms = 0;
        EXPECT_EQ(Probe(c.local, c.answer, seen, ms), c.taken) << c.name;
        EXPECT_GE(ms, c.minMs) << c.name;
        EXPECT_LT(ms, c.maxMs) << c.name;
        EXPECT_EQ(seen.size(), c.maxMs == 50 ? 0u : 60u) << c.name;
    }
}

namespace {

const uint8_t kPlc[6] = {0x02, 0x00, 0x00, 0x00, 0xAA, 0x01};

} // namespace

// What the conflict probe and the announcement watch make of each frame.
TEST(ArpFrame, ClaimAndAnnouncementOfEveryFrameALinkCarries)
{
    const ARP_CLAIM_KIND reply = ARP_CLAIM_REPLY, request = ARP_CLAIM_REQUEST, none = ARP_CLAIM_NONE;
    const ARP_ANNOUNCEMENT_KIND probe = ARP_ANNOUNCEMENT_PROBE, claims = ARP_ANNOUNCEMENT_CLAIM,
                                neither = ARP_ANNOUNCEMENT_NONE;
    const struct {
        const char* name;
        Frame frame;
        ARP_CLAIM_KIND kind;
        ARP_ANNOUNCEMENT_KIND heard;
        const char* address;
    } cases[] = {
        {"Linux answers a probe", Arp(2, kPlc, "192.168.1.11", "0.0.0.0"), reply, neither, "192.168.1.11"},
        {"a request claims its sender address", Arp(1, kPlc, "192.168.1.11", "192.168.1.1"), request, neither,
         "192.168.1.11"},
        {"an announcement", Arp(1, kPlc, "192.168.1.11", "192.168.1.11"), request, claims, "192.168.1.11"},
        {"an unpadded announcement", Cut(Arp(1, kPlc, "10.0.0.7", "10.0.0.7"), 42), request, claims, "10.0.0.7"},
        {"a gratuitous reply", Arp(2, kPlc, "10.0.0.7", "10.0.0.7"), reply, claims, "10.0.0.7"},
        {"another host probing", Arp(1, kPlc, "0.0.0.0", "192.168.1.11"), ARP_CLAIM_PROBE, probe, "192.168.1.11"},
        {"our own announcement", Arp(1, kMac, "10.0.0.7", "10.0.0.7"), none, neither, "0.0.0.0"},
        {"a reply from no address", Arp(2, kPlc, "0.0.0.0", "192.168.1.11"), none, neither, "0.0.0.0"},
        {"cut short", Cut(Arp(2, kPlc, "192.168.1.11", "192.168.1.11"), 41), none, neither, "0.0.0.0"},
        {"reverse ARP", With(Arp(2, kPlc, "192.168.1.11", "0.0.0.0"), 13, 0x35), none, neither, "0.0.0.0"},
        {"operation 3", With(Arp(2, kPlc, "192.168.1.11", "0.0.0.0"), 21, 3), none, neither, "0.0.0.0"},
        {"hardware length 8", With(Arp(2, kPlc, "192.168.1.11", "0.0.0.0"), 18, 8), none, neither, "0.0.0.0"},
    };
    for (const auto& c : cases) {
        const ARP_CLAIM claim = ReadArpClaim(c.frame.data(), c.frame.size(), kMac);
        EXPECT_EQ(claim.nKind, c.kind) << c.name;
        EXPECT_EQ(claim.dwAddress, c.kind == none ? 0u : inet_addr(c.address)) << c.name;
        EXPECT_TRUE(c.kind == none || memcmp(claim.aMAC, kPlc, 6) == 0) << c.name;
        const ARP_ANNOUNCEMENT heard = ReadArpAnnouncement(c.frame.data(), c.frame.size(), kMac);
        EXPECT_EQ(heard.nKind, c.heard) << c.name;
        EXPECT_EQ(heard.dwAddress, c.heard == neither ? 0u : inet_addr(c.address)) << c.name;
        EXPECT_EQ(memcmp(heard.aMAC, kPlc, 6) == 0, c.heard != neither) << c.name;
    }
}
