#include "device/ArpFrame.h"

#include <arpa/inet.h>
#include <cstring>

namespace {

const uint16_t kEtherTypeARP = 0x0806;
const uint16_t kHardwareEthernet = 1;
const uint16_t kProtocolIPv4 = 0x0800;
const uint16_t kOpRequest = 1;
const uint16_t kOpReply = 2;

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

ARP_PACKET EncodeArpProbe(const uint8_t* mac, uint32_t localIP, uint32_t probeIP)
{
    ARP_FIELDS fields;
    memset(&fields, 0, sizeof(fields));
    // Only five bytes of the destination are set; the sixth stays 0.
    memset(fields.aDestMAC, 0xFF, 5);
    memcpy(fields.aSrcMAC, mac, 6);
    fields.nOperation = kOpRequest;
    memcpy(fields.aSenderMAC, mac, 6);
    fields.dwSenderIP = probeIP;
    fields.dwTargetIP = localIP;
    return EncodeArp(fields);
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
