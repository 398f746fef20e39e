#pragma once

#include <cstdint>

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

// Asks the link, with one frame and one read, whether some host answers for an address.
class CARP {
public:
    CARP();
    virtual ~CARP();

    bool Open();
    void CloseSocket();
    bool ARPRecv(ARP_PACKET* buffer, unsigned int length, unsigned int timeoutMs);
    bool DetectIP(const char* localIP, const char* probeIP, const char* localMAC, const char* deviceName);

private:
    int m_nSocket;
};
