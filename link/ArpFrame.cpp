#include "link/ArpFrame.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <linux/if_packet.h>

namespace {

const uint16_t kEtherTypeARP = 0x0806;
const uint16_t kHardwareEthernet = 1;
const uint16_t kProtocolIPv4 = 0x0800;
const uint16_t kOpRequest = 1;
const uint16_t kOpReply = 2;
// An ARP message without the link's padding.
const size_t kArpFrameMin = offsetof(ARP_PACKET, aPadding);
const uint16_t kAddressLengths = 6 << 8 | 4; // hardware and protocol length read as one half-word

// A jump's offset counts the instructions between the jump and its target.
constexpr uint8_t Skip(unsigned from, unsigned to)
{
    return static_cast<uint8_t>(to - from - 1);
}

} // namespace

ARP_PACKET EncodeArp(const ARP_FIELDS& fields)
{
    ARP_PACKET frame;
    memset(&frame, 0, sizeof(frame));
    memcpy(frame.aDestMAC, fields.aDestMAC, 6);
    memcpy(frame.aSrcMAC, fields.aSrcMAC, 6);
    frame.wEtherType = htons(kEtherTypeARP);
    frame.wHardwareType = htons(kHardwareEthernet);
    frame.wProtocolType = htons(kProtocolIPv4);
    frame.cHardwareLength = 6;
    frame.cProtocolLength = 4;
    frame.wOperation = htons(fields.nOperation);
    memcpy(frame.aSenderMAC, fields.aSenderMAC, 6);
    frame.dwSenderIP = fields.dwSenderIP;
    memcpy(frame.aTargetMAC, fields.aTargetMAC, 6);
    frame.dwTargetIP = fields.dwTargetIP;
    return frame;
}

ARP_FIELDS DecodeArp(const ARP_PACKET& frame)
{
    ARP_FIELDS fields;
    memcpy(fields.aDestMAC, frame.aDestMAC, 6);
    memcpy(fields.aSrcMAC, frame.aSrcMAC, 6);
    fields.nOperation = ntohs(frame.wOperation);
    memcpy(fields.aSenderMAC, frame.aSenderMAC, 6);
    fields.dwSenderIP = frame.dwSenderIP;
    memcpy(fields.aTargetMAC, frame.aTargetMAC, 6);
    fields.dwTargetIP = frame.dwTargetIP;
    return fields;
}

namespace {

// A request from `mac`, sent to a destination of `broadcastBytes` leading FF bytes.
ARP_PACKET EncodeArpRequest(size_t broadcastBytes, const uint8_t* mac, uint32_t senderIP, uint32_t targetIP)
{
    ARP_FIELDS fields;
    memset(&fields, 0, sizeof(fields));
    memset(fields.aDestMAC, 0xFF, broadcastBytes);
    memcpy(fields.aSrcMAC, mac, 6);
    fields.nOperation = kOpRequest;
    memcpy(fields.aSenderMAC, mac, 6);
    fields.dwSenderIP = senderIP;
    fields.dwTargetIP = targetIP;
    return EncodeArp(fields);
}

} // namespace

ARP_PACKET EncodeArpProbe(const uint8_t* mac, uint32_t localIP, uint32_t probeIP)
{
    // Only five bytes of the destination are set; the sixth stays 0.
    return EncodeArpRequest(5, mac, probeIP, localIP);
}

// Only the first byte of the sender address is compared with the whole local address.
ARP_REJECTION MatchArpReply(const ARP_PACKET& reply, uint32_t localIP, const uint8_t* mac)
{
    const ARP_FIELDS fields = DecodeArp(reply);
    if (fields.nOperation != kOpReply) {
        return ARP_REJECT_OPERATION;
    }
    if (reinterpret_cast<const uint8_t*>(&fields.dwSenderIP)[0] != localIP) {
        return ARP_REJECT_SENDER;
    }
    return memcmp(fields.aTargetMAC, mac, 6) == 0 ? ARP_MATCH : ARP_REJECT_TARGET_MAC;
}

ARP_PACKET EncodeArpConflictProbe(const uint8_t* mac, uint32_t candidate)
{
    return EncodeArpRequest(6, mac, 0, candidate);
}

