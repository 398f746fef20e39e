#include "gvcp/GVCPDiscoveryPort.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "gvcp/GvcpCodec.h"
#include "gvcp/LinkTap.h"

namespace GenICam {
namespace Client {

CGVCPDiscoveryPort::CGVCPDiscoveryPort(unsigned int ip, bool broadcast, std::string name)
    : CGVPort(ip, broadcast, name), m_pLinkComm(OpenLinkTap(name, ip, GVCP_DISCOVERY_PORT_LOCAL))
{
}

CGVCPDiscoveryPort::~CGVCPDiscoveryPort()
{
    if (m_pLinkComm != nullptr) {
        m_pLinkComm->Close();
        CInstanceFactory::DestoryUdpCommIntstance(m_pLinkComm);
    }
}

void CGVCPDiscoveryPort::SendDiscoveryPacket(unsigned int destinationIp)
{
    GVCP_CMD_HEADER command = EncodeDiscoveryCmd(_GetReqID());
    unsigned int sent = 0;
    m_pComm->Send(reinterpret_cast<unsigned char*>(&command), sizeof(command), destinationIp, GVCP_PORT, &sent);
    if (sent != sizeof(command)) {
        APP_THROW(GC_ERR_IO, "CGVCPDiscoveryPort::SendDiscoveryPacket Failed");
    }
}

void CGVCPDiscoveryPort::RecvDiscoveryPacket(ZQ_DISCOVERY_ACK& ack, unsigned int timeoutMs)
{
    // Half the wait for unicast answers, half for broadcast ones, which only the wildcard endpoint sees.
    const unsigned int half = timeoutMs >> 1;
    // At link level every acknowledge, unicast or broadcast, arrives once and whatever the kernel's
    // checks say; it gets both halves, so slices time out as they do without it.
    if (m_pLinkComm != nullptr) {
        __RecvEnumPacket(ack, m_pLinkComm, half * 2);
        return;
    }
    try {
        __RecvEnumPacket(ack, m_pComm, half);
    } catch (CAppException& e) {
        if (e.GetErrorCode() != GC_ERR_TIMEOUT) {
            throw CAppException(e);
        }
        __RecvEnumPacket(ack, m_pAnyComm, half);
    }
}

void CGVCPDiscoveryPort::__RecvEnumPacket(ZQ_DISCOVERY_ACK& ack, CUdpComm* endpoint, unsigned int timeoutMs)
{
    unsigned int sourceIp = 0;
    unsigned int sourcePort = 0;
    unsigned int length = 0;
    bool found = false;
    uint64_t elapsed = 0;
    const uint64_t start = Helper::GetSystemCounterMs();
    while (elapsed < timeoutMs) {
        endpoint->Receive(reinterpret_cast<unsigned char*>(&ack), sizeof(ack), &sourceIp, &sourcePort, &length,
                          static_cast<unsigned int>(timeoutMs - elapsed));
        // Longer datagrams arrive cut to the record's size and are judged like exact ones.
        if (DecodeDiscoveryAck(reinterpret_cast<const uint8_t*>(&ack), length, m_nReqID) == GVCP_ACCEPTED) {
            found = true;
            break;
        }
        const uint64_t now = Helper::GetSystemCounterMs();
        elapsed = now > start ? now - start : 1;
    }
    if (!found) {
        APP_THROW(GC_ERR_TIMEOUT, "Timeout!");
    }
}

CGVCPDiscoveryPort* CInstanceFactory::CreateGVCPDiscoveryPortIntstance(unsigned int ip, bool flag, std::string name)
{
    return new CGVCPDiscoveryPort(ip, flag, std::move(name));
}

void CInstanceFactory::DestoryGVCPDiscoveryPortIntstance(CGVCPDiscoveryPort* port)
{
    delete port;
}

} // namespace Client
} // namespace GenICam
