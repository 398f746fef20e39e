#pragma once

#include "gvcp/GVPort.h"
#include "gvcp/GvcpProtocol.h"

namespace GenICam {
namespace Client {

class CGVCPDiscoveryPort : public CGVPort {
public:
    CGVCPDiscoveryPort(unsigned int ip, bool broadcast, std::string name);
    ~CGVCPDiscoveryPort() override;

    virtual void SendDiscoveryPacket(unsigned int destinationIp);
    virtual void RecvDiscoveryPacket(ZQ_DISCOVERY_ACK& ack, unsigned int timeoutMs);

private:
    void __RecvEnumPacket(ZQ_DISCOVERY_ACK& ack, CUdpComm* endpoint, unsigned int timeoutMs);

    CUdpComm* m_pLinkComm; // null without the raw-network right
};

} // namespace Client
} // namespace GenICam
