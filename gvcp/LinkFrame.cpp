#include "gvcp/LinkFrame.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstring>
#include <linux/if_packet.h>
#include <netinet/in.h>

namespace GenICam {
namespace Client {

namespace {

const uint8_t kVersion4 = 0x40;
const uint16_t kFragmentBits = 0x3FFF; // more-fragments flag and fragment offset

bool HeaderChecksumHolds(const uint8_t* header, size_t length)
{
    uint32_t sum = 0;
    for (size_t i = 0; i + 1 < length; i += 2) {
        sum += static_cast<uint32_t>(header[i] << 8 | header[i + 1]);
    }
    while (sum >> 16) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return sum == 0xFFFF;
}

// A jump's offset counts the instructions between the jump and its target.
constexpr uint8_t Skip(unsigned from, unsigned to)
{
    return static_cast<uint8_t>(to - from - 1);
}

} // namespace

LINK_FRAME_ERROR DecodeUdpFrame(const uint8_t* frame, size_t length, LINK_UDP_DATAGRAM& datagram)
{
    IPV4_HEADER ip;
    if (length < sizeof(ip) + sizeof(UDP_HEADER)) {
        return LINK_FRAME_ERROR::TRUNCATED;
    }
    memcpy(&ip, frame, sizeof(ip));
    if ((ip.cVersionIHL & 0xF0) != kVersion4) {
        return LINK_FRAME_ERROR::NOT_IPV4;
    }
    const size_t headerLength = (ip.cVersionIHL & 0x0F) * 4u;
    if (headerLength < sizeof(ip)) {
        return LINK_FRAME_ERROR::BAD_HEADER_LENGTH;
    }
    const size_t totalLength = ntohs(ip.wTotalLength);
    if (totalLength > length || totalLength < headerLength + sizeof(UDP_HEADER)) {
        return LINK_FRAME_ERROR::TRUNCATED;
    }
    if (!HeaderChecksumHolds(frame, headerLength)) {
        return LINK_FRAME_ERROR::BAD_CHECKSUM;
    }
    if ((ntohs(ip.wFragment) & kFragmentBits) != 0) {
        return LINK_FRAME_ERROR::FRAGMENT;
    }
    if (ip.cProtocol != IPPROTO_UDP) {
        return LINK_FRAME_ERROR::NOT_UDP;
    }
    UDP_HEADER udp;
    memcpy(&udp, frame + headerLength, sizeof(udp));
    const size_t udpLength = ntohs(udp.wLength);
    if (udpLength < sizeof(udp) || udpLength > totalLength - headerLength) {
        return LINK_FRAME_ERROR::BAD_UDP_LENGTH;
    }
    datagram.dwSourceIP = ntohl(ip.dwSource);
    datagram.dwDestinationIP = ntohl(ip.dwDestination);
    datagram.wSourcePort = ntohs(udp.wSourcePort);
    datagram.wDestinationPort = ntohs(udp.wDestinationPort);
    datagram.pPayload = frame + headerLength + sizeof(udp);
    datagram.nPayloadLength = udpLength - sizeof(udp);
    return LINK_FRAME_ERROR::NONE;
}

const char* LinkFrameErrorText(LINK_FRAME_ERROR error)
{
    // In the enumeration's order.
    static const char* const kTexts[kLinkFrameErrorCount] = {
        "no error", "truncated", "not IPv4", "bad IPv4 header length", "bad IPv4 checksum", "fragment", "not UDP",
        "bad UDP length",
    };
    const size_t index = static_cast<size_t>(error);
    return index < kLinkFrameErrorCount ? kTexts[index] : "unknown";
}

std::vector<sock_filter> BuildAckFilter(uint32_t interfaceIP, uint32_t subnetBroadcast, uint16_t localPort)
{
    enum : unsigned { kPorts = 13, kDrop = 17 };
    return {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)), // 0 packet type
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OUTGOING, Skip(1, kDrop), 0),       // 1 sent by us
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, offsetof(IPV4_HEADER, cVersionIHL)),          // 2
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xF0),                                       // 3 version
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kVersion4, 0, Skip(4, kDrop)),             // 4 IPv4 only
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, offsetof(IPV4_HEADER, cProtocol)),            // 5
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, Skip(6, kDrop)),           // 6 UDP only
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(IPV4_HEADER, wFragment)),            // 7
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kFragmentBits, Skip(8, kDrop), 0),        // 8 no fragments
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(IPV4_HEADER, dwDestination)),        // 9
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, interfaceIP, Skip(10, kPorts), 0),         // 10 to us
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, subnetBroadcast, Skip(11, kPorts), 0),     // 11 subnet broadcast
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0xFFFFFFFF, 0, Skip(12, kDrop)),           // 12 limited broadcast
        BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, offsetof(IPV4_HEADER, cVersionIHL)),         // 13 X = header length
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, offsetof(UDP_HEADER, wDestinationPort)),      // 14 any source port,
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, localPort, 0, Skip(15, kDrop)),            // 15 as UDP takes it
        BPF_STMT(BPF_RET | BPF_K, 0xFFFF),                                               // 16 keep whole frame
        BPF_STMT(BPF_RET | BPF_K, 0),                                                    // 17 drop
    };
}

} // namespace Client
} // namespace GenICam
