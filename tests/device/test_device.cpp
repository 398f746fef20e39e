#include "common/Helper.h"
#include "device/Device.h"
#include "device/Interface.h"
#include "support/AppText.h"
#include "support/LinkTest.h"
#include "support/Records.h"
#include "support/Responder.h"
#include "support/Tshark.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using namespace GenICam::Client;
using aictest::CameraModel;
using aictest::Datagram;
using aictest::Dotted;
using aictest::MakeRecord;
using aictest::MakeSnapshot;
using aictest::PeerLink;
using aictest::PutBe32;
using aictest::Reply;
using aictest::Responder;

namespace {

const std::array<uint8_t, 6> kCameraMac{{0x00, 0x11, 0x1C, 0xAA, 0xBB, 0xCC}};

CameraModel Camera(uint32_t ip, uint32_t mask)
{
    CameraModel model;
    model.mac = kCameraMac;
    model.ip = ip;
    model.mask = mask;
    return model;
}

} // namespace

TEST(Device, SubnetRuleNeedsTheInterfaceMaskAndNetwork)
{
    CInterface itf(MakeSnapshot("eth0", 0xC0A80105, 0xFFFFFF00), nullptr); // 192.168.1.5/24
    const struct {
        uint32_t ip, mask;
        bool fits;
    } cases[] = {
        {0xC0A80114, 0xFFFFFF00, true},  // 192.168.1.20/24
        {0xC0A80114, 0xFFFF0000, false}, // right network, other mask
        {0xC0A80114, 0xFFFFFF80, false}, // narrower mask
        {0xC0A80214, 0xFFFFFF00, false}, // 192.168.2.20/24
    };
    for (const auto& c : cases) {
        CDevice device(nullptr, &itf, MakeRecord(Camera(c.ip, c.mask)));
        std::string ip = Dotted(c.ip);
        std::string mask = Dotted(c.mask);
        std::string gateway = "1.2.3.4";
        EXPECT_EQ(device.IsSameSubnetWithIF(&ip[0], &mask[0], &gateway[0]), c.fits) << ip << "/" << mask;
        EXPECT_EQ(device.IsSameSubnetWithIF(), c.fits) << ip << "/" << mask;
    }
}

namespace {

// The camera's side of the link: a device record behind aic0 and a responder in the peer namespace.
class DeviceOnLink : public aictest::LinkTest {
protected:
    void SetUp() override
    {
        LinkTest::SetUp();
        m_itf.reset(new CInterface(MakeSnapshot(PeerLink::kHostIf, PeerLink::kHostIp, 0xFFFFFF00), nullptr));
        m_device.reset(new CDevice(nullptr, m_itf.get(), MakeRecord(Camera(0xC0A80002, 0xFFFFFF00))));
    }

    // Everything the camera heard, after letting late datagrams arrive.
    std::vector<Datagram> Heard()
    {
        m_camera->WaitForCount(100, 300);
        return m_camera->Received();
    }

    std::unique_ptr<CInterface> m_itf;
    std::unique_ptr<CDevice> m_device;
};

// A command addressed to the camera's MAC.
std::vector<uint8_t> CommandToCamera(size_t size, uint8_t flags, uint16_t command, uint16_t reqId)
{
    std::vector<uint8_t> payload(size - 8);
    memcpy(&payload[2], kCameraMac.data(), 6);
    return aictest::MakeCommand(flags, command, reqId, payload);
}

std::vector<uint8_t> ForceIPExRecord(uint16_t reqId, uint32_t ipConfig, uint32_t ip, uint32_t mask, uint32_t gateway,
                                     const std::string& text)
{
    std::vector<uint8_t> b = CommandToCamera(84, 0x11, 0x9000, reqId);
    PutBe32(b, 16, ipConfig);
    PutBe32(b, 32, ip);
    PutBe32(b, 48, mask);
    PutBe32(b, 64, gateway);
    memcpy(&b[68], text.data(), std::min<size_t>(16, text.size()));
    return b;
}

// Request ids of these commands are the monotonic milliseconds modulo 65535 at sending time.
void ExpectTickId(const Datagram& d)
{
    const int64_t lag = ((d.atMs % 65535) - d.ReqId() + 65535) % 65535;
    EXPECT_LT(lag, 25) << "request id " << d.ReqId() << " received at " << d.atMs;
}

void ExpectFrom(const Datagram& d, uint16_t port)
{
    EXPECT_EQ(d.srcIp, PeerLink::kHostIp);
    EXPECT_EQ(d.srcPort, port);
}

// One acknowledge the camera broadcasts for each extended force-IP command.
struct Ack {
    uint16_t status;
    uint16_t code = 0x9001;
    int idShift = 0;
};

aictest::Handler AckingCamera(std::vector<Ack> acks)
{
    return [acks](const Datagram& request) {
        std::vector<Reply> replies;
        if (request.Command() != 0x9000) {
            return replies;
        }
        for (const Ack& a : acks) {
            const uint16_t id = static_cast<uint16_t>(request.ReqId() + a.idShift);
            replies.push_back({aictest::MakeAck(a.status, a.code, id, {}), 0, 0xFFFFFFFFu, 0});
        }
        return replies;
    };
}

struct ForceIPCase {
    const char* name;
    std::vector<Ack> acks;
    std::string text;
    bool ok;
    std::string error; // source lines left out
    bool timesOut;
};

const std::string kForbidden = "{-1001}{__SendForceIPExCmd:line[]}{IP Configuration is forbidden to set to device!}";
const std::string kTimedOut = "{-1011}{Receive:line[]}{The configuration could not be save !}";

const ForceIPCase kForceIPCases[] = {
    {"Accepted", {{0}}, "", true, "", false},
    {"AcceptedAfterWrongId", {{0, 0x9001, 1}, {0}}, "0123456789ABCDEFXYZ", true, "", false},
    {"Forbidden", {{0x8002}}, "", false, kForbidden, false},
    {"RefusedThreeTimes",
     {{0x8001}, {0x8001}, {0x8001}},
     "",
     false,
     "{-1001}{__SendForceIPExCmd:line[]}{{App}{__SendForceIPExCmd:line[]}{ACK Status = 0x8001!}}",
     false},
    {"Silent", {}, "", false, kTimedOut, true},
};

void PrintTo(const ForceIPCase& c, std::ostream* os)
{
    *os << c.name;
}

class ForceIP : public DeviceOnLink, public ::testing::WithParamInterface<ForceIPCase> {};

} // namespace

