#include "gvcp/LinkFrame.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <vector>

using namespace GenICam::Client;

namespace {

void Set16(std::vector<uint8_t>& f, size_t at, uint16_t v)
{
    f[at] = static_cast<uint8_t>(v >> 8);
    f[at + 1] = static_cast<uint8_t>(v);
}

// Keeps the header checksum right after an edit, so each case fails for its own reason only.
void Reseal(std::vector<uint8_t>& f)
{
    Set16(f, 10, 0);
    uint32_t sum = 0;
    for (size_t i = 0; i < sizeof(IPV4_HEADER); i += 2) {
        sum += f[i] << 8 | f[i + 1];
    }
    Set16(f, 10, static_cast<uint16_t>(~((sum & 0xFFFF) + (sum >> 16))));
}

// 10.0.0.7:3956 -> 255.255.255.255:59001 carrying `payload` bytes, then `padding` link bytes.
std::vector<uint8_t> Frame(size_t payload, size_t padding = 0)
{
    std::vector<uint8_t> frame(sizeof(IPV4_HEADER) + sizeof(UDP_HEADER) + payload + padding, 0xAB);
    const IPV4_HEADER ip{0x45, 0, htons(static_cast<uint16_t>(frame.size() - padding)), 0, htons(0x4000), 64, 17, 0,
                         htonl(0x0A000007), 0xFFFFFFFF};
    const UDP_HEADER udp{htons(3956), htons(59001), htons(static_cast<uint16_t>(sizeof(udp) + payload)), 0};
    memcpy(frame.data(), &ip, sizeof(ip));
    memcpy(frame.data() + sizeof(ip), &udp, sizeof(udp));
    Reseal(frame);
    return frame;
}

struct Case {
    const char* name;
    std::function<void(std::vector<uint8_t>&)> edit;
    LINK_FRAME_ERROR expected;
};

} // namespace

TEST(LinkFrame, RejectsEachMalformedPartForItsReason)
{
    const std::vector<Case> cases = {
        {"short", [](std::vector<uint8_t>& f) { f.resize(27); }, LINK_FRAME_ERROR::TRUNCATED},
        {"total beyond frame", [](std::vector<uint8_t>& f) { Set16(f, 2, 300), Reseal(f); }, LINK_FRAME_ERROR::TRUNCATED},
        {"total below headers", [](std::vector<uint8_t>& f) { Set16(f, 2, 27), Reseal(f); }, LINK_FRAME_ERROR::TRUNCATED},
        {"IPv6", [](std::vector<uint8_t>& f) { f[0] = 0x65, Reseal(f); }, LINK_FRAME_ERROR::NOT_IPV4},
        {"IHL 4", [](std::vector<uint8_t>& f) { f[0] = 0x44, Reseal(f); }, LINK_FRAME_ERROR::BAD_HEADER_LENGTH},
        {"checksum", [](std::vector<uint8_t>& f) { f[8] ^= 1; }, LINK_FRAME_ERROR::BAD_CHECKSUM},
        {"more fragments", [](std::vector<uint8_t>& f) { Set16(f, 6, 0x2000), Reseal(f); }, LINK_FRAME_ERROR::FRAGMENT},
        {"last fragment", [](std::vector<uint8_t>& f) { Set16(f, 6, 0x0010), Reseal(f); }, LINK_FRAME_ERROR::FRAGMENT},
        {"TCP", [](std::vector<uint8_t>& f) { f[9] = 6, Reseal(f); }, LINK_FRAME_ERROR::NOT_UDP},
        {"UDP length 7", [](std::vector<uint8_t>& f) { Set16(f, 24, 7); }, LINK_FRAME_ERROR::BAD_UDP_LENGTH},
        {"UDP past IP", [](std::vector<uint8_t>& f) { Set16(f, 24, 8 + 257); }, LINK_FRAME_ERROR::BAD_UDP_LENGTH},
    };
    for (const Case& c : cases) {
        std::vector<uint8_t> frame = Frame(256);
        c.edit(frame);
        LINK_UDP_DATAGRAM datagram{};
        EXPECT_EQ(DecodeUdpFrame(frame.data(), frame.size(), datagram), c.expected) << c.name;
    }
}

TEST(LinkFrame, ReadsTheDatagramAndIgnoresLinkPadding)
{
    for (const size_t padding : {0, 18}) {
        const std::vector<uint8_t> frame = Frame(8, padding);
        LINK_UDP_DATAGRAM d{};
        ASSERT_EQ(DecodeUdpFrame(frame.data(), frame.size(), d), LINK_FRAME_ERROR::NONE) << padding;
        EXPECT_EQ(d.dwSourceIP, 0x0A000007u);
        EXPECT_EQ(d.dwDestinationIP, 0xFFFFFFFFu);
        EXPECT_EQ(d.wSourcePort, 3956);
        EXPECT_EQ(d.wDestinationPort, 59001);
        EXPECT_EQ(d.pPayload, frame.data() + 28);
        EXPECT_EQ(d.nPayloadLength, 8u);
    }
}
