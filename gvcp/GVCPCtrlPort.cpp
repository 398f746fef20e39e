#include "gvcp/GVCPCtrlPort.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "gvcp/DeviceInfo.h"
#include "gvcp/GvcpCodec.h"
#include "gvcp/GvcpExchange.h"
#include "gvcp/UdpComm.h"

#include <cstring>
#include <stdexcept>

namespace GenICam {
namespace Client {

namespace {

const unsigned int kDefaultRetryTimes = 3;
const unsigned int kDefaultTimeoutMs = 500;
const uint16_t kStatusCcpBusy = 0xC000;

// Holds the port's lock for one transaction.
class CTransactionLock {
public:
    explicit CTransactionLock(CWmCriticalSection& section) : m_section(section) { m_section.Enter(); }
    ~CTransactionLock() { m_section.Leave(); }
    CTransactionLock(const CTransactionLock&) = delete;
    CTransactionLock& operator=(const CTransactionLock&) = delete;

private:
    CWmCriticalSection& m_section;
};

DEVICE_ACCESS_STATUS AccessStatusFromCcp(unsigned int ccp)
{
    switch (ccp) {
    case 0:
        return DEVICE_ACCESS_STATUS_READWRITE; // nobody holds control
    case 2:
        return DEVICE_ACCESS_STATUS_READONLY; // control access held
    case 1:
        return DEVICE_ACCESS_STATUS_NOACCESS; // exclusive access held
    default:
        return DEVICE_ACCESS_STATUS_UNKNOWN;
    }
}

} // namespace

CGVCPCtrlPort::CGVCPCtrlPort(unsigned int interfaceIP, unsigned int deviceIP, std::string name)
    : CGVPort(interfaceIP, false, std::move(name)),
      m_cmdRetryTimes(kDefaultRetryTimes),
      m_cmdTimeout(kDefaultTimeoutMs),
      m_nDeviceIP(deviceIP),
      m_pSendBuffer(new unsigned char[GVCP_PACKET_MAX]),
      m_pRecvBuffer(new unsigned char[GVCP_PACKET_MAX])
{
}

CGVCPCtrlPort::~CGVCPCtrlPort()
{
    delete[] m_pSendBuffer;
    delete[] m_pRecvBuffer;
}

void CGVCPCtrlPort::GetCmdRetryTimes(unsigned int& times) const
{
    times = m_cmdRetryTimes;
}

void CGVCPCtrlPort::SetCmdRetryTimes(unsigned int times)
{
    m_cmdRetryTimes = times;
}

void CGVCPCtrlPort::GetCmdTimeout(unsigned int& timeoutMs) const
{
    timeoutMs = m_cmdTimeout;
}

void CGVCPCtrlPort::SetCmdTimeout(unsigned int timeoutMs)
{
    m_cmdTimeout = timeoutMs;
}

void CGVCPCtrlPort::SetPrivilege(DEVICE_ACCESS_VALUE value)
{
    unsigned long address = GVCP_REG_CCP;
    unsigned int word = htonl(static_cast<uint32_t>(value));
    unsigned long count = 1;
    try {
        WriteRegList(&address, &word, &count);
    } catch (CAppException& e) {
        if (e.GetErrorCode() == GC_ERR_ACCESS_DENIED) {
            APP_THROW(GC_ERR_ACCESS_DENIED, "When write CCP Register,the requested device is denied.");
        }
        if (e.GetErrorCode() == GC_ERR_TIMEOUT) {
            APP_THROW(GC_ERR_TIMEOUT, "When write CCP Register,timeout.");
        }
        throw;
    }
}

void CGVCPCtrlPort::GetAccessStatus(int& status)
{
    status = DEVICE_ACCESS_STATUS_UNKNOWN;
    unsigned long address = GVCP_REG_CCP;
    unsigned int word = 0;
    unsigned long count = 1;
    try {
        ReadRegList(&address, &word, &count);
        status = AccessStatusFromCcp(ntohl(word));
    } catch (CAppException& e) {
        // Another host holding control shows as a device status, or as a refused read.
        if (e.GetErrorCode() == kStatusCcpBusy) {
            status = DEVICE_ACCESS_STATUS_BUSY;
        } else if (e.GetErrorCode() == GC_ERR_ACCESS_DENIED) {
            status = DEVICE_ACCESS_STATUS_NOACCESS;
        }
    } catch (...) {
        status = DEVICE_ACCESS_STATUS_UNKNOWN;
    }
}

void CGVCPCtrlPort::ReadRegList(unsigned long* addrs, unsigned int* values, unsigned long* count)
{
    if (addrs == nullptr || values == nullptr || count == nullptr || *count == 0) {
        APP_THROW(GC_ERR_INVALID_PARAMETER, "Invalid parameter .");
    }
    if (*count > GVCP_READREG_MAX) {
        APP_THROW(GC_ERR_INVALID_PARAMETER,
                  Helper::MsgComposer("Read too many Registers,Max Num is %d!", GVCP_READREG_MAX));
    }
    const unsigned long requested = *count;
    __Transact(__FUNCTION__, count, false, "unexpected Error !", [&] {
        __SendReadRegCmd(addrs, requested);
        __RecvReadRegCmdAck(values, count, requested);
    });
}

void CGVCPCtrlPort::WriteRegList(unsigned long* addrs, unsigned int* values, unsigned long* count)
{
    if (addrs == nullptr || values == nullptr || count == nullptr || *count == 0) {
        APP_THROW(GC_ERR_INVALID_PARAMETER, "Invalid parameter.");
    }
    if (*count > GVCP_WRITEREG_MAX) {
        APP_THROW(GC_ERR_INVALID_PARAMETER,
                  Helper::MsgComposer("Write too many Registers,Max Num is %d!", GVCP_WRITEREG_MAX));
    }
    const unsigned long requested = *count;
    __Transact(__FUNCTION__, count, false, "unexpected Error!", [&] {
        __SendWriteRegCmd(addrs, values, requested);
        __RecvWriteRegCmdAck(count);
    });
}

void CGVCPCtrlPort::ReadMem(unsigned long addr, unsigned char* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr) {
        APP_THROW(GC_ERR_INVALID_PARAMETER, "Invalid parameter.");
    }
    __CheckAddr(addr);
    __TransferBlocks(addr, size, __FUNCTION__, "unexpected Error!",
                     [&](unsigned long at, unsigned long done, unsigned long& block) {
                         __ReadMemLimited(at, buffer + done, block);
                     });
}

void CGVCPCtrlPort::WriteMem(unsigned long addr, const unsigned char* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr) {
        APP_THROW(GC_ERR_INVALID_PARAMETER, "Invalid parameter.");
    }
    __CheckAddr(addr);
    __TransferBlocks(addr, size, __FUNCTION__, "unexpected Error !",
                     [&](unsigned long at, unsigned long done, unsigned long& block) {
                         __WriteMemLimited(at, buffer + done, block);
                     });
}

