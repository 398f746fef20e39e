#include "gvcp/GvcpCodec.h"

#include "support/NetNamespace.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <cstdlib>
#include <unistd.h>
#include <vector>

using namespace GenICam::Client;
using Bytes = std::vector<uint8_t>;

namespace {

template <typename Packet>
Bytes Of(const Packet& packet)
{
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&packet);
    return Bytes(p, p + sizeof(packet));
}

// One Ethernet/IPv4/UDP frame from 10.77.0.1:59001 to dst:3956 around a GVCP payload.
Bytes Frame(const Bytes& gvcp, uint8_t dstLast)
{
    const uint16_t udp = static_cast<uint16_t>(8 + gvcp.size());
    const uint16_t ip = static_cast<uint16_t>(20 + udp);
    Bytes f = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0, 0, 0, 0, 1, 0x08, 0x00,
               0x45, 0, uint8_t(ip >> 8), uint8_t(ip), 0, 0, 0, 0, 64, 17, 0, 0, 10, 77, 0, 1,
               uint8_t(dstLast == 255 ? 255 : 10), uint8_t(dstLast == 255 ? 255 : 77), uint8_t(dstLast == 255 ? 255 : 0),
               dstLast, 0xE6, 0x79, 0x0F, 0x74, uint8_t(udp >> 8), uint8_t(udp), 0, 0};
    for (uint8_t byte : gvcp) {
        f.push_back(byte);
    }
    return f;
}

// Writes the frames as a pcap file and returns the file's path.
std::string Pcap(const std::vector<Bytes>& frames)
{
    char path[] = "/tmp/aic-wire-XXXXXX";
    FILE* file = fdopen(mkstemp(path), "wb");
    const uint32_t head[] = {0xA1B2C3D4, 0x00040002, 0, 0, 65535, 1};
    fwrite(head, sizeof(head), 1, file);
    for (const Bytes& f : frames) {
        const uint32_t record[] = {0, 0, uint32_t(f.size()), uint32_t(f.size())};
        fwrite(record, sizeof(record), 1, file);
        fwrite(f.data(), f.size(), 1, file);
    }
    fclose(file);
    return path;
}

} // namespace

// tshark's own GVCP dissector reads the commands as we meant them.
TEST(WireDecode, TsharkDecodesTheCommands)
{
    uint8_t buffer[GVCP_PACKET_MAX];
    const uint32_t ccp = 0x0A00;
    const uint8_t mac[6] = {0x00, 0x11, 0x1C, 0xAA, 0xBB, 0xCC};
    FORCEIP_EX_FIELDS custom = {0x0102, {0x00, 0x11, 0x1C, 0xAA, 0xBB, 0xCC}, 5, 0, 0x0A4D0032, 0xFFFFFF00, 0, {0}};
    const std::string file = Pcap({Frame(Of(EncodeDiscoveryCmd(0x1234)), 255),
                                   Frame(Bytes(buffer, buffer + EncodeReadRegCmd(buffer, &ccp, 1, 0x1235)), 2),
                                   Frame(Of(EncodeForceIPCmd(mac, 7)), 255),
                                   Frame(Of(EncodeForceIPExCmd(custom)), 255),
                                   Frame(Of(EncodeStaticForceIPCmd(mac, 0xC0A8010B, 0xFFFFFF00, 0, 8)), 255)});
    const std::string fields = aictest::Capture(
        "tshark -r " + file + " -T fields -E separator=' ' -e gvcp.cmd.flags -e gvcp.cmd.command "
        "-e gvcp.cmd.payloadlength -e gvcp.cmd.req_id -e gvcp.cmd.readreg.bootstrapregister "
        "-e gvcp.cmd.forceip.macaddress -e gvcp.cmd.forceip.ip 2>/dev/null");
    EXPECT_EQ(fields, "0x11 0x0002 0x0000 0x1234   \n"
                      "0x01 0x0080 0x0004 0x1235 0x00000a00  \n"
                      "0x01 0x0004 0x0038 0x0007  00:11:1c:aa:bb:cc 0.0.0.0\n"
                      "0x11 0x9000 0x004c 0x0102   \n"
                      "0x11 0x0004 0x0038 0x0008  00:11:1c:aa:bb:cc 192.168.1.11\n");
    EXPECT_EQ(aictest::Capture("tshark -r " + file + " -Y '_ws.malformed || _ws.expert.severity >= warning' 2>/dev/null"),
              "");
    unlink(file.c_str());
}
