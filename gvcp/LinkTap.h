#pragma once

#include "gvcp/LinkFrame.h"
#include "gvcp/UdpComm.h"

#include <array>

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

    int GetReadFd() const override;

    // The frames the decoder rejected since Open, by reason: "2 bad IPv4 checksum, 1 fragment" or "none".
    std::string RejectSummary() const;

private:
    std::string m_strInterface;
    CUniqueFd m_packetSocket;
    std::vector<unsigned char> m_vecFrame;
    std::array<unsigned int, kLinkFrameErrorCount> m_aRejects;
};

// Opens a tap, or returns null when the host does not allow one (no raw-network right, no such interface):
// the caller then receives through its UDP endpoints alone.
CLinkTap* OpenLinkTap(const std::string& interfaceName, unsigned int ip, int port);

// Whether this process may open link-level sockets (the raw-network right); sends nothing.
bool HasRawNetworkRight();

} // namespace Client
} // namespace GenICam
