#include "gvcp/LinkTap.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "common/KernelInterfaces.h"
#include "common/SocketBuffer.h"
#include "gvcp/LinkFrame.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

namespace GenICam {
namespace Client {

namespace {

// Room for a burst of 2000 discovery acknowledges; the kernel caps SO_RCVBUF for callers without the right.
const int kReceiveBuffer = 4 << 20;
const size_t kFrameMax = 65535;

struct LINK_INTERFACE {
    unsigned int nIndex;
    unsigned int dwMask;
};

// Far past any host's count of addresses.
const size_t kAddressEntries = 1024;

// The interface holding `ip` under `name` (a kernel name or an address label such as eth0:1).
bool FindInterface(const std::string& name, unsigned int ip, LINK_INTERFACE& found)
{
    for (const KERNEL_ADDRESS& entry : ReadKernelAddresses(kAddressEntries)) {
        if (entry.strName == name && entry.nIP == ip && entry.bHasMask && entry.nIndex != 0) {
            found.dwMask = entry.nMask;
            found.nIndex = entry.nIndex;
            return true;
        }
    }
    return false;
}

} // namespace

CLinkTap::CLinkTap(std::string interfaceName)
    : m_strInterface(std::move(interfaceName)), m_vecFrame(kFrameMax), m_aRejects()
{
}

void CLinkTap::Open(unsigned int ip, int port, bool, bool)
{
    Close();
    m_aRejects.fill(0);
    LINK_INTERFACE itf;
    if (!FindInterface(m_strInterface, ip, itf)) {
        APP_THROW(GC_ERR_IO, Helper::MsgComposer("no interface %s with that address", m_strInterface.c_str()));
    }
    // Protocol 0 until bound: no frame is queued before the filter is in place.
    m_packetSocket.Reset(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!m_packetSocket.IsOpen()) {
        APP_THROW(GC_ERR_IO, Helper::MsgComposer("socket error: %d", GetLastError()));
    }
    std::vector<sock_filter> program = BuildAckFilter(ip, ip | ~itf.dwMask, static_cast<uint16_t>(port));
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (setsockopt(m_packetSocket.Get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) != 0) {
        _FailOpen();
    }
    GrowReceiveBuffer(m_packetSocket.Get(), kReceiveBuffer);
    sockaddr_ll link;
    memset(&link, 0, sizeof(link));
    link.sll_family = AF_PACKET;
    link.sll_protocol = htons(ETH_P_IP);
    link.sll_ifindex = static_cast<int>(itf.nIndex);
    if (bind(m_packetSocket.Get(), reinterpret_cast<const sockaddr*>(&link), sizeof(link)) != 0) {
        _FailOpen();
    }
}

void CLinkTap::Close()
{
    m_packetSocket.Reset();
}

// Frames the decoder rejects are skipped; the wait ends at the same deadline as a UDP endpoint's.
void CLinkTap::Receive(unsigned char* buffer, unsigned int capacity, unsigned int* sourceIp,
                       unsigned int* sourcePort, unsigned int* received, unsigned int timeoutMs)
{
    if (m_packetSocket.Get() < 0) {
        APP_THROW(GC_ERR_ERROR, "UDPComm::Receive, Invilid Socket !");
    }
    const uint64_t deadline = Helper::GetSystemCounterMs() + timeoutMs;
    for (;;) {
        const uint64_t now = Helper::GetSystemCounterMs();
        _AwaitDatagram(m_packetSocket.Get(), buffer, sourceIp, sourcePort, received,
                       static_cast<unsigned int>(deadline > now ? deadline - now : 0));
        const ssize_t count = recv(m_packetSocket.Get(), m_vecFrame.data(), m_vecFrame.size(), 0);
        if (count < 0) {
            m_nLastErrno = errno;
            APP_THROW(GC_ERR_IO, "Failed error");
        }
        LINK_UDP_DATAGRAM datagram;
        const LINK_FRAME_ERROR error = DecodeUdpFrame(m_vecFrame.data(), static_cast<size_t>(count), datagram);
        if (error != LINK_FRAME_ERROR::NONE) {
            ++m_aRejects[static_cast<size_t>(error)];
            continue;
        }
        // Like a UDP socket, a datagram longer than the buffer is cut to its size.
        const size_t length = datagram.nPayloadLength < capacity ? datagram.nPayloadLength : capacity;
        memcpy(buffer, datagram.pPayload, length);
        *sourceIp = datagram.dwSourceIP;
        *sourcePort = datagram.wSourcePort;
        *received = static_cast<unsigned int>(length);
        return;
    }
}

int CLinkTap::GetReadFd() const
{
    return m_packetSocket.Get();
}

std::string CLinkTap::RejectSummary() const
{
    std::string summary;
    for (size_t reason = 0; reason < m_aRejects.size(); ++reason) {
        if (m_aRejects[reason] != 0) {
            summary += Helper::MsgComposer("%s%u %s", summary.empty() ? "" : ", ", m_aRejects[reason],
                                           LinkFrameErrorText(static_cast<LINK_FRAME_ERROR>(reason)));
        }
    }
    return summary.empty() ? "none" : summary;
}

CLinkTap* OpenLinkTap(const std::string& interfaceName, unsigned int ip, int port)
{
    CLinkTap* tap = new CLinkTap(interfaceName);
    try {
        tap->Open(ip, port, false, false);
        return tap;
    } catch (CAppException&) {
        CInstanceFactory::DestoryUdpCommIntstance(tap);
        return nullptr;
    }
}

bool HasRawNetworkRight()
{
    return CUniqueFd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0)).IsOpen();
}

} // namespace Client
} // namespace GenICam
