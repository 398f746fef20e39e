#include "gvcp/LinkFrame.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <vector>

using namespace GenICam::Client;

namespace {

using Bytes = std::vector<uint8_t>;

void Set16(Bytes& f, size_t at, uint16_t v)
{
    f[at] = static_cast<uint8_t>(v >> 8);
    f[at + 1] = static_cast<uint8_t>(v);
}

// Keeps the header checksum right after an edit, so each case fails for its own reason only.
void Reseal(Bytes& f)
{
    Set16(f, 10, 0);
    uint32_t sum = 0;
    for (size_t i = 0; i < sizeof(IPV4_HEADER); i += 2) {
        sum += f[i] << 8 | f[i + 1];
    }
    Set16(f, 10, static_cast<uint16_t>(~((sum & 0xFFFF) + (sum >> 16))));
}

// 10.0.0.7:3956 -> 255.255.255.255:59001 carrying `payload` bytes, then `padding` link bytes.
Bytes Frame(size_t payload, size_t padding = 0)
{
    Bytes frame(sizeof(IPV4_HEADER) + sizeof(UDP_HEADER) + payload + padding, 0xAB);
    const IPV4_HEADER ip{0x45, 0, htons(static_cast<uint16_t>(frame.size() - padding)), 0, htons(0x4000), 64, 17, 0,
                         htonl(0x0A000007), 0xFFFFFFFF};
    const UDP_HEADER udp{htons(3956), htons(59001), htons(static_cast<uint16_t>(sizeof(udp) + payload)), 0};
    memcpy(frame.data(), &ip, sizeof(ip));
    memcpy(frame.data() + sizeof(ip), &udp, sizeof(udp));
    Reseal(frame);
    return frame;
}

} // namespace

TEST(LinkFrame, RejectsEachMalformedPartForItsReason)
{
    using E = LINK_FRAME_ERROR;
    const struct {
        const char* name;
        std::function<void(Bytes&)> edit;
        E expected;
    } cases[] = {
        {"short", [](Bytes& f) { f.resize(27); }, E::TRUNCATED},
        {"total beyond frame", [](Bytes& f) { Set16(f, 2, 300), Reseal(f); }, E::TRUNCATED},
        {"total below headers", [](Bytes& f) { Set16(f, 2, 27), Reseal(f); }, E::TRUNCATED},
        {"IPv6", [](Bytes& f) { f[0] = 0x65, Reseal(f); }, E::NOT_IPV4},
        {"IHL 4", [](Bytes& f) { f[0] = 0x44, Reseal(f); }, E::BAD_HEADER_LENGTH},
        {"checksum", [](Bytes& f) { f[8] ^= 1; }, E::BAD_CHECKSUM},
        {"more fragments", [](Bytes& f) { Set16(f, 6, 0x2000), Reseal(f); }, E::FRAGMENT},
        {"last fragment", [](Bytes& f) { Set16(f, 6, 0x0010), Reseal(f); }, E::FRAGMENT},
        {"TCP", [](Bytes& f) { f[9] = 6, Reseal(f); }, E::NOT_UDP},
        {"UDP length 7", [](Bytes& f) { Set16(f, 24, 7); }, E::BAD_UDP_LENGTH},
        {"UDP past IP", [](Bytes& f) { Set16(f, 24, 8 + 257); }, E::BAD_UDP_LENGTH},
    };
    for (const auto& c : cases) {
        Bytes frame = Frame(256);
        c.edit(frame);
        LINK_UDP_DATAGRAM datagram{};
        EXPECT_EQ(DecodeUdpFrame(frame.data(), frame.size(), datagram), c.expected) << c.name;
    }
}

TEST(LinkFrame, ReadsTheDatagramAndIgnoresLinkPadding)
{
    for (const size_t padding : {0, 18}) {
        const Bytes frame = Frame(8, padding);
        LINK_UDP_DATAGRAM d{};
        ASSERT_EQ(DecodeUdpFrame(frame.data(), frame.size(), d), LINK_FRAME_ERROR::NONE) << padding;
        EXPECT_EQ(std::vector<uint32_t>({d.dwSourceIP, d.dwDestinationIP, d.wSourcePort, d.wDestinationPort}),
                  std::vector<uint32_t>({0x0A000007, 0xFFFFFFFF, 3956, 59001}));
        EXPECT_EQ(d.pPayload, frame.data() + 28);
        EXPECT_EQ(d.nPayloadLength, 8u);
    }
}
