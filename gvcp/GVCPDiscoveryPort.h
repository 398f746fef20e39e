#pragma once

#include "gvcp/GVPort.h"
#include "gvcp/GvcpCodec.h"
#include "gvcp/GvcpProtocol.h"

#include <string>

namespace GenICam {
namespace Client {

class CLinkTap;

// What one discovery port received, for the operator's diagnostics.
struct DISCOVERY_TALLY {
    unsigned int nDatagrams;
    unsigned int nAccepted;
    unsigned int nIgnored;
};

class CGVCPDiscoveryPort : public CGVPort {
public:
    CGVCPDiscoveryPort(unsigned int ip, bool broadcast, std::string name);
    ~CGVCPDiscoveryPort() override;

    virtual void SendDiscoveryPacket(unsigned int destinationIp);
    virtual void RecvDiscoveryPacket(ZQ_DISCOVERY_ACK& ack, unsigned int timeoutMs);

    const DISCOVERY_TALLY& GetTally() const;
    // "link level: none rejected", or "without the raw-network right".
    std::string LinkSummary() const;

private:
    void __RecvEnumPacket(ZQ_DISCOVERY_ACK& ack, CUdpComm* endpoint, unsigned int timeoutMs);
    void __DiagIgnored(const ZQ_DISCOVERY_ACK& ack, GVCP_REJECTION reason, unsigned int sourceIp,
                       unsigned int sourcePort, unsigned int length) const;

    CLinkTap* m_pLinkComm; // null without the raw-network right
    std::string m_strName;
    DISCOVERY_TALLY m_stTally;
};

} // namespace Client
} // namespace GenICam
