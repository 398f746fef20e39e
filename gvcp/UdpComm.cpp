#include "gvcp/UdpComm.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "common/StopToken.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace GenICam {
namespace Client {

namespace {

sockaddr_in MakeAddress(unsigned int ip, unsigned int port)
{
    sockaddr_in address;
    memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(ip);
    return address;
}

} // namespace

CUdpComm::CUdpComm() : m_nLastErrno(0) {}

CUdpComm::~CUdpComm() = default;

void CUdpComm::Open(unsigned int ip, int port, bool broadcast, bool bindAny)
{
    m_socket.Reset();
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // Descriptor 0 is refused as well: a closed standard input must not become an endpoint.
    if (fd <= 0) {
        APP_THROW(GC_ERR_IO, Helper::MsgComposer("socket error: %d", GetLastError()));
    }
    m_socket.Reset(fd);
    __SetOption(SO_REUSEADDR);
    if (broadcast) {
        __SetOption(SO_BROADCAST);
    }
    const sockaddr_in address = MakeAddress(bindAny ? INADDR_ANY : ip, static_cast<unsigned int>(port));
    if (bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        _FailOpen();
    }
}

void CUdpComm::__SetOption(int option)
{
    const int32_t on = 1;
    if (setsockopt(m_socket.Get(), SOL_SOCKET, option, &on, sizeof(on)) != 0) {
        _FailOpen();
    }
}

void CUdpComm::_FailOpen()
{
    const unsigned int error = GetLastError();
    Close();
    APP_THROW_AS("Open", GC_ERR_IO, Helper::MsgComposer("socket error %d", error));
}

void CUdpComm::Close()
{
    m_socket.Reset();
}

void CUdpComm::Send(unsigned char* data, unsigned int length, unsigned int ip, unsigned int port,
                    unsigned int* sent)
{
    if (m_socket.Get() < 1) {
        APP_THROW(GC_ERR_ERROR, "UDPComm::Send, Invilid Socket !");
    }
    if (data == nullptr) {
        APP_THROW(GC_ERR_ERROR, "UDPComm::Send, Invilid Param !");
    }
    // A refused datagram is a standard error, not a CAppException: callers only catch the latter for retries.
    if (SendTo(data, length, ip, port, sent) != 0) {
        throw std::runtime_error("send data failed");
    }
}

int CUdpComm::SendTo(const void* data, unsigned int length, unsigned int ip, unsigned int port, unsigned int* sent)
{
    const sockaddr_in address = MakeAddress(ip, port);
    const ssize_t result =
        sendto(m_socket.Get(), data, length, 0, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    if (result < 0) {
        return errno;
    }
    if (sent != nullptr) {
        *sent = static_cast<unsigned int>(result);
    }
    return 0;
}

int CUdpComm::GetReadFd() const
{
    return m_socket.Get();
}

int CUdpComm::GetLastErrno() const
{
    return m_nLastErrno;
}

void CUdpComm::Receive(unsigned char* buffer, unsigned int capacity, unsigned int* sourceIp,
                       unsigned int* sourcePort, unsigned int* received, unsigned int timeoutMs)
{
    if (m_socket.Get() < 1) {
        APP_THROW(GC_ERR_ERROR, "UDPComm::Receive, Invilid Socket !");
    }
    _AwaitDatagram(m_socket.Get(), buffer, sourceIp, sourcePort, received, timeoutMs);
    sockaddr_in source;
    socklen_t sourceLength = sizeof(source);
    const ssize_t count =
        recvfrom(m_socket.Get(), buffer, capacity, 0, reinterpret_cast<sockaddr*>(&source), &sourceLength);
    if (count < 0) {
        m_nLastErrno = errno;
        APP_THROW(GC_ERR_IO, "Failed error");
    }
    *sourceIp = ntohl(source.sin_addr.s_addr);
    *sourcePort = ntohs(source.sin_port);
    *received = static_cast<unsigned int>(count);
}

void CUdpComm::_AwaitDatagram(int fd, unsigned char* buffer, unsigned int* sourceIp, unsigned int* sourcePort,
                              unsigned int* received, unsigned int timeoutMs)
{
    if (buffer == nullptr || sourceIp == nullptr || sourcePort == nullptr || received == nullptr) {
        APP_THROW_AS("Receive", GC_ERR_ERROR, "UDPComm::Receive, Invilid Param !");
    }
    *received = 0;
    *sourceIp = 0;
    *sourcePort = 0;

    int error = 0;
    switch (WaitReadable(fd, MonotonicMs() + timeoutMs, &error)) {
    case WAIT_READY:
        return;
    case WAIT_TIMEOUT:
        // The socket layer's own wording for a time-out; callers match the code, not the text.
        APP_THROW_AS("Receive", GC_ERR_TIMEOUT, "The configuration could not be save !");
    case WAIT_STOPPED:
        APP_THROW_AS("Receive", GC_ERR_STOPPED, "Stopped.");
    case WAIT_FAILED:
        break;
    }
    m_nLastErrno = error;
    APP_THROW_AS("Receive", GC_ERR_IO, "select() Error !");
}

void CUdpComm::GetHostPort(unsigned short& port)
{
    sockaddr_in address;
    socklen_t length = sizeof(address);
    if (getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        APP_THROW(GC_ERR_ERROR, "CUdpComm::GetPort, getsockname error");
    }
    port = ntohs(address.sin_port);
}

int CUdpComm::JoinMulticast(const ip_mreq& request)
{
    __SetMembership(IP_ADD_MEMBERSHIP, request, "JoinMulticast");
    return 0;
}

int CUdpComm::ExitMulticast(const ip_mreq& request)
{
    __SetMembership(IP_DROP_MEMBERSHIP, request, "ExitMulticast");
    return 0;
}

void CUdpComm::__SetMembership(int option, const ip_mreq& request, const char* operation)
{
    // Leaving reports the join text too; the wording is kept as the system has it.
    if (setsockopt(m_socket.Get(), IPPROTO_IP, option, &request, sizeof(request)) < 0) {
        APP_THROW_AS(operation, GC_ERR_ERROR, "CUdpComm::JoinMulticast, setsockopt error");
    }
}

unsigned int CUdpComm::GetLastError()
{
    return static_cast<unsigned int>(errno);
}

CUdpComm* CInstanceFactory::CreateUdpCommIntstance()
{
    return new CUdpComm();
}

void CInstanceFactory::DestoryUdpCommIntstance(CUdpComm* comm)
{
    delete comm;
}

} // namespace Client
} // namespace GenICam
