#include "link/AnnouncementFilter.h"
#include "link/ArpWatch.h"
#include "common/StopToken.h"
#include "support/NetNamespace.h"

#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace GenICam::Client;

namespace {

const uint8_t kA[6] = {2, 0, 0, 0, 0, 0xA};
const uint8_t kB[6] = {2, 0, 0, 0, 0, 0xB};
const uint8_t kC[6] = {2, 0, 0, 0, 0, 0xC};
const uint8_t kD[6] = {2, 0, 0, 0, 0, 0xD};

} // namespace

TEST(AnnouncementFilter, NewMacsStartAtMostOnePassPerWindowAndTheMemoryIsBounded)
{
    enum Op { HEARD, DUE, FORGET };
    const struct {
        Op op;
        const uint8_t* mac;
        uint64_t atMs;
        bool pass;
        uint64_t dueAtMs;
        const char* why;
    } steps[] = {
        {HEARD, kA, 0, true, 0, "the first MAC starts a pass"},
        {HEARD, kA, 10, false, 0, "a MAC heard before does not"},
        {HEARD, kB, 20, false, 1000, "a new MAC inside the window is held back"},
        {HEARD, kC, 500, false, 1000, "and so is the next, to the same pass"},
        {DUE, nullptr, 999, false, 1000, "not before the window ends"},
        {DUE, nullptr, 1000, true, 0, "the held-back pass at the window's end"},
        {DUE, nullptr, 1001, false, 0, "once"},
        {HEARD, kD, 2500, true, 0, "a fourth MAC: the least recent, A, is forgotten"},
        {HEARD, kB, 2600, false, 0, "B is still remembered, and is now the most recent"},
        {HEARD, kA, 3600, true, 0, "A is new again; C goes"},
        {HEARD, kC, 3700, false, 4600, "C is new again, inside the window"},
        {DUE, nullptr, 4600, true, 0, "held back to the window's end"},
        {FORGET, kB, 5000, false, 0, "a camera gone from the link is forgotten"},
        {HEARD, kB, 5700, true, 0, "so its return starts a pass"},
    };
    CAnnouncementFilter filter(3, 1000);
    for (const auto& s : steps) {
        bool pass = false;
        if (s.op == HEARD) {
            pass = filter.Heard(s.mac, s.atMs);
        } else if (s.op == DUE) {
            pass = filter.TakeDue(s.atMs);
        } else {
            filter.Forget(s.mac);
        }
        EXPECT_EQ(pass, s.pass) << s.why;
        EXPECT_EQ(filter.DueAtMs(), s.dueAtMs) << s.why;
    }
}

TEST(AnnouncementFilter, AFloodOfForgedSendersIsOnePassASecondInBoundedMemory)
{
    CAnnouncementFilter filter;
    int passes = 0;
    uint8_t mac[6] = {2, 0, 0, 0, 0, 0};
    const uint32_t senders = 200000;
    for (uint32_t i = 0; i < senders; ++i) { // a sender every 50 microseconds: ten seconds of flood
        memcpy(mac + 2, &i, sizeof(i));
        passes += (filter.Heard(mac, i / 20) ? 1 : 0) + (filter.TakeDue(i / 20) ? 1 : 0);
    }
    EXPECT_NEAR(passes, 10, 1);
    // Exactly the last kAnnouncementMemory senders are remembered.
    uint32_t oldest = senders - static_cast<uint32_t>(kAnnouncementMemory);
    memcpy(mac + 2, &oldest, sizeof(oldest));
    EXPECT_FALSE(filter.Heard(mac, 20000));
    --oldest;
    memcpy(mac + 2, &oldest, sizeof(oldest));
    EXPECT_TRUE(filter.Heard(mac, 30000));
}

namespace {

std::string Describe(const std::vector<ARP_ANNOUNCEMENT>& heard)
{
    std::string out;
    for (const ARP_ANNOUNCEMENT& one : heard) {
        const in_addr address = {one.dwAddress};
        out += std::string(one.nKind == ARP_ANNOUNCEMENT_PROBE ? "probe " : "claim ") + inet_ntoa(address) + " " +
               std::to_string(one.aMAC[5]) + "; ";
    }
    return out;
}

} // namespace

// The watch on one end of a veth pair; frames are sent from the other end.
class ArpWatchNamespace : public aictest::NetNamespaceTest {};

TEST_F(ArpWatchNamespace, OnlyOtherHostsProbesAndAnnouncementsReachTheWatch)
{
    Sh("ip link add aw0 address 02:00:00:00:00:01 type veth peer name aw1 && ip link set aw0 up && "
       "ip link set aw1 up");
    CArpWatch watch;
    int error = 0;
    EXPECT_FALSE(watch.Open("nosuch0", &error));
    EXPECT_EQ(error, ENODEV);
    ASSERT_TRUE(watch.Open("aw0:1", &error)) << strerror(error);
    const CUniqueFd raw = OpenArpSocket("aw0", ARP_FILTER_ANNOUNCEMENTS, nullptr);
    ASSERT_TRUE(raw.IsOpen());
    const int peer = socket(AF_PACKET, SOCK_RAW, 0);
    ASSERT_GE(peer, 0);
    sockaddr_ll to = {};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex("aw1"));
    to.sll_halen = 6;
    const uint8_t own[6] = {2, 0, 0, 0, 0, 1};
    const struct {
        const uint8_t* sender;
        uint16_t operation;
        const char *senderIp, *targetIp;
    } frames[] = {
        {kA, 1, "10.0.0.7", "10.0.0.1"},    // an ordinary request: dropped in the kernel
        {kA, 2, "10.0.0.7", "10.0.0.1"},    // an ordinary reply: dropped in the kernel
        {kB, 1, "0.0.0.0", "169.254.9.9"},  // a probe
        {own, 1, "10.0.0.5", "10.0.0.5"},   // our own MAC, forged: dropped by the reader
        {kC, 1, "10.0.0.8", "10.0.0.8"},    // an announcement
    };
    for (const auto& f : frames) {
        ARP_FIELDS fields = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, {0}, f.operation, {0}, inet_addr(f.senderIp), {0},
                             inet_addr(f.targetIp)};
        memcpy(fields.aSrcMAC, f.sender, 6);
        memcpy(fields.aSenderMAC, f.sender, 6);
        const ARP_PACKET frame = EncodeArp(fields);
        ASSERT_EQ(sendto(peer, &frame, sizeof(frame), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)), 60);
    }
    close(peer);

    std::vector<ARP_ANNOUNCEMENT> heard;
    std::string seen;
    const uint64_t deadline = MonotonicMs() + 2000;
    while (seen.find("10.0.0.8") == std::string::npos &&
           WaitReadable(watch.GetFd(), deadline, nullptr) == WAIT_READY) {
        watch.Read(heard);
        seen += Describe(heard);
    }
    EXPECT_EQ(seen, "probe 169.254.9.9 11; claim 10.0.0.8 12; ");
    watch.Read(heard);
    EXPECT_TRUE(heard.empty());

    // The kernel's filter passes what claims or probes an address, whoever the sender.
    std::string passed;
    ARP_PACKET frame;
    while (recv(raw.Get(), &frame, sizeof(frame), MSG_DONTWAIT) > 0) {
        passed += std::to_string(frame.aSenderMAC[5]) + " ";
    }
    EXPECT_EQ(passed, "11 1 12 ");
}
