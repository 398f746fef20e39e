#include "gvcp/GvcpCodec.h"

#include "support/Packets.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace GenICam::Client;
using aictest::MakeAck;
using aictest::MakeCommand;
using Bytes = std::vector<uint8_t>;

namespace {

const uint8_t kMac[6] = {0x00, 0x11, 0x1C, 0xAA, 0xBB, 0xCC};

template <typename Packet>
Bytes Of(const Packet& packet)
{
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&packet);
    return Bytes(p, p + sizeof(packet));
}

// A command addressed to kMac: payload of size - 8 bytes with the MAC at offset 10.
Bytes ToCamera(size_t size, uint8_t flags, uint16_t command, uint16_t reqId)
{
    Bytes payload(size - 8);
    memcpy(&payload[2], kMac, 6);
    return MakeCommand(flags, command, reqId, payload);
}

// Every field of the extended force-IP a value of its own, the text filling its 16 bytes.
FORCEIP_EX_FIELDS CustomFields()
{
    FORCEIP_EX_FIELDS fields = {0x0102, {0}, 5, 7, 0x0A4D0032, 0xFFFFFF00, 0x0A4D00FE, {0}};
    memcpy(fields.aMAC, kMac, 6);
    memcpy(fields.szText, "0123456789ABCDEF", 16);
    return fields;
}

Bytes CustomCommand()
{
    Bytes b = ToCamera(84, 0x11, 0x9000, 0x0102);
    aictest::PutBe32(b, 16, 5);
    aictest::PutBe32(b, 20, 7);
    aictest::PutBe32(b, 32, 0x0A4D0032);
    aictest::PutBe32(b, 48, 0xFFFFFF00);
    aictest::PutBe32(b, 64, 0x0A4D00FE);
    memcpy(&b[68], "0123456789ABCDEF", 16);
    return b;
}

Bytes StaticForceIP()
{
    Bytes b = ToCamera(64, 0x11, 0x0004, 3);
    aictest::PutBe32(b, 28, 0x0A4D0032);
    aictest::PutBe32(b, 44, 0xFFFFFF00);
    aictest::PutBe32(b, 60, 0x0A4D00FE);
    return b;
}

} // namespace

TEST(GvcpCodec, CommandsByteForByte)
{
    uint8_t buffer[GVCP_PACKET_MAX];
    const uint32_t addrs[] = {0x0A00, 0x0934};
    const uint32_t words[] = {htonl(0x11223344), htonl(5)};
    const uint8_t data[] = {1, 2, 3, 4};
    const struct {
        const char* name;
        Bytes built;
        Bytes expected;
    } cases[] = {
        {"discovery asks for a broadcast acknowledge", Of(EncodeDiscoveryCmd(0xBEEF)),
         {0x42, 0x11, 0x00, 0x02, 0x00, 0x00, 0xBE, 0xEF}},
        {"readreg", Bytes(buffer, buffer + EncodeReadRegCmd(buffer, addrs, 2, 7)),
         MakeCommand(0x01, 0x0080, 7, {0, 0, 0x0A, 0x00, 0, 0, 0x09, 0x34})},
        {"writereg keeps the words as given", Bytes(buffer, buffer + EncodeWriteRegCmd(buffer, addrs, words, 2, 8)),
         MakeCommand(0x01, 0x0082, 8, {0, 0, 0x0A, 0, 0x11, 0x22, 0x33, 0x44, 0, 0, 0x09, 0x34, 0, 0, 0, 5})},
        {"readmem", Bytes(buffer, buffer + EncodeReadMemCmd(buffer, 0x100, 512, 9)),
         MakeCommand(0x01, 0x0084, 9, {0, 0, 0x01, 0x00, 0, 0, 0x02, 0x00})},
        {"writemem", Bytes(buffer, buffer + EncodeWriteMemCmd(buffer, 0x200, data, 4, 10)),
         MakeCommand(0x01, 0x0086, 10, {0, 0, 0x02, 0x00, 1, 2, 3, 4})},
        {"forceip with all addresses 0", Of(EncodeForceIPCmd(kMac, 0)), ToCamera(64, 0x01, 0x0004, 0)},
        {"forceip with an address allows a broadcast acknowledge",
         Of(EncodeStaticForceIPCmd(kMac, 0x0A4D0032, 0xFFFFFF00, 0x0A4D00FE, 3)), StaticForceIP()},
        {"extended force-IP", Of(EncodeForceIPExCmd(CustomFields())), CustomCommand()},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.built, c.expected) << c.name;
    }
    const std::vector<uint32_t> most(GVCP_READREG_MAX, 0x0A00);
    EXPECT_EQ(EncodeReadRegCmd(buffer, most.data(), GVCP_READREG_MAX, 1), 8u + 4 * 135);
    EXPECT_EQ(EncodeWriteRegCmd(buffer, most.data(), most.data(), GVCP_WRITEREG_MAX, 1), 8u + 8 * 67);
}

