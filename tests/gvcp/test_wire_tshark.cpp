#include "gvcp/DeviceDiscovery.h"
#include "gvcp/GVCPCtrlPort.h"

#include "common/InstanceFactory.h"
#include "gvcp/DeviceInfo.h"
#include "support/LinkTest.h"
#include "support/Tshark.h"

using namespace GenICam::Client;
using namespace aictest;

namespace {

const std::vector<std::string> kAcksToUs = {"udp.port==59001,gvcp"};

class WireDecode : public LinkTest {};

} // namespace

// tshark's own GVCP dissector reads what the ports sent and what they accepted.
TEST_F(WireDecode, TsharkDecodesDiscoveryAndReadRegAsGvcp)
{
    CameraModel model;
    model.registers[0x0A00] = 2;
    StartCamera(Camera(model));
    TsharkCapture capture(PeerLink::kHostIf);

    CDeviceDiscovery* discovery = CInstanceFactory::CreateDeviceDiscoveryIntstance(PeerLink::kHostIp, "aic0");
    std::vector<boost::shared_ptr<CDeviceInfo>> devices;
    discovery->SendDiscoveryCmd();
    discovery->GetDeviceInfoList(devices, 200);
    CInstanceFactory::DestoryDeviceDiscoveryIntstance(discovery);
    ASSERT_EQ(devices.size(), 1u);

    CGVCPCtrlPort* port =
        CInstanceFactory::CreateGVCPCtrlPortIntstance(PeerLink::kHostIp, PeerLink::kPeerIp, PeerLink::kHostIf);
    int access = -1;
    port->GetAccessStatus(access);
    CInstanceFactory::DestoryGVCPCtrlPortIntstance(port);
    EXPECT_EQ(access, 2);
    capture.Stop();

    const std::vector<std::string> commandFields = {"ip.src", "ip.dst", "udp.srcport", "udp.dstport",
                                                    "gvcp.cmd.flags", "gvcp.cmd.command",
                                                    "gvcp.cmd.payloadlength", "gvcp.cmd.req_id"};
    const auto commands = capture.Fields(commandFields, "gvcp.cmd.command", kAcksToUs);
    ASSERT_EQ(commands.size(), 2u);
    const std::string discoveryId = commands[0][7];
    EXPECT_EQ(commands[0], std::vector<std::string>({"10.77.0.1", "255.255.255.255", "59001", "3956", "0x11",
                                                     "0x0002", "0x0000", discoveryId}));
    EXPECT_EQ(commands[1], std::vector<std::string>({"10.77.0.1", "10.77.0.2", "59001", "3956", "0x01", "0x0080",
                                                     "0x0004", commands[1][7]}));
    EXPECT_EQ(capture.Fields({"gvcp.cmd.readreg.bootstrapregister"}, "gvcp.cmd.command == 0x0080", kAcksToUs),
              std::vector<std::vector<std::string>>({{"0x00000a00"}}));

    const std::vector<std::string> ackFields = {"udp.dstport", "gvcp.cmd.status", "gvcp.ack", "gvcp.cmd.req_id",
                                                "gvcp.bootstrap.modelname"};
    const auto acks = capture.Fields(ackFields, "gvcp.ack", kAcksToUs);
    ASSERT_EQ(acks.size(), 2u);
    EXPECT_EQ(acks[0], std::vector<std::string>({"59001", "0x0000", "0x0003", discoveryId, "AIC-CAM"}));
    EXPECT_EQ(acks[1], std::vector<std::string>({"59001", "0x0000", "0x0081", commands[1][7], ""}));

    EXPECT_EQ(capture.Problems(kAcksToUs), std::vector<std::string>());
}