void CGVCPCtrlPort::__TransferBlocks(unsigned long addr, unsigned long* size, const char* operation,
                                     const char* unexpectedText, const BlockTransfer& transfer)
{
    unsigned long remaining = *size;
    unsigned long block = GVCP_MEM_BLOCK_MAX;
    *size = 0;
    // The block length is never reset: after a short block every later one asks for that length.
    while (remaining != 0) {
        if (remaining < GVCP_MEM_BLOCK_MAX) {
            block = remaining;
        }
        try {
            transfer(addr, *size, block);
        } catch (CAppException& e) {
            *size += block;
            throw CAppException(e);
        } catch (...) {
            APP_THROW_AS(operation, GC_ERR_ERROR, unexpectedText);
        }
        // A device that claims more than was asked must not walk us past the caller's buffer.
        if (block > remaining) {
            block = remaining;
        }
        *size += block;
        addr += block;
        remaining -= block;
    }
}

void CGVCPCtrlPort::__CheckAddr(unsigned long addr)
{
    if ((addr & 3) != 0) {
        APP_THROW(GC_ERR_INVALID_ADDRESS,
                  Helper::MsgComposer("ui64Addr = 0x%X,is not multiple of 4.", static_cast<unsigned int>(addr)));
    }
}

void CGVCPCtrlPort::__Transact(const char* operation, unsigned long* count, bool keepCountOnDeviceError,
                               const char* unexpectedText, const std::function<void()>& attempt)
{
    bool done = false;
    {
        CTransactionLock lock(m_csTransaction);
        // Every retry repeats the same request id.
        _GetReqID();
        for (unsigned int i = 0; i < m_cmdRetryTimes && !done; ++i) {
            try {
                attempt();
                done = true;
            } catch (CAppException& e) {
                if (e.GetErrorCode() == GC_ERR_TIMEOUT) {
                    continue;
                }
                if (!keepCountOnDeviceError || e.GetErrorCode() == GC_ERR_IO) {
                    *count = 0;
                }
                throw;
            } catch (...) {
                *count = 0;
                APP_THROW_AS(operation, GC_ERR_ERROR, unexpectedText);
            }
        }
    }
    if (!done) {
        *count = 0;
        APP_THROW_AS(operation, GC_ERR_TIMEOUT, " Timeout !");
    }
}

