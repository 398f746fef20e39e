#pragma once

#include <string>

namespace GenICam {
namespace Client {

class CUdpComm;

// Base of every GVCP port: a wildcard and an interface endpoint on one local port, and the request id.
class CGVPort {
public:
    CGVPort(unsigned int ip, bool broadcast, std::string name);
    virtual ~CGVPort();
    CGVPort(const CGVPort&) = delete;
    CGVPort& operator=(const CGVPort&) = delete;

    virtual void GetHostPort(unsigned short& port);

protected:
    unsigned short _GetReqID();
    void _ResetReqID();

    CUdpComm* m_pAnyComm;
    CUdpComm* m_pComm;
    unsigned short m_nReqID;

private:
    void __ReleaseEndpoints();
};

} // namespace Client
} // namespace GenICam
