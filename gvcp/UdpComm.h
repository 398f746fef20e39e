#pragma once

#include "common/UniqueFd.h"

#include <netinet/in.h>

namespace GenICam {
namespace Client {

// One IPv4 UDP endpoint. Failures raise CAppException; owners call Close, and a socket left open is closed
// with the endpoint.
class CUdpComm {
public:
    CUdpComm();
    virtual ~CUdpComm();

    virtual void Open(unsigned int ip, int port, bool broadcast, bool bindAny);
    virtual void Close();
    virtual void Send(unsigned char* data, unsigned int length, unsigned int ip, unsigned int port,
                      unsigned int* sent);
    virtual void Receive(unsigned char* buffer, unsigned int capacity, unsigned int* sourceIp,
                         unsigned int* sourcePort, unsigned int* received, unsigned int timeoutMs);
    virtual void GetHostPort(unsigned short& port);
    virtual int JoinMulticast(const ip_mreq& request);
    virtual int ExitMulticast(const ip_mreq& request);

    unsigned int GetLastError();

    // Send without raising: 0, or the errno of a refused datagram; `sent` gets what went out.
    int SendTo(const void* data, unsigned int length, unsigned int ip, unsigned int port, unsigned int* sent);
    // The descriptor a wait polls for this endpoint's datagrams; -1 when closed.
    virtual int GetReadFd() const;
    // The errno behind the last GC_ERR_IO that Receive raised.
    int GetLastErrno() const;

protected:
    // Closes, then raises Open's error with the errno of the call that failed.
    [[noreturn]] void _FailOpen();
    // Receive's argument checks, cleared outputs and wait until `fd` is readable, raising as Receive does.
    void _AwaitDatagram(int fd, unsigned char* buffer, unsigned int* sourceIp, unsigned int* sourcePort,
                        unsigned int* received, unsigned int timeoutMs);

    // Receive keeps the errno of its failures here, for callers that report it.
    int m_nLastErrno;

private:
    void __SetOption(int option);
    void __SetMembership(int option, const ip_mreq& request, const char* operation);

    CUniqueFd m_socket;
};

} // namespace Client
} // namespace GenICam