void CGVCPCtrlPort::__SendCmd(const char* operation, size_t length)
{
    CGvcpExchange exchange({m_pComm}, m_pRecvBuffer, 0);
    const GVCP_RESULT sent =
        exchange.Send(*m_pComm, m_pSendBuffer, static_cast<unsigned int>(length), m_nDeviceIP, GVCP_PORT);
    // A refused datagram is a standard error, not a CAppException: it is not retried.
    if (sent.nKind == GVCP_RESULT_SEND_FAILED && sent.nErrno != 0) {
        throw std::runtime_error("send data failed");
    }
    if (exchange.GetSent() != length) {
        APP_THROW_AS(operation, GC_ERR_IO,
                     Helper::MsgComposer("Expected Send Length = %d,Send Success is Length = %d!",
                                         static_cast<unsigned int>(length), exchange.GetSent()));
    }
}

unsigned int CGVCPCtrlPort::__WaitAck(const char* operation, uint16_t ackCode, unsigned int expectedLength,
                                      const char* timeoutText, unsigned long* count, uint16_t& status)
{
    CGvcpExchange exchange({m_pComm}, m_pRecvBuffer, expectedLength);
    const uint16_t reqID = m_nReqID;
    const GVCP_RESULT result =
        exchange.Await(Helper::GetSystemCounterMs() + m_cmdTimeout,
                       [&](const uint8_t* data, size_t size, GVCP_ACK_FIELDS& header) {
                           return DecodeAck(data, size, ackCode, reqID, header);
                       });
    if (result.nKind == GVCP_RESULT_OK || result.nKind == GVCP_RESULT_REFUSED) {
        status = result.nStatus;
        return exchange.GetLength();
    }
    *count = 0;
    if (result.nKind == GVCP_RESULT_STOPPED) {
        APP_THROW_AS(operation, GC_ERR_STOPPED, "Stopped.");
    }
    if (result.nKind == GVCP_RESULT_SOCKET_FAILED) {
        APP_THROW_AS("Receive", GC_ERR_IO, "select() Error !");
    }
    APP_THROW_AS(operation, GC_ERR_TIMEOUT, timeoutText);
}

void CGVCPCtrlPort::__CheckStatus(const char* operation, uint16_t status)
{
    if (status == GVCP_STATUS_SUCCESS) {
        return;
    }
    if (status == GVCP_STATUS_ACCESS_DENIED) {
        APP_THROW_AS(operation, GC_ERR_ACCESS_DENIED, "The access to the requested device is denied.");
    }
    APP_THROW_AS(operation, status, Helper::MsgComposer("Device Return 0x%X", status));
}

void CGVCPCtrlPort::__SendReadRegCmd(const unsigned long* addrs, unsigned long count)
{
    uint32_t wireAddrs[GVCP_READREG_MAX];
    for (unsigned long i = 0; i < count; ++i) {
        __CheckAddr(addrs[i]);
        wireAddrs[i] = static_cast<uint32_t>(addrs[i]);
    }
    __SendCmd(__FUNCTION__, EncodeReadRegCmd(m_pSendBuffer, wireAddrs, count, m_nReqID));
}

void CGVCPCtrlPort::__RecvReadRegCmdAck(unsigned int* values, unsigned long* count, unsigned long requested)
{
    uint16_t status = 0;
    const unsigned int expected = sizeof(GVCP_ACK_HEADER) + static_cast<unsigned int>(requested) * sizeof(uint32_t);
    const unsigned int received = __WaitAck(__FUNCTION__, GVCP_READREG_ACK, expected, "Timeout!", count, status);
    // Values stay in network order: callers convert.
    *count = DecodeReadRegAck(m_pRecvBuffer, received, values);
    __CheckStatus(__FUNCTION__, status);
}