TEST_P(ForceIP, ExtendedCommandThenZeroForceIPOnlyAfterStatusZero)
{
    const ForceIPCase& c = GetParam();
    StartCamera(AckingCamera(c.acks));
    std::string error;
    const uint64_t start = Helper::GetSystemCounterMs();
    const bool ok = m_device->SetForceIPEx("10.77.0.50", "255.255.255.0", "10.77.0.254", c.text.c_str(), 5, error);
    const uint64_t elapsed = Helper::GetSystemCounterMs() - start;

    EXPECT_EQ(ok, c.ok) << error;
    EXPECT_EQ(aictest::WithoutLine(error), c.error);
    if (c.timesOut) {
        std::cout << "[ measured ] force-IP acknowledge time-out: " << elapsed << " ms\n";
        EXPECT_GE(elapsed, 2900u);
        EXPECT_LT(elapsed, 4500u);
    } else {
        EXPECT_LT(elapsed, 1000u);
    }

    const std::vector<Datagram> heard = Heard();
    ASSERT_EQ(heard.size(), c.ok ? 2u : 1u) << "one extended command, then FORCEIP only on success";
    EXPECT_EQ(heard[0].bytes,
              ForceIPExRecord(heard[0].ReqId(), 5, 0x0A4D0032, 0xFFFFFF00, 0x0A4D00FE, c.text));
    ExpectFrom(heard[0], 59003);
    ExpectTickId(heard[0]);
    if (c.ok) {
        EXPECT_EQ(heard[1].bytes, CommandToCamera(64, 0x01, 0x0004, heard[1].ReqId()));
        ExpectFrom(heard[1], 59002);
        ExpectTickId(heard[1]);
    }
}

INSTANTIATE_TEST_SUITE_P(Acks, ForceIP, ::testing::ValuesIn(kForceIPCases),
                         [](const ::testing::TestParamInfo<ForceIPCase>& info) { return info.param.name; });

// tshark's own GVCP dissector must read FORCEIP as we meant it.
TEST_F(DeviceOnLink, TsharkDecodesForceIP)
{
    StartCamera(AckingCamera({{0}}));
    aictest::TsharkCapture capture(PeerLink::kHostIf);
    std::string error;
    ASSERT_TRUE(m_device->SetForceIPEx("10.77.0.50", "255.255.255.0", "10.77.0.254", "", 5, error)) << error;
    capture.Stop();

    const std::vector<std::string> ackPort = {"udp.port==59003,gvcp"};
    const auto forceIP = capture.Fields({"gvcp.cmd.flags", "gvcp.cmd.payloadlength", "gvcp.cmd.forceip.macaddress",
                                         "gvcp.cmd.forceip.ip", "gvcp.cmd.forceip.subnetmask",
                                         "gvcp.cmd.forceip.defaultgateway"},
                                        "gvcp.cmd.command == 0x0004");
    ASSERT_EQ(forceIP.size(), 1u);
    EXPECT_EQ(forceIP[0], (std::vector<std::string>{"0x01", "0x0038", "00:11:1c:aa:bb:cc", "0.0.0.0", "0.0.0.0",
                                                    "0.0.0.0"}));

    const std::vector<std::string> problems = capture.Problems(ackPort);
    EXPECT_TRUE(problems.empty()) << problems.front();
}
