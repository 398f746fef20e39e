#pragma once

#include "common/UniqueFd.h"
#include "link/ArpFrame.h"

// What one probe learnt. NO_SOCKET: no link-level socket could be opened; UNSENT: the frame could not
// be sent (an address label names no device). Neither put anything on the wire.
enum ARP_PROBE_KIND {
    ARP_PROBE_FREE = 0,
    ARP_PROBE_TAKEN,
    ARP_PROBE_FAILED,
    ARP_PROBE_NO_SOCKET,
    ARP_PROBE_UNSENT,
};

struct ARP_PROBE_RESULT {
    ARP_PROBE_KIND nKind;
    int nErrno;  // with FAILED, NO_SOCKET and UNSENT; ECANCELED when a stop ended the wait
};

// Asks the link, with one frame and one read, whether some host answers for an address.
class CARP {
public:
    CARP();
    virtual ~CARP();

    bool Open();
    void CloseSocket();
    bool ARPRecv(ARP_PACKET* buffer, unsigned int length, unsigned int timeoutMs);
    bool DetectIP(const char* localIP, const char* probeIP, const char* localMAC, const char* deviceName);
    // DetectIP's probe, with a failure told apart from a free address.
    ARP_PROBE_RESULT Probe(const char* localIP, const char* probeIP, const char* localMAC, const char* deviceName);

private:
    // 1 with a frame read, 0 at the time-out, else minus the errno.
    int __Receive(ARP_PACKET* buffer, unsigned int length, unsigned int timeoutMs);

    GenICam::Client::CUniqueFd m_socket;
};
