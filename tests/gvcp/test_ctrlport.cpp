#include "gvcp/GVCPCtrlPort.h"

#include "AppErrorMatch.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "support/LinkTest.h"

#include <arpa/inet.h>
#include <memory>

using namespace GenICam::Client;
using namespace aictest;

namespace {

struct PortDeleter {
    void operator()(CGVCPCtrlPort* port) const { CInstanceFactory::DestoryGVCPCtrlPortIntstance(port); }
};
using CtrlPortPtr = std::unique_ptr<CGVCPCtrlPort, PortDeleter>;

class CtrlPort : public LinkTest {
protected:
    CtrlPortPtr OpenPort()
    {
        return CtrlPortPtr(
            CInstanceFactory::CreateGVCPCtrlPortIntstance(PeerLink::kHostIp, PeerLink::kPeerIp, PeerLink::kHostIf));
    }
};

} // namespace

TEST_F(CtrlPort, CommandLayoutsAndWhatTheAcknowledgesDeliver)
{
    CameraModel model;
    model.registers = {{0x0A00, 2}, {0x0934, 0x12345678}};
    model.memory.assign(0x300, 0);
    for (size_t i = 0; i < 8; ++i) {
        model.memory[0x100 + i] = static_cast<uint8_t>(0xA0 + i);
    }
    Responder& camera = StartCamera(Camera(model));
    CtrlPortPtr port = OpenPort();

    unsigned long readAddrs[2] = {0x0A00, 0x0934};
    unsigned int values[2] = {0, 0};
    unsigned long count = 2;
    port->ReadRegList(readAddrs, values, &count);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(values[0], htonl(2)) << "values stay in network order";
    EXPECT_EQ(values[1], htonl(0x12345678));

    unsigned long writeAddr = 0x0A00;
    unsigned int word = htonl(0x11223344);
    count = 1;
    port->WriteRegList(&writeAddr, &word, &count);
    EXPECT_EQ(count, 1u);

    unsigned char memory[8] = {0};
    unsigned long size = sizeof(memory);
    port->ReadMem(0x100, memory, &size);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(memory[0], 0xA0);
    EXPECT_EQ(memory[7], 0xA7);

    const unsigned char data[4] = {1, 2, 3, 4};
    size = sizeof(data);
    port->WriteMem(0x200, data, &size);
    EXPECT_EQ(size, 4u);

    const std::vector<Datagram> got = camera.Received();
    ASSERT_EQ(got.size(), 4u);
    const std::vector<uint8_t> expected[] = {
        MakeCommand(0x01, 0x0080, got[0].ReqId(), {0, 0, 0x0A, 0x00, 0, 0, 0x09, 0x34}),
        MakeCommand(0x01, 0x0082, got[1].ReqId(), {0, 0, 0x0A, 0x00, 0x11, 0x22, 0x33, 0x44}),
        MakeCommand(0x01, 0x0084, got[2].ReqId(), {0, 0, 0x01, 0x00, 0, 0, 0, 8}),
        MakeCommand(0x01, 0x0086, got[3].ReqId(), {0, 0, 0x02, 0x00, 1, 2, 3, 4}),
    };
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].bytes, expected[i]) << "command " << i;
        EXPECT_EQ(got[i].srcIp, PeerLink::kHostIp);
        EXPECT_EQ(got[i].srcPort, 59001);
        if (i > 0) {
            EXPECT_EQ(got[i].ReqId(), uint16_t(got[i - 1].ReqId() + 1));
        }
    }
}

TEST_F(CtrlPort, LimitsAreCheckedBeforeAnythingIsSent)
{
    Responder& camera = StartCamera(Camera(CameraModel{}));
    CtrlPortPtr port = OpenPort();
    std::vector<unsigned long> addrs(136, 0x0A00);
    std::vector<unsigned int> values(136, 0);
    std::vector<unsigned char> bytes(1300, 0);
    unsigned long count = 0;
    unsigned long misaligned[1] = {0x2};
    struct Case {
        const char* name;
        std::function<void()> action;
        int code;
        const char* function;
        const char* message;
    } cases[] = {
        {"136 reads", [&] { count = 136; port->ReadRegList(addrs.data(), values.data(), &count); }, -1009,
         "ReadRegList", "Read too many Registers,Max Num is 135!"},
        {"68 writes", [&] { count = 68; port->WriteRegList(addrs.data(), values.data(), &count); }, -1009,
         "WriteRegList", "Write too many Registers,Max Num is 67!"},
        {"null read values", [&] { count = 1; port->ReadRegList(addrs.data(), nullptr, &count); }, -1009,
         "ReadRegList", "Invalid parameter ."},
        {"misaligned register", [&] { count = 1; port->ReadRegList(misaligned, values.data(), &count); }, -1015,
         "__CheckAddr", "ui64Addr = 0x2,is not multiple of 4."},
        {"misaligned memory", [&] { count = 4; port->ReadMem(0x103, bytes.data(), &count); }, -1015, "__CheckAddr",
         "ui64Addr = 0x103,is not multiple of 4."},
    };
    for (const Case& c : cases) {
        EXPECT_TRUE(RaisesApp(c.action, c.code, c.function, c.message)) << c.name;
    }
    EXPECT_TRUE(camera.Received().empty());

    count = 135;
    port->ReadRegList(addrs.data(), values.data(), &count);
    EXPECT_EQ(count, 135u);
    count = 67;
    port->WriteRegList(addrs.data(), values.data(), &count);
    EXPECT_EQ(count, 67u);
    const std::vector<Datagram> got = camera.Received();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].bytes.size(), 8u + 4 * 135);
    EXPECT_EQ(got[1].bytes.size(), 8u + 8 * 67);
}

