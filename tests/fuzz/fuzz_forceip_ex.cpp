// The extended force-IP command and its acknowledge: the input's first bytes fill the command's
// fields, which must come back from the encoded command; the whole input is also read as the
// acknowledge to the id those fields carry.
#include "Fuzz.h"

#include "gvcp/GvcpCodec.h"

#include <cstring>

using namespace GenICam::Client;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FORCEIP_EX_FIELDS fields;
    memset(&fields, 0, sizeof(fields));
    memcpy(&fields, data, size < sizeof(fields) ? size : sizeof(fields));

    const FORCEIP_EX_CMD_DEF command = EncodeForceIPExCmd(fields);
    const FORCEIP_EX_FIELDS back = DecodeForceIPExCmd(command);
    FUZZ_CHECK(memcmp(&back, &fields, sizeof(fields)) == 0);
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&command);
    FUZZ_CHECK(bytes[0] == 0x42 && bytes[1] == 0x11 && bytes[2] == 0x90 && bytes[3] == 0x00 && bytes[5] == 76);

    GVCP_ACK_FIELDS ack;
    const GVCP_REJECTION verdict = DecodeForceIPExAck(data, size, fields.nReqID, ack);
    FUZZ_CHECK(verdict != GVCP_REJECT_LENGTH);
    FUZZ_CHECK(verdict != GVCP_ACCEPTED || (ack.nAck == 0x9001 && ack.nAckID == fields.nReqID));
    return 0;
}