TEST(GvcpCodec, AcknowledgesAndEveryRejection)
{
    const Bytes discovery = aictest::MakeDiscoveryAck(aictest::CameraModel{}, 0x1234);
    Bytes longer = discovery;
    longer.resize(300, 0xEE);
    const struct {
        const char* name;
        Bytes bytes;
        uint16_t ack;
        GVCP_REJECTION expected;
    } cases[] = {
        {"readreg", MakeAck(0, 0x0081, 0x1234, {0, 0, 0, 1}), 0x0081, GVCP_ACCEPTED},
        {"header of 7 bytes", Bytes{0, 0, 0, 0x81, 0, 0, 0x12}, 0x0081, GVCP_REJECT_LENGTH},
        {"other acknowledge", MakeAck(0, 0x0083, 0x1234, {}), 0x0081, GVCP_REJECT_ACK_CODE},
        {"stale id", MakeAck(0, 0x0081, 0x1233, {}), 0x0081, GVCP_REJECT_ACK_ID},
    };
    for (const auto& c : cases) {
        GVCP_ACK_FIELDS fields;
        EXPECT_EQ(DecodeAck(c.bytes.data(), c.bytes.size(), c.ack, 0x1234, fields), c.expected) << c.name;
    }
    const struct {
        const char* name;
        Bytes bytes;
        GVCP_REJECTION expected;
    } discoveries[] = {
        {"256 bytes", discovery, GVCP_ACCEPTED},
        {"300 bytes, judged by the first 256", longer, GVCP_ACCEPTED},
        {"255 bytes", Bytes(discovery.begin(), discovery.end() - 1), GVCP_REJECT_LENGTH},
    };
    for (const auto& c : discoveries) {
        EXPECT_EQ(DecodeDiscoveryAck(c.bytes.data(), c.bytes.size(), 0x1234), c.expected) << c.name;
    }

    // The force-IP acknowledge is judged with zeros for the bytes that did not arrive: id 0 matches.
    const Bytes forceIPAck = {0x80, 0x02, 0x90, 0x01};
    GVCP_ACK_FIELDS fields;
    EXPECT_EQ(DecodeForceIPExAck(forceIPAck.data(), forceIPAck.size(), 0, fields), GVCP_ACCEPTED);
    EXPECT_EQ(fields.nStatus, 0x8002);
    EXPECT_EQ(DecodeForceIPAck(forceIPAck.data(), forceIPAck.size(), 0, fields), GVCP_REJECT_ACK_CODE);
    const Bytes standardAck = {0, 0, 0x00, 0x05, 0, 0, 0x12, 0x34};
    EXPECT_EQ(DecodeForceIPAck(standardAck.data(), standardAck.size(), 0x1234, fields), GVCP_ACCEPTED);
}

TEST(GvcpCodec, PayloadsDeliverOnlyWhatArrived)
{
    const Bytes readReg = MakeAck(0, 0x0081, 1, {0, 0, 0, 2, 0x12, 0x34, 0x56, 0x78, 0xFF});
    uint32_t values[3] = {0, 0, 0};
    EXPECT_EQ(DecodeReadRegAck(readReg.data(), readReg.size(), values), 2u);
    EXPECT_EQ(values[0], htonl(2)) << "values stay in network order";
    EXPECT_EQ(values[1], htonl(0x12345678));

    const Bytes readMem = MakeAck(0, 0x0085, 1, {0, 0, 1, 0, 0xA0, 0xA1});
    const uint8_t* data = nullptr;
    EXPECT_EQ(DecodeReadMemAck(readMem.data(), readMem.size(), &data), 2u);
    EXPECT_EQ(data[1], 0xA1);
    EXPECT_EQ(DecodeReadMemAck(readMem.data(), 11, &data), 0u);

    const Bytes write = MakeAck(0, 0x0083, 1, {0, 0, 0x01, 0x02});
    EXPECT_EQ(DecodeWriteAck(write.data(), write.size()), 0x0102);
    EXPECT_EQ(DecodeWriteAck(write.data(), 11), 0x0100) << "the missing byte reads as 0";
}

TEST(GvcpCodec, RequestIdsReduceModulo65535AndSkip0And1AfterTheWrap)
{
    const struct {
        uint64_t in;
        uint16_t seed, tick;
    } reductions[] = {{0, 1, 0}, {5, 5, 5}, {65535, 1, 0}, {65536, 1, 1}, {131071, 1, 1}};
    for (const auto& c : reductions) {
        EXPECT_EQ(GvcpSeedReqID(static_cast<int>(c.in)), c.seed) << c.in;
        EXPECT_EQ(GvcpTickReqID(c.in), c.tick) << c.in;
    }
    const uint16_t next[][2] = {{1, 2}, {0xFFFE, 0xFFFF}, {0xFFFF, 2}};
    for (const auto& c : next) {
        EXPECT_EQ(GvcpNextReqID(c[0]), c[1]) << c[0];
    }
}
