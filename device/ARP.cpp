#include "device/ARP.h"

#include "common/StopToken.h"
#include "common/ipcalc.h"

#include <cerrno>

#include <arpa/inet.h>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

using GenICam::Client::MonotonicMs;
using GenICam::Client::WAIT_FAILED;
using GenICam::Client::WAIT_READY;
using GenICam::Client::WAIT_STOPPED;
using GenICam::Client::WAIT_TIMEOUT;
using GenICam::Client::WaitReadable;

namespace {

const unsigned int kReplyWaitMs = 1000;

} // namespace

CARP::CARP() = default;

// Every path of DetectIP closes the socket itself.
CARP::~CARP() = default;

bool CARP::Open()
{
    m_socket.Reset();
    const int fd = socket(AF_INET, SOCK_PACKET | SOCK_CLOEXEC, htons(ARP_PROBE_LISTEN_TYPE));
    // Descriptor 0 counts as a failure and is left alone.
    if (fd <= 0) {
        return false;
    }
    GenICam::Client::CUniqueFd socketFd(fd);
    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) != 0) {
        return false;
    }
    m_socket = std::move(socketFd);
    return true;
}

void CARP::CloseSocket()
{
    m_socket.Reset();
}

bool CARP::ARPRecv(ARP_PACKET* buffer, unsigned int length, unsigned int timeoutMs)
{
    return __Receive(buffer, length, timeoutMs) > 0;
}

int CARP::__Receive(ARP_PACKET* buffer, unsigned int length, unsigned int timeoutMs)
{
    if (m_socket.Get() <= 0 || buffer == nullptr) {
        return -EBADF;
    }
    int error = 0;
    switch (WaitReadable(m_socket.Get(), MonotonicMs() + timeoutMs, &error)) {
    case WAIT_TIMEOUT:
        return 0;
    case WAIT_STOPPED:
        return -ECANCELED;
    case WAIT_FAILED:
        return -error;
    case WAIT_READY:
        break;
    }
    return recv(m_socket.Get(), buffer, length, 0) >= 0 ? 1 : -errno;
}

bool CARP::DetectIP(const char* localIP, const char* probeIP, const char* localMAC, const char* deviceName)
{
    return Probe(localIP, probeIP, localMAC, deviceName).nKind == ARP_PROBE_TAKEN;
}

ARP_PROBE_RESULT CARP::Probe(const char* localIP, const char* probeIP, const char* localMAC, const char* deviceName)
{
    const in_addr_t local = inet_addr(localIP);
    const in_addr_t probe = inet_addr(probeIP);
    if (local == probe) {
        return {ARP_PROBE_TAKEN, 0};
    }
    unsigned char mac[6] = {0};
    Cipcalc().StrToMac(localMAC, mac);
    ARP_PACKET request = EncodeArpProbe(mac, local, probe);
    errno = 0;
    if (!Open()) {
        return {ARP_PROBE_NO_SOCKET, errno};
    }
    // The link-level address of SOCK_PACKET: a 2-byte family left 0, then the device name.
    sockaddr link;
    memset(&link, 0, sizeof(link));
    memcpy(link.sa_data, deviceName, strnlen(deviceName, sizeof(link.sa_data)));
    if (sendto(m_socket.Get(), &request, sizeof(request), 0, &link, sizeof(link)) < 0) {
        const int error = errno;
        CloseSocket();
        return {ARP_PROBE_UNSENT, error};
    }
    ARP_PACKET reply;
    memset(&reply, 0, sizeof(reply));
    const int received = __Receive(&reply, sizeof(reply), kReplyWaitMs);
    CloseSocket();
    if (received < 0) {
        return {ARP_PROBE_FAILED, -received};
    }
    if (received == 0) {
        return {ARP_PROBE_FREE, 0};
    }
    return {MatchArpReply(reply, local, mac) == ARP_MATCH ? ARP_PROBE_TAKEN : ARP_PROBE_FREE, 0};
}
