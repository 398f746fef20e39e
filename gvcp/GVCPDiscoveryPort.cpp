#include "gvcp/GVCPDiscoveryPort.h"

#include "common/Diagnostics.h"
#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "common/ipcalc.h"
#include "gvcp/GvcpCodec.h"
#include "gvcp/LinkTap.h"

#include <arpa/inet.h>

namespace GenICam {
namespace Client {

CGVCPDiscoveryPort::CGVCPDiscoveryPort(unsigned int ip, bool broadcast, std::string name)
    : CGVPort(ip, broadcast, name), m_pLinkComm(OpenLinkTap(name, ip, GVCP_DISCOVERY_PORT_LOCAL)),
      m_strName(name), m_stTally()
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
        ++m_stTally.nDatagrams;
        // Longer datagrams arrive cut to the record's size and are judged like exact ones.
        const GVCP_REJECTION verdict = DecodeDiscoveryAck(reinterpret_cast<const uint8_t*>(&ack), length, m_nReqID);
        if (verdict == GVCP_ACCEPTED) {
            ++m_stTally.nAccepted;
            found = true;
            break;
        }
        ++m_stTally.nIgnored;
        __DiagIgnored(ack, verdict, sourceIp, sourcePort, length);
        const uint64_t now = Helper::GetSystemCounterMs();
        elapsed = now > start ? now - start : 1;
    }
    if (!found) {
        APP_THROW(GC_ERR_TIMEOUT, "Timeout!");
    }
}

const DISCOVERY_TALLY& CGVCPDiscoveryPort::GetTally() const
{
    return m_stTally;
}

std::string CGVCPDiscoveryPort::LinkSummary() const
{
    return m_pLinkComm == nullptr ? "UDP sockets only" : "link level, rejected frames: " + m_pLinkComm->RejectSummary();
}

void CGVCPDiscoveryPort::__DiagIgnored(const ZQ_DISCOVERY_ACK& ack, GVCP_REJECTION reason, unsigned int sourceIp,
                                       unsigned int sourcePort, unsigned int length) const
{
    if (!Helper::IsDiagnostics()) {
        return;
    }
    std::string why = Helper::MsgComposer("%u bytes, shorter than a discovery acknowledge", length);
    if (reason == GVCP_REJECT_ACK_CODE) {
        why = Helper::MsgComposer("acknowledge code 0x%04X, not a discovery acknowledge", ntohs(ack.stHeader.wAck));
    } else if (reason == GVCP_REJECT_ACK_ID) {
        why = Helper::MsgComposer("acknowledge id 0x%04X, awaited 0x%04X", ntohs(ack.stHeader.wAckID), m_nReqID);
    }
    Helper::Diag("%s: discovery: ignored a datagram from %s:%u: %s", m_strName.c_str(), DottedText(sourceIp).c_str(),
                 sourcePort, why.c_str());
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
