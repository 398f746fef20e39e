// The extended force-IP acknowledge handling of CDevice::SetForceIPEx: a fake camera on loopback
// takes the 0x9000 broadcast and answers with fuzzed datagrams on the tool's port 59003.
#include "FuzzNet.h"

#include "device/Device.h"
#include "gvcp/DeviceInfo.h"
#include "device/Interface.h"
#include "device/InterfaceInfo.h"
#include "device/NICAdapter.h"
#include "gvcp/GvcpProtocol.h"

#include <cstring>

using namespace GenICam::Client;

namespace {

const size_t kMaxDatagrams = 6;
const size_t kAckReads = 3; // the command reads this many acknowledges at most
const uint8_t kFlagAnswerId = 0x01;

boost::shared_ptr<CInterfaceInfo> LoopbackInterface()
{
    NIC_INFO nic;
    nic.vecIntIP = {aicfuzz::kLoopback};
    nic.vecIntSubnetMask = {0xFF000000};
    nic.vecIntGateway = {0};
    nic.vecStrIP = {"127.0.0.1"};
    nic.vecStrSubnetMask = {"255.0.0.0"};
    nic.vecStrGateway = {"0.0.0.0"};
    nic.strMAC = "02-00-00-00-00-01";
    nic.strDescription = nic.strName = "lo";
    return boost::shared_ptr<CInterfaceInfo>(new CInterfaceInfo(nic));
}

boost::shared_ptr<CDeviceInfo> Camera()
{
    ZQ_DISCOVERY_ACK ack;
    memset(&ack, 0, sizeof(ack));
    const uint8_t mac[6] = {0x00, 0x0F, 0x31, 0x00, 0x00, 0x01};
    memcpy(ack.aMAC, mac, sizeof(mac));
    return boost::shared_ptr<CDeviceInfo>(new CDeviceInfo(ack));
}

struct Fixture {
    Fixture()
        : commands(0, GVCP_PORT), answers(aicfuzz::kLoopback, 0), itf(LoopbackInterface(), nullptr),
          device(nullptr, &itf, Camera())
    {
    }
    aicfuzz::UdpSocket commands; // the wildcard socket sees the broadcast commands
    aicfuzz::UdpSocket answers;
    CInterface itf;
    CDevice device;
    aicfuzz::Worker camera;
};

// Waits for the 0x9000 command and answers with the datagrams, topped up with empty ones so the
// command never sits out its 3-second wait.
void Answer(Fixture& fixture, std::vector<aicfuzz::Datagram> datagrams)
{
    std::vector<uint8_t> command;
    do {
        FUZZ_CHECK(fixture.commands.Receive(command, 2000));
    } while (command.size() < sizeof(GVCP_CMD_HEADER) ||
             reinterpret_cast<const GVCP_CMD_HEADER*>(command.data())->wCommand != htons(GVCP_FORCEIP_EX_CMD));
    FUZZ_CHECK(command.size() == sizeof(FORCEIP_EX_CMD_DEF));
    const uint16_t id = reinterpret_cast<const GVCP_CMD_HEADER*>(command.data())->wReqID;
    datagrams.resize(datagrams.size() < kAckReads ? kAckReads : datagrams.size());
    aicfuzz::SendAnswers(fixture.answers, datagrams, id, kFlagAnswerId, GVCP_FORCEIP_EX_PORT_LOCAL,
                         [](uint8_t) { return aicfuzz::kBroadcast; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    aicfuzz::EnterPrivateNetwork();
    static Fixture fixture;
    fixture.commands.Drain();
    aicfuzz::ByteReader input(data, size);
    const std::vector<aicfuzz::Datagram> datagrams = aicfuzz::ReadDatagrams(input, kMaxDatagrams, 128);

    fixture.camera.Post([&] { Answer(fixture, datagrams); });
    std::string error;
    const bool accepted = fixture.device.SetForceIPEx("127.0.0.50", "255.0.0.0", "0.0.0.0", "", 5, error);
    fixture.camera.Wait();
    FUZZ_CHECK(accepted == error.empty());
    return 0;
}
