// The discovery acknowledge test: input = request id (2 bytes), then the datagram.
#include "Fuzz.h"

#include "gvcp/GvcpCodec.h"

#include <cstring>

using namespace GenICam::Client;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const uint16_t reqId = static_cast<uint16_t>(data[0] << 8 | data[1]);
    const uint8_t* datagram = data + 2;
    const size_t length = size - 2;
    const GVCP_REJECTION verdict = DecodeDiscoveryAck(datagram, length, reqId);
    if (verdict == GVCP_ACCEPTED) {
        FUZZ_CHECK(length >= sizeof(ZQ_DISCOVERY_ACK));
        FUZZ_CHECK(datagram[2] == 0x00 && datagram[3] == 0x03);
        FUZZ_CHECK(datagram[6] == (reqId >> 8) && datagram[7] == (reqId & 0xFF));
        ZQ_DISCOVERY_ACK ack;
        memcpy(&ack, datagram, sizeof(ack));
        const DISCOVERY_RECORD record = DecodeDiscoveryRecord(ack);
        FUZZ_CHECK(record.strModelName.size() <= sizeof(ack.szModelName));
        FUZZ_CHECK(record.strManufacturerSpecificInfo.size() <= sizeof(ack.szManufacturerSpecificInfo));
        FUZZ_CHECK(record.nIP == (uint32_t(datagram[44]) << 24 | datagram[45] << 16 | datagram[46] << 8 | datagram[47]));
    } else {
        FUZZ_CHECK(verdict != GVCP_REJECT_LENGTH || length < sizeof(ZQ_DISCOVERY_ACK));
    }
    return 0;
}
