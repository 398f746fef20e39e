#pragma once

#include "device/ArpFrame.h"

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
