#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/filter.h>
#include <vector>

// Builds and reads the ARP probe's Ethernet frame: no I/O, no throw.

#pragma pack(push, 1)
// One Ethernet frame carrying an ARP message; multi-byte fields in network order.
struct ARP_PACKET {
    uint8_t aDestMAC[6];
    uint8_t aSrcMAC[6];
    uint16_t wEtherType;
    uint16_t wHardwareType;
    uint16_t wProtocolType;
    uint8_t cHardwareLength;
    uint8_t cProtocolLength;
    uint16_t wOperation;
    uint8_t aSenderMAC[6];
    uint32_t dwSenderIP;
    uint8_t aTargetMAC[6];
    uint32_t dwTargetIP;
    uint8_t aPadding[18];
};
#pragma pack(pop)
static_assert(sizeof(ARP_PACKET) == 60, "ARP frame");

// The probe's socket listens for the Reverse-ARP type, not the ARP type of the frame it sends.
const uint16_t ARP_PROBE_LISTEN_TYPE = 0x8035;

// The fields that vary; addresses as inet_addr gives them (network order), operation in host order.
struct ARP_FIELDS {
    uint8_t aDestMAC[6];
    uint8_t aSrcMAC[6];
    uint16_t nOperation;
    uint8_t aSenderMAC[6];
    uint32_t dwSenderIP;
    uint8_t aTargetMAC[6];
    uint32_t dwTargetIP;
};

// Why a received frame does not answer the probe.
enum ARP_REJECTION {
    ARP_MATCH = 0,
    ARP_REJECT_OPERATION,
    ARP_REJECT_SENDER,
    ARP_REJECT_TARGET_MAC,
};

ARP_PACKET EncodeArp(const ARP_FIELDS& fields);
ARP_FIELDS DecodeArp(const ARP_PACKET& frame);
// Claims probeIP for mac and asks for localIP, to FF-FF-FF-FF-FF-00.
ARP_PACKET EncodeArpProbe(const uint8_t* mac, uint32_t localIP, uint32_t probeIP);
ARP_REJECTION MatchArpReply(const ARP_PACKET& reply, uint32_t localIP, const uint8_t* mac);

// A conflict probe (RFC 5227): asks who has `candidate` (network order) without claiming any address.
ARP_PACKET EncodeArpConflictProbe(const uint8_t* mac, uint32_t candidate);

// What a received ARP frame says about who uses an address.
enum ARP_CLAIM_KIND {
    ARP_CLAIM_NONE = 0,   // not ARP over Ethernet/IPv4, ours, or names no address
    ARP_CLAIM_REPLY,      // the sender uses its sender address
    ARP_CLAIM_REQUEST,    // a request or announcement from the sender address
    ARP_CLAIM_PROBE,      // another host is probing the target address right now
};

struct ARP_CLAIM {
    ARP_CLAIM_KIND nKind;
    uint32_t dwAddress; // network order
    uint8_t aMAC[6];    // the claiming host's
};

// The address a frame of `length` bytes from the link claims for another host than `ownMAC`.
ARP_CLAIM ReadArpClaim(const uint8_t* frame, size_t length, const uint8_t* ownMAC);

// A host taking an address (RFC 5227) first probes for it, then announces it.
enum ARP_ANNOUNCEMENT_KIND {
    ARP_ANNOUNCEMENT_NONE = 0,  // neither, or ours
    ARP_ANNOUNCEMENT_PROBE,     // sender 0.0.0.0: the sender wants the target address
    ARP_ANNOUNCEMENT_CLAIM,     // sender address == target address: the sender has just taken it
};

struct ARP_ANNOUNCEMENT {
    ARP_ANNOUNCEMENT_KIND nKind;
    uint32_t dwAddress; // network order: the address probed or announced
    uint8_t aMAC[6];    // the sender's
};

// The probe or announcement a frame of `length` bytes from the link carries from another host than `ownMAC`.
ARP_ANNOUNCEMENT ReadArpAnnouncement(const uint8_t* frame, size_t length, const uint8_t* ownMAC);

// Which frames a link-level ARP socket keeps.
enum ARP_FILTER {
    ARP_FILTER_ALL = 0,        // ARP over Ethernet/IPv4 that this host did not send
    ARP_FILTER_ANNOUNCEMENTS,  // of those, probes and announcements only
};

// Kernel filter for a link-level socket that reads whole Ethernet frames.
std::vector<sock_filter> BuildArpFilter(ARP_FILTER which = ARP_FILTER_ALL);
