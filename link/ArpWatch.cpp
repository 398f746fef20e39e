#include "link/ArpWatch.h"
#include "common/Identity.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace GenICam {
namespace Client {

namespace {

// Frames taken per system call, and calls per Read: 256 frames at most before the caller's loop runs again.
const unsigned int kFramesPerCall = 32;
const int kCallsPerRead = 8;

CUniqueFd Fail(int* error)
{
    if (error != nullptr) {
        *error = errno;
    }
    return CUniqueFd();
}

// The interface's own MAC: frames from it are not another host's.
bool ReadOwnMAC(int socketFd, const std::string& name, uint8_t* mac)
{
    ifreq request;
    memset(&request, 0, sizeof(request));
    strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
    if (ioctl(socketFd, SIOCGIFHWADDR, &request) != 0) {
        return false;
    }
    memcpy(mac, request.ifr_hwaddr.sa_data, 6);
    return true;
}

} // namespace

CUniqueFd OpenArpSocket(const std::string& device, ARP_FILTER which, int* error)
{
    const unsigned int index = if_nametoindex(DeviceNameOf(device).c_str());
    if (index == 0) {
        return Fail(error);
    }
    // Protocol 0 until bound: no frame is queued before the filter is in place.
    CUniqueFd socketFd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    if (!socketFd.IsOpen()) {
        return Fail(error);
    }
    std::vector<sock_filter> program = BuildArpFilter(which);
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    sockaddr_ll link;
    memset(&link, 0, sizeof(link));
    link.sll_family = AF_PACKET;
    link.sll_protocol = htons(ETH_P_ARP);
    link.sll_ifindex = static_cast<int>(index);
    if (setsockopt(socketFd.Get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) != 0 ||
        bind(socketFd.Get(), reinterpret_cast<const sockaddr*>(&link), sizeof(link)) != 0) {
        return Fail(error);
    }
    return socketFd;
}

bool CArpWatch::Open(const std::string& device, int* error)
{
    m_socket.Reset();
    CUniqueFd socketFd = OpenArpSocket(device, ARP_FILTER_ANNOUNCEMENTS, error);
    if (!socketFd.IsOpen()) {
        return false;
    }
    if (!ReadOwnMAC(socketFd.Get(), DeviceNameOf(device), m_aMAC)) {
        Fail(error);
        return false;
    }
    m_socket = std::move(socketFd);
    return true;
}

int CArpWatch::GetFd() const
{
    return m_socket.Get();
}

void CArpWatch::Read(std::vector<ARP_ANNOUNCEMENT>& heard)
{
    heard.clear();
    uint8_t frames[kFramesPerCall][sizeof(ARP_PACKET)];
    iovec vectors[kFramesPerCall];
    mmsghdr messages[kFramesPerCall];
    memset(messages, 0, sizeof(messages));
    for (unsigned int i = 0; i < kFramesPerCall; ++i) {
        vectors[i] = {frames[i], sizeof(frames[i])};
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    for (int call = 0; call < kCallsPerRead && m_socket.IsOpen(); ++call) {
        const int count = recvmmsg(m_socket.Get(), messages, kFramesPerCall, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < count; ++i) {
            const ARP_ANNOUNCEMENT one = ReadArpAnnouncement(frames[i], messages[i].msg_len, m_aMAC);
            if (one.nKind != ARP_ANNOUNCEMENT_NONE) {
                heard.push_back(one);
            }
        }
        if (count < static_cast<int>(kFramesPerCall)) {
            break;
        }
    }
}

} // namespace Client
} // namespace GenICam
