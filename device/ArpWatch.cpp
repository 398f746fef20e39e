#include "device/ArpWatch.h"
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

namespace GenICam {
namespace Client {

namespace {

// Frames taken per system call, and calls per Read: 256 frames at most before the caller's loop runs again.
const unsigned int kFramesPerCall = 32;
const int kCallsPerRead = 8;

int Fail(int socketFd, int* error)
{
    if (error != nullptr) {
        *error = errno;
    }
    if (socketFd >= 0) {
        close(socketFd);
    }
    return -1;
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

int OpenArpSocket(const std::string& device, ARP_FILTER which, int* error)
{
    const unsigned int index = if_nametoindex(DeviceNameOf(device).c_str());
    if (index == 0) {
        return Fail(-1, error);
    }
    // Protocol 0 until bound: no frame is queued before the filter is in place.
    const int socketFd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (socketFd < 0) {
        return Fail(-1, error);
    }
    std::vector<sock_filter> program = BuildArpFilter(which);
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    sockaddr_ll link;
    memset(&link, 0, sizeof(link));
    link.sll_family = AF_PACKET;
    link.sll_protocol = htons(ETH_P_ARP);
    link.sll_ifindex = static_cast<int>(index);
    if (setsockopt(socketFd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) != 0 ||
        bind(socketFd, reinterpret_cast<const sockaddr*>(&link), sizeof(link)) != 0) {
        return Fail(socketFd, error);
    }
    return socketFd;
}

CArpWatch::CArpWatch() : m_nSocket(-1), m_aMAC() {}

CArpWatch::~CArpWatch()
{
    Close();
}

bool CArpWatch::Open(const std::string& device, int* error)
{
    Close();
    const int socketFd = OpenArpSocket(device, ARP_FILTER_ANNOUNCEMENTS, error);
    if (socketFd < 0) {
        return false;
    }
    if (!ReadOwnMAC(socketFd, DeviceNameOf(device), m_aMAC)) {
        Fail(socketFd, error);
        return false;
    }
    m_nSocket = socketFd;
    return true;
}

void CArpWatch::Close()
{
    if (m_nSocket != -1) {
        close(m_nSocket);
        m_nSocket = -1;
    }
}

int CArpWatch::GetFd() const
{
    return m_nSocket;
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
    for (int call = 0; call < kCallsPerRead && m_nSocket != -1; ++call) {
        const int count = recvmmsg(m_nSocket, messages, kFramesPerCall, MSG_DONTWAIT, nullptr);
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