TEST_F(CtrlPort, SilenceIsRetriedWithTheSameIdThenTimesOut)
{
    Responder& camera = StartCamera(Silent());
    CtrlPortPtr port = OpenPort();
    unsigned long addr = 0x0A00;
    unsigned int value = 0;
    unsigned long count = 1;
    const uint64_t start = Helper::GetSystemCounterMs();
    EXPECT_TRUE(RaisesApp([&] { port->ReadRegList(&addr, &value, &count); }, -1011, "ReadRegList", " Timeout !"));
    const uint64_t took = Helper::GetSystemCounterMs() - start;
    EXPECT_EQ(count, 0u);
    EXPECT_GE(took, 1450u);
    EXPECT_LT(took, 2500u);

    const std::vector<Datagram> got = camera.Received();
    ASSERT_EQ(got.size(), 3u);
    for (const Datagram& attempt : got) {
        EXPECT_EQ(attempt.bytes, got[0].bytes);
    }
    const int64_t gaps[] = {got[1].atMs - got[0].atMs, got[2].atMs - got[1].atMs};
    for (int64_t gap : gaps) {
        EXPECT_GE(gap, 450);
        EXPECT_LT(gap, 800);
    }
}

TEST_F(CtrlPort, DeviceStatusesBecomeCodesAndAccessStatus)
{
    struct Case {
        uint16_t status;
        uint32_t ccp;
        int access;
        int readCode;
        const char* readMessage;
    } cases[] = {
        {0x0000, 0, 1, 0, ""},
        {0x0000, 2, 2, 0, ""},
        {0x0000, 1, 3, 0, ""},
        {0x0000, 5, 0, 0, ""},
        {0x8006, 0, 3, -1005, "The access to the requested device is denied."},
        {0xC000, 0, 1000, 0xC000, "Device Return 0xC000"},
    };
    for (const Case& c : cases) {
        CameraModel model;
        model.status = c.status;
        model.registers[0x0A00] = c.ccp;
        StartCamera(Camera(model));
        CtrlPortPtr port = OpenPort();
        int access = -1;
        port->GetAccessStatus(access);
        EXPECT_EQ(access, c.access) << "status " << c.status << " ccp " << c.ccp;
        if (c.readCode == 0) {
            continue;
        }
        unsigned long addr = 0x0A00;
        unsigned int value = 0;
        unsigned long count = 1;
        EXPECT_TRUE(RaisesApp([&] { port->ReadRegList(&addr, &value, &count); }, c.readCode, "__RecvReadRegCmdAck",
                              c.readMessage));
        EXPECT_EQ(count, 0u) << "register calls report no values on failure";
    }
}

TEST_F(CtrlPort, LongReadsGoInBlocksOf512)
{
    CameraModel model;
    for (size_t i = 0; i < 0x1000 + 1300; ++i) {
        model.memory.push_back(static_cast<uint8_t>(i * 7));
    }
    Responder& camera = StartCamera(Camera(model));
    CtrlPortPtr port = OpenPort();
    std::vector<unsigned char> buffer(1300);
    unsigned long size = buffer.size();
    port->ReadMem(0x1000, buffer.data(), &size);
    EXPECT_EQ(size, 1300u);
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.end(), model.memory.begin() + 0x1000));

    const std::vector<Datagram> got = camera.Received();
    ASSERT_EQ(got.size(), 3u);
    const uint32_t addresses[] = {0x1000, 0x1200, 0x1400};
    const uint16_t counts[] = {512, 512, 276};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(GetBe32(got[i].bytes, 8), addresses[i]);
        EXPECT_EQ(GetBe16(got[i].bytes, 14), counts[i]);
        if (i > 0) {
            EXPECT_EQ(got[i].ReqId(), uint16_t(got[i - 1].ReqId() + 1));
        }
    }
}