void CGVCPCtrlPort::__SendWriteRegCmd(const unsigned long* addrs, const unsigned int* values, unsigned long count)
{
    uint32_t wireAddrs[GVCP_WRITEREG_MAX];
    for (unsigned long i = 0; i < count; ++i) {
        __CheckAddr(addrs[i]);
        wireAddrs[i] = static_cast<uint32_t>(addrs[i]);
    }
    __SendCmd(__FUNCTION__, EncodeWriteRegCmd(m_pSendBuffer, wireAddrs, values, count, m_nReqID));
}

void CGVCPCtrlPort::__RecvWriteRegCmdAck(unsigned long* count)
{
    __RecvWriteAck(__FUNCTION__, GVCP_WRITEREG_ACK, count);
}

void CGVCPCtrlPort::__RecvWriteAck(const char* operation, uint16_t ackCode, unsigned long* count)
{
    uint16_t status = 0;
    const unsigned int received = __WaitAck(operation, ackCode, sizeof(WRITE_ACK), "Timeout !", count, status);
    *count = DecodeWriteAck(m_pRecvBuffer, received);
    __CheckStatus(operation, status);
}

void CGVCPCtrlPort::__CheckBlockLength(unsigned long length)
{
    if (length > GVCP_MEM_BLOCK_MAX) {
        APP_THROW(GC_ERR_ERROR, "UnExpected Error !");
    }
    if (length == 0) {
        APP_THROW(GC_ERR_INVALID_PARAMETER, "Invalid parameter.");
    }
}

void CGVCPCtrlPort::__ReadMemLimited(unsigned long addr, unsigned char* buffer, unsigned long& length)
{
    __CheckBlockLength(length);
    const unsigned long requested = length;
    __Transact(__FUNCTION__, &length, true, "unexpected Error !", [&] {
        __SendReadMemCmd(addr, requested);
        __RecvReadMemCmdAck(buffer, length, requested);
    });
}

void CGVCPCtrlPort::__SendReadMemCmd(unsigned long addr, unsigned long length)
{
    __CheckAddr(addr);
    __SendCmd(__FUNCTION__, EncodeReadMemCmd(m_pSendBuffer, static_cast<uint32_t>(addr),
                                             static_cast<uint16_t>(length), m_nReqID));
}

void CGVCPCtrlPort::__RecvReadMemCmdAck(unsigned char* buffer, unsigned long& length, unsigned long requested)
{
    uint16_t status = 0;
    const unsigned int expected = sizeof(READMEM_ACK_HEADER) + static_cast<unsigned int>(requested);
    const unsigned int received = __WaitAck(__FUNCTION__, GVCP_READMEM_ACK, expected, "Timeout !", &length, status);
    const uint8_t* data = nullptr;
    length = DecodeReadMemAck(m_pRecvBuffer, received, &data);
    memcpy(buffer, data, length);
    __CheckStatus(__FUNCTION__, status);
}

void CGVCPCtrlPort::__WriteMemLimited(unsigned long addr, const unsigned char* buffer, unsigned long& length)
{
    __CheckBlockLength(length);
    const unsigned long requested = length;
    __Transact(__FUNCTION__, &length, true, "unexpected Error !", [&] {
        __SendWriteMemCmd(addr, buffer, requested);
        __RecvWriteMemCmdAck(length);
    });
}

void CGVCPCtrlPort::__SendWriteMemCmd(unsigned long addr, const unsigned char* buffer, unsigned long length)
{
    __CheckAddr(addr);
    __SendCmd(__FUNCTION__, EncodeWriteMemCmd(m_pSendBuffer, static_cast<uint32_t>(addr), buffer, length, m_nReqID));
}

void CGVCPCtrlPort::__RecvWriteMemCmdAck(unsigned long& length)
{
    __RecvWriteAck(__FUNCTION__, GVCP_WRITEMEM_ACK, &length);
}

CGVCPCtrlPort* CInstanceFactory::CreateGVCPCtrlPortIntstance(unsigned int interfaceIP, unsigned int deviceIP,
                                                             std::string name)
{
    return new CGVCPCtrlPort(interfaceIP, deviceIP, std::move(name));
}

void CInstanceFactory::DestoryGVCPCtrlPortIntstance(CGVCPCtrlPort* port)
{
    delete port;
}

} // namespace Client
} // namespace GenICam
