// The link-level frame decoder: input = a frame from the IPv4 header on, as the packet socket hands it over.
#include "Fuzz.h"

#include "gvcp/LinkFrame.h"

using namespace GenICam::Client;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    LINK_UDP_DATAGRAM datagram;
    if (DecodeUdpFrame(data, size, datagram) != LINK_FRAME_ERROR::NONE) {
        return 0;
    }
    // The payload lies inside the frame, after both headers.
    FUZZ_CHECK(datagram.pPayload >= data + sizeof(IPV4_HEADER) + sizeof(UDP_HEADER));
    FUZZ_CHECK(datagram.pPayload + datagram.nPayloadLength <= data + size);
    FUZZ_CHECK(data[9] == 17 && (data[0] >> 4) == 4);
    return 0;
}
