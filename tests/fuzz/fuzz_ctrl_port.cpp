// The control port's acknowledges: input = which acknowledge (1 byte), request id (2 bytes), then
// the datagram as the port receives it (at most the expected length).
#include "Fuzz.h"

#include "gvcp/GvcpCodec.h"

#include <cstring>

using namespace GenICam::Client;

namespace {

const uint16_t kAcks[] = {GVCP_READREG_ACK, GVCP_WRITEREG_ACK, GVCP_READMEM_ACK, GVCP_WRITEMEM_ACK};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 3 || size - 3 > GVCP_PACKET_MAX) {
        return 0;
    }
    const uint16_t ack = kAcks[data[0] % 4];
    const uint16_t reqId = static_cast<uint16_t>(data[1] << 8 | data[2]);
    // The port's own buffer, so reads past what arrived stay inside it as they would there.
    uint8_t buffer[GVCP_PACKET_MAX];
    const size_t length = size - 3;
    memcpy(buffer, data + 3, length);

    GVCP_ACK_FIELDS header;
    const GVCP_REJECTION verdict = DecodeAck(buffer, length, ack, reqId, header);
    FUZZ_CHECK((verdict == GVCP_REJECT_LENGTH) == (length < sizeof(GVCP_ACK_HEADER)));
    if (verdict != GVCP_ACCEPTED) {
        return 0;
    }
    FUZZ_CHECK(header.nAck == ack && header.nAckID == reqId);
    uint32_t values[GVCP_READREG_MAX];
    const uint8_t* payload = nullptr;
    switch (ack) {
    case GVCP_READREG_ACK:
        FUZZ_CHECK(DecodeReadRegAck(buffer, length, values) * 4 + 8 <=
                   (length < sizeof(READREG_ACK) ? length : sizeof(READREG_ACK)));
        break;
    case GVCP_READMEM_ACK:
        FUZZ_CHECK(DecodeReadMemAck(buffer, length, &payload) + 12 == (length > 12 ? length : 12));
        break;
    default:
        FUZZ_CHECK(DecodeWriteAck(buffer, length) == (length >= 12 ? (buffer[10] << 8 | buffer[11]) : 0) ||
                   length < 12);
    }
    return 0;
}
