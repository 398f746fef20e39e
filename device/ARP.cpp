#include "device/ARP.h"

#include "common/ipcalc.h"

#include <arpa/inet.h>
#include <cstring>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const unsigned int kReplyWaitMs = 1000;

} // namespace

CARP::CARP() : m_nSocket(-1) {}

// Every path of DetectIP closes the socket itself.
CARP::~CARP() = default;

bool CARP::Open()
{
    m_nSocket = -1;
    const int fd = socket(AF_INET, SOCK_PACKET, htons(ARP_PROBE_LISTEN_TYPE));
    if (fd <= 0) {
        return false;
    }
    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) != 0) {
        close(fd);
        return false;
    }
    m_nSocket = fd;
    return true;
}

void CARP::CloseSocket()
{
    if (m_nSocket != -1) {
        close(m_nSocket);
        m_nSocket = -1;
    }
}

bool CARP::ARPRecv(ARP_PACKET* buffer, unsigned int length, unsigned int timeoutMs)
{
    if (m_nSocket <= 0 || buffer == nullptr) {
        return false;
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(m_nSocket, &readable);
    timeval timeout;
    timeout.tv_sec = timeoutMs / 1000;
    timeout.tv_usec = (timeoutMs % 1000) * 1000;
    if (select(m_nSocket + 1, &readable, nullptr, nullptr, &timeout) <= 0 || !FD_ISSET(m_nSocket, &readable)) {
        return false;
    }
    return recv(m_nSocket, buffer, length, 0) >= 0;
}

bool CARP::DetectIP(const char* localIP, const char* probeIP, const char* localMAC, const char* deviceName)
{
    const in_addr_t local = inet_addr(localIP);
    const in_addr_t probe = inet_addr(probeIP);
    if (local == probe) {
        return true;
    }
    unsigned char mac[6] = {0};
    Cipcalc().StrToMac(localMAC, mac);
    ARP_PACKET request = EncodeArpProbe(mac, local, probe);
    if (!Open()) {
        return false;
    }
    // The link-level address of SOCK_PACKET: a 2-byte family left 0, then the device name.
    sockaddr link;
    memset(&link, 0, sizeof(link));
    memcpy(link.sa_data, deviceName, strnlen(deviceName, sizeof(link.sa_data)));
    if (sendto(m_nSocket, &request, sizeof(request), 0, &link, sizeof(link)) < 0) {
        CloseSocket();
        return false;
    }
    ARP_PACKET reply;
    memset(&reply, 0, sizeof(reply));
    if (!ARPRecv(&reply, sizeof(reply), kReplyWaitMs)) {
        CloseSocket();
        return false;
    }
    const bool taken = MatchArpReply(reply, local, mac) == ARP_MATCH;
    CloseSocket();
    return taken;
}
