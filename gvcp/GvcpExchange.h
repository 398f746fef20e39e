#pragma once

#include "gvcp/GvcpCodec.h"
#include "gvcp/GvcpResult.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace GenICam {
namespace Client {

class CUdpComm;

// Judges one datagram as the awaited acknowledge (its code and request id).
using GVCP_ACK_DECODER = std::function<GVCP_REJECTION(const uint8_t* data, size_t size, GVCP_ACK_FIELDS& out)>;

// One GVCP command and its acknowledge, read from every endpoint at once (UDP sockets and link taps);
// every way it ends is a GVCP_RESULT, never an exception.
class CGvcpExchange {
public:
    // The endpoints stay owned by the caller; the acknowledge lands in `buffer`, cut to `capacity`.
    CGvcpExchange(std::vector<CUdpComm*> endpoints, uint8_t* buffer, unsigned int capacity);

    // One send of the whole command; SEND_FAILED with the errno, or errno 0 for a short send.
    GVCP_RESULT Send(CUdpComm& sender, const void* packet, unsigned int length, unsigned int ip, unsigned int port);
    // The first datagram before the deadline, judged: OK or REFUSED when it decodes, else BAD_ACK.
    GVCP_RESULT ReadOne(uint64_t deadlineMs, const GVCP_ACK_DECODER& decode);
    // Datagrams that do not decode are skipped until the deadline; BAD_ACK when only such came.
    GVCP_RESULT Await(uint64_t deadlineMs, const GVCP_ACK_DECODER& decode);

    // The length of the acknowledge last read.
    unsigned int GetLength() const;
    // What the last Send put on the wire.
    unsigned int GetSent() const;

private:
    std::vector<CUdpComm*> m_vecEndpoints;
    uint8_t* m_pBuffer;
    unsigned int m_nCapacity;
    unsigned int m_nLength;
    unsigned int m_nSent;
};

// A result of the given kind, with no status or errno.
GVCP_RESULT GvcpResultOf(GVCP_RESULT_KIND kind, int error = 0);

} // namespace Client
} // namespace GenICam