// A sender address is claimed by any request or reply; sender 0.0.0.0 is a probe of the target.
ARP_CLAIM ReadArpClaim(const uint8_t* frame, size_t length, const uint8_t* ownMAC)
{
    ARP_CLAIM claim;
    memset(&claim, 0, sizeof(claim));
    if (length < kArpFrameMin) {
        return claim;
    }
    ARP_PACKET packet;
    memset(&packet, 0, sizeof(packet));
    memcpy(&packet, frame, length < sizeof(packet) ? length : sizeof(packet));
    if (packet.wEtherType != htons(kEtherTypeARP) || packet.wHardwareType != htons(kHardwareEthernet) ||
        packet.wProtocolType != htons(kProtocolIPv4) || packet.cHardwareLength != 6 || packet.cProtocolLength != 4) {
        return claim;
    }
    const ARP_FIELDS fields = DecodeArp(packet);
    if (memcmp(fields.aSenderMAC, ownMAC, 6) == 0 ||
        (fields.nOperation != kOpRequest && fields.nOperation != kOpReply)) {
        return claim;
    }
    memcpy(claim.aMAC, fields.aSenderMAC, 6);
    if (fields.dwSenderIP != 0) {
        claim.nKind = fields.nOperation == kOpReply ? ARP_CLAIM_REPLY : ARP_CLAIM_REQUEST;
        claim.dwAddress = fields.dwSenderIP;
    } else if (fields.nOperation == kOpRequest && fields.dwTargetIP != 0) {
        claim.nKind = ARP_CLAIM_PROBE;
        claim.dwAddress = fields.dwTargetIP;
    }
    return claim;
}

// A gratuitous reply announces as well as a request does.
ARP_ANNOUNCEMENT ReadArpAnnouncement(const uint8_t* frame, size_t length, const uint8_t* ownMAC)
{
    ARP_ANNOUNCEMENT heard;
    memset(&heard, 0, sizeof(heard));
    const ARP_CLAIM claim = ReadArpClaim(frame, length, ownMAC);
    if (claim.nKind == ARP_CLAIM_NONE) {
        return heard;
    }
    uint32_t target = 0;
    memcpy(&target, frame + offsetof(ARP_PACKET, dwTargetIP), sizeof(target));
    if (claim.nKind == ARP_CLAIM_PROBE) {
        heard.nKind = ARP_ANNOUNCEMENT_PROBE;
    } else if (target == claim.dwAddress) {
        heard.nKind = ARP_ANNOUNCEMENT_CLAIM;
    } else {
        return heard;
    }
    heard.dwAddress = claim.dwAddress;
    memcpy(heard.aMAC, claim.aMAC, sizeof(heard.aMAC));
    return heard;
}

// Announcements only: the sender address is 0.0.0.0 (a probe) or equals the target address.
std::vector<sock_filter> BuildArpFilter(ARP_FILTER which)
{
    const unsigned keep = which == ARP_FILTER_ALL ? 10 : 15;
    const unsigned drop = keep + 1;
    std::vector<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)), // 0 packet type
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OUTGOING, Skip(1, drop), 0),        // 1 sent by us
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(ARP_PACKET, wEtherType)),            // 2
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kEtherTypeARP, 0, Skip(3, drop)),          // 3 ARP only
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(ARP_PACKET, wHardwareType)),         // 4
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kHardwareEthernet, 0, Skip(5, drop)),      // 5 Ethernet
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(ARP_PACKET, wProtocolType)),         // 6
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kProtocolIPv4, 0, Skip(7, drop)),          // 7 IPv4
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(ARP_PACKET, cHardwareLength)),       // 8
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kAddressLengths, 0, Skip(9, drop)),        // 9 lengths 6 and 4
    };
    if (which == ARP_FILTER_ANNOUNCEMENTS) {
        const sock_filter announcement[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(ARP_PACKET, dwSenderIP)),        // 10
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, Skip(11, keep), 0),                 // 11 a probe
            BPF_STMT(BPF_MISC | BPF_TAX, 0),                                             // 12
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(ARP_PACKET, dwTargetIP)),        // 13
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_X, 0, 0, Skip(14, drop)),                 // 14 an announcement
        };
        program.insert(program.end(), std::begin(announcement), std::end(announcement));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, sizeof(ARP_PACKET))); // keep the frame
    program.push_back(BPF_STMT(BPF_RET | BPF_K, 0));                  // drop
    return program;
}
