// The ARP probe's reply test and the conflict probe's claim: input = the local address as inet_addr
// gives it (4 bytes), then the received frame. Decoding and encoding a frame's fields gives them back.
#include "Fuzz.h"

#include "link/ArpFrame.h"

#include <cstring>

namespace {

bool Same(const ARP_FIELDS& a, const ARP_FIELDS& b)
{
    return memcmp(a.aDestMAC, b.aDestMAC, 6) == 0 && memcmp(a.aSrcMAC, b.aSrcMAC, 6) == 0 &&
           a.nOperation == b.nOperation && memcmp(a.aSenderMAC, b.aSenderMAC, 6) == 0 &&
           a.dwSenderIP == b.dwSenderIP && memcmp(a.aTargetMAC, b.aTargetMAC, 6) == 0 && a.dwTargetIP == b.dwTargetIP;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    uint32_t localIP = 0;
    memcpy(&localIP, data, size < 4 ? size : 4);
    const uint8_t mac[6] = {0x02, 0x00, 0x00, 0x00, 0xFA, 0x01};
    // The probe reads into a zeroed frame of its own size.
    ARP_PACKET reply;
    memset(&reply, 0, sizeof(reply));
    if (size > 4) {
        memcpy(&reply, data + 4, size - 4 < sizeof(reply) ? size - 4 : sizeof(reply));
    }

    const ARP_REJECTION verdict = MatchArpReply(reply, localIP, mac);
    const ARP_FIELDS fields = DecodeArp(reply);
    // Only a reply to our MAC, with a local address below 256, can mark an address taken.
    FUZZ_CHECK(verdict != ARP_MATCH ||
               (fields.nOperation == 2 && localIP < 256 && memcmp(fields.aTargetMAC, mac, 6) == 0));
    FUZZ_CHECK(Same(DecodeArp(EncodeArp(fields)), fields));
    // The conflict probe reads frames of any length; a claim names an address and another host.
    const ARP_CLAIM claim = ReadArpClaim(data + (size > 4 ? 4 : size), size > 4 ? size - 4 : 0, mac);
    FUZZ_CHECK(claim.nKind == ARP_CLAIM_NONE || (claim.dwAddress != 0 && memcmp(claim.aMAC, mac, 6) != 0));
    // An announcement is a claim of the same address by the same host.
    const ARP_ANNOUNCEMENT heard = ReadArpAnnouncement(data + (size > 4 ? 4 : size), size > 4 ? size - 4 : 0, mac);
    FUZZ_CHECK(heard.nKind == ARP_ANNOUNCEMENT_NONE ||
               (heard.dwAddress == claim.dwAddress && memcmp(heard.aMAC, claim.aMAC, 6) == 0));
    return 0;
}
