#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/filter.h>
#include <vector>

// IPv4/UDP as a link-level socket hands it over: the frame from the IPv4 header on. Every multi-byte
// field holds network byte order; convert at the edge.
namespace GenICam {
namespace Client {

#pragma pack(push, 1)

struct IPV4_HEADER {
    uint8_t cVersionIHL;
    uint8_t cTOS;
    uint16_t wTotalLength;
    uint16_t wID;
    uint16_t wFragment;
    uint8_t cTTL;
    uint8_t cProtocol;
    uint16_t wChecksum;
    uint32_t dwSource;
    uint32_t dwDestination;
};
static_assert(sizeof(IPV4_HEADER) == 20, "IPv4 header without options");

struct UDP_HEADER {
    uint16_t wSourcePort;
    uint16_t wDestinationPort;
    uint16_t wLength;
    uint16_t wChecksum;
};
static_assert(sizeof(UDP_HEADER) == 8, "UDP header");

#pragma pack(pop)

enum class LINK_FRAME_ERROR {
    NONE,
    TRUNCATED,         // shorter than the headers or than the IPv4 total length
    NOT_IPV4,
    BAD_HEADER_LENGTH, // IHL below 5
    BAD_CHECKSUM,      // IPv4 header checksum
    FRAGMENT,
    NOT_UDP,
    BAD_UDP_LENGTH,
};
const size_t kLinkFrameErrorCount = static_cast<size_t>(LINK_FRAME_ERROR::BAD_UDP_LENGTH) + 1;

// A short phrase for the operator's diagnostics ("bad IPv4 checksum").
const char* LinkFrameErrorText(LINK_FRAME_ERROR error);

// One UDP datagram found in a frame; addresses and ports in host order, the payload points into the frame.
struct LINK_UDP_DATAGRAM {
    uint32_t dwSourceIP;
    uint32_t dwDestinationIP;
    uint16_t wSourcePort;
    uint16_t wDestinationPort;
    const uint8_t* pPayload;
    size_t nPayloadLength;
};

// Reads the UDP datagram of an unfragmented IPv4 frame; link padding past the total length is ignored.
LINK_FRAME_ERROR DecodeUdpFrame(const uint8_t* frame, size_t length, LINK_UDP_DATAGRAM& datagram);

// Kernel filter for a link-level socket: UDP to `localPort` from any source port (as the UDP endpoints take
// it), addressed to `interfaceIP`, `subnetBroadcast` or 255.255.255.255, not sent by this host. Host order.
std::vector<sock_filter> BuildAckFilter(uint32_t interfaceIP, uint32_t subnetBroadcast, uint16_t localPort);

} // namespace Client
} // namespace GenICam
