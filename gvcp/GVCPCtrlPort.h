#pragma once

#include "common/WmCriticalSection.h"
#include "gvcp/FeaturePort.h"
#include "gvcp/GVPort.h"

namespace GenICam {
namespace Client {

// CCP register values written by SetPrivilege.
enum DEVICE_ACCESS_VALUE {
    DEVICE_ACCESS_RELEASE = 0,
    DEVICE_ACCESS_EXCLUSIVE = 1,
    DEVICE_ACCESS_CONTROL = 2,
};

// The GVCP control channel to one device: registers, memory and the CCP privilege.
class CGVCPCtrlPort : public CGVPort, public IFeaturePort {
public:
    CGVCPCtrlPort(unsigned int interfaceIP, unsigned int deviceIP, std::string name);
    ~CGVCPCtrlPort() override;

    void GetCmdRetryTimes(unsigned int& times) const;
    void SetCmdRetryTimes(unsigned int times);
    void GetCmdTimeout(unsigned int& timeoutMs) const;
    void SetCmdTimeout(unsigned int timeoutMs);

    virtual void SetPrivilege(DEVICE_ACCESS_VALUE value);
    virtual void GetAccessStatus(int& status);
    void ReadRegList(unsigned long* addrs, unsigned int* values, unsigned long* count) override;
    void WriteRegList(unsigned long* addrs, unsigned int* values, unsigned long* count) override;
    void ReadMem(unsigned long addr, unsigned char* buffer, unsigned long* size) override;
    void WriteMem(unsigned long addr, const unsigned char* buffer, unsigned long* size) override;

private:
    unsigned int m_cmdRetryTimes;
    unsigned int m_cmdTimeout;
    unsigned int m_nDeviceIP;
    CWmCriticalSection m_csTransaction;
    unsigned char* m_pSendBuffer;
    unsigned char* m_pRecvBuffer;
};

} // namespace Client
} // namespace GenICam
