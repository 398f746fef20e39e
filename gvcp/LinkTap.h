#pragma once

#include "gvcp/UdpComm.h"

#include <string>
#include <vector>

namespace GenICam {
namespace Client {

// Receives the GVCP acknowledges addressed to one local port on one interface at link level, so that
// answers the kernel's reverse-path and local-source checks drop still arrive. Receive-only.
class CLinkTap : public CUdpComm {
public:
    explicit CLinkTap(std::string interfaceName);

    // `ip` names the interface address; `broadcast` and `bindAny` do not apply to a tap.
    void Open(unsigned int ip, int port, bool broadcast, bool bindAny) override;
    void Close() override;
    void Receive(unsigned char* buffer, unsigned int capacity, unsigned int* sourceIp, unsigned int* sourcePort,
                 unsigned int* received, unsigned int timeoutMs) override;

private:
    std::string m_strInterface;
    int m_nPacketSocket;
    std::vector<unsigned char> m_vecFrame;
};

// Opens a tap, or returns null when the host does not allow one (no raw-network right, no such interface):
// the caller then receives through its UDP endpoints alone.
CUdpComm* OpenLinkTap(const std::string& interfaceName, unsigned int ip, int port);

} // namespace Client
} // namespace GenICam
