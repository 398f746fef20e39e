#pragma once

#include "common/WmCriticalSection.h"
#include "gvcp/FeaturePort.h"
#include "gvcp/GVPort.h"

#include <cstdint>
#include <functional>

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
    // Moves one block of at most 512 bytes at (address, offset into the caller's buffer); the length
    // comes back as the device reported it.
    using BlockTransfer = std::function<void(unsigned long, unsigned long, unsigned long&)>;

    void __CheckAddr(unsigned long addr);
    void __Transact(const char* operation, unsigned long* count, bool keepCountOnDeviceError,
                    const char* unexpectedText, const std::function<void()>& attempt);
    void __TransferBlocks(unsigned long addr, unsigned long* size, const char* operation, const char* unexpectedText,
                          const BlockTransfer& transfer);
    void __SendCmd(const char* operation, size_t length);
    unsigned int __WaitAck(const char* operation, uint16_t ackCode, unsigned int expectedLength,
                           const char* timeoutText, unsigned long* count, uint16_t& status);
    void __CheckStatus(const char* operation, uint16_t status);
    void __CheckBlockLength(unsigned long length);

    void __SendReadRegCmd(const unsigned long* addrs, unsigned long count);
    void __RecvReadRegCmdAck(unsigned int* values, unsigned long* count, unsigned long requested);
    void __SendWriteRegCmd(const unsigned long* addrs, const unsigned int* values, unsigned long count);
    void __RecvWriteRegCmdAck(unsigned long* count);
    void __RecvWriteAck(const char* operation, uint16_t ackCode, unsigned long* count);
    void __ReadMemLimited(unsigned long addr, unsigned char* buffer, unsigned long& length);
    void __SendReadMemCmd(unsigned long addr, unsigned long length);
    void __RecvReadMemCmdAck(unsigned char* buffer, unsigned long& length, unsigned long requested);
    void __WriteMemLimited(unsigned long addr, const unsigned char* buffer, unsigned long& length);
    void __SendWriteMemCmd(unsigned long addr, const unsigned char* buffer, unsigned long length);
    void __RecvWriteMemCmdAck(unsigned long& length);

    unsigned int m_cmdRetryTimes;
    unsigned int m_cmdTimeout;
    unsigned int m_nDeviceIP;
    CWmCriticalSection m_csTransaction;
    unsigned char* m_pSendBuffer;
    unsigned char* m_pRecvBuffer;
};

} // namespace Client
} // namespace GenICam
