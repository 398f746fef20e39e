#pragma once

#include <netinet/in.h>

namespace GenICam {
namespace Client {

// One IPv4 UDP endpoint. Failures raise CAppException; the destructor does not close the socket.
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

protected:
    // Closes, then raises Open's error with the errno of the call that failed.
    [[noreturn]] void _FailOpen();
    // Receive's argument checks, cleared outputs and wait until `fd` is readable, raising as Receive does.
    void _AwaitDatagram(int fd, unsigned char* buffer, unsigned int* sourceIp, unsigned int* sourcePort,
                        unsigned int* received, unsigned int timeoutMs);

private:
    void __SetOption(int option);
    void __SetMembership(int option, const ip_mreq& request, const char* operation);

    int m_nSocket;
};

} // namespace Client
} // namespace GenICam
