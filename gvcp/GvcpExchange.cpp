#include "gvcp/GvcpExchange.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/StopToken.h"
#include "gvcp/UdpComm.h"

namespace GenICam {
namespace Client {

GVCP_RESULT GvcpResultOf(GVCP_RESULT_KIND kind, int error)
{
    GVCP_RESULT result;
    result.nKind = kind;
    result.nErrno = error;
    return result;
}

CGvcpExchange::CGvcpExchange(std::vector<CUdpComm*> endpoints, uint8_t* buffer, unsigned int capacity)
    : m_vecEndpoints(std::move(endpoints)), m_pBuffer(buffer), m_nCapacity(capacity), m_nLength(0), m_nSent(0)
{
}

GVCP_RESULT CGvcpExchange::Send(CUdpComm& sender, const void* packet, unsigned int length, unsigned int ip,
                                unsigned int port)
{
    m_nSent = 0;
    const int error = sender.SendTo(packet, length, ip, port, &m_nSent);
    if (error != 0 || m_nSent < length) {
        return GvcpResultOf(GVCP_RESULT_SEND_FAILED, error);
    }
    return GvcpResultOf(GVCP_RESULT_OK);
}

GVCP_RESULT CGvcpExchange::ReadOne(uint64_t deadlineMs, const GVCP_ACK_DECODER& decode)
{
    std::vector<int> fds;
    for (CUdpComm* endpoint : m_vecEndpoints) {
        fds.push_back(endpoint->GetReadFd());
    }
    for (;;) {
        size_t ready = 0;
        int error = 0;
        switch (WaitAnyReadable(fds.data(), fds.size(), deadlineMs, &ready, &error)) {
        case WAIT_TIMEOUT:
            return GvcpResultOf(GVCP_RESULT_NO_ANSWER);
        case WAIT_STOPPED:
            return GvcpResultOf(GVCP_RESULT_STOPPED);
        case WAIT_FAILED:
            return GvcpResultOf(GVCP_RESULT_SOCKET_FAILED, error);
        case WAIT_READY:
            break;
        }
        unsigned int sourceIp = 0;
        unsigned int sourcePort = 0;
        m_nLength = 0;
        try {
            m_vecEndpoints[ready]->Receive(m_pBuffer, m_nCapacity, &sourceIp, &sourcePort, &m_nLength, 0);
        } catch (CAppException& e) {
            // A tap's frame that was not an acknowledge leaves nothing to read: wait on.
            if (e.GetErrorCode() == GC_ERR_TIMEOUT) {
                continue;
            }
            if (e.GetErrorCode() == GC_ERR_STOPPED) {
                return GvcpResultOf(GVCP_RESULT_STOPPED);
            }
            return GvcpResultOf(GVCP_RESULT_SOCKET_FAILED, m_vecEndpoints[ready]->GetLastErrno());
        }
        GVCP_ACK_FIELDS header{};
        if (decode(m_pBuffer, m_nLength, header) != GVCP_ACCEPTED) {
            return GvcpResultOf(GVCP_RESULT_BAD_ACK);
        }
        GVCP_RESULT result = GvcpResultOf(header.nStatus == 0 ? GVCP_RESULT_OK : GVCP_RESULT_REFUSED);
        result.nStatus = header.nStatus;
        return result;
    }
}

GVCP_RESULT CGvcpExchange::Await(uint64_t deadlineMs, const GVCP_ACK_DECODER& decode)
{
    bool rejected = false;
    for (;;) {
        const GVCP_RESULT result = ReadOne(deadlineMs, decode);
        if (result.nKind != GVCP_RESULT_BAD_ACK) {
            return result.nKind == GVCP_RESULT_NO_ANSWER && rejected ? GvcpResultOf(GVCP_RESULT_BAD_ACK) : result;
        }
        rejected = true;
    }
}

unsigned int CGvcpExchange::GetLength() const
{
    return m_nLength;
}

unsigned int CGvcpExchange::GetSent() const
{
    return m_nSent;
}

} // namespace Client
} // namespace GenICam
