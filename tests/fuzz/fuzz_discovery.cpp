// The discovery receive loop: a real discovery broadcast on loopback, answered by fuzzed datagrams
// to the interface endpoint (unicast) or the wildcard endpoint (broadcast).
#include "FuzzNet.h"

#include "gvcp/DeviceInfo.h"
#include "gvcp/DeviceDiscovery.h"
#include "gvcp/GvcpProtocol.h"

#include <set>
#include <string>

using namespace GenICam::Client;

namespace {

const size_t kMaxDatagrams = 16;
const size_t kMaxDatagram = 600;    // past the 256-byte record: oversized answers are cut, not overrun
const unsigned long kCollectMs = 4; // every datagram is queued before the collection starts
const uint8_t kFlagAnswerId = 0x01; // carry the command's request id
const uint8_t kFlagBroadcast = 0x02;
const size_t kIdMax = sizeof(ZQ_DISCOVERY_ACK::szModelName) + 2 + 17;

struct Peer {
    Peer() : commands(0, GVCP_PORT), answers(aicfuzz::kLoopback, GVCP_PORT) {}
    aicfuzz::UdpSocket commands; // the wildcard socket sees the broadcast command
    aicfuzz::UdpSocket answers;
};

uint16_t AwaitDiscoveryId(aicfuzz::UdpSocket& commands)
{
    std::vector<uint8_t> command;
    FUZZ_CHECK(commands.Receive(command, 1000));
    FUZZ_CHECK(command.size() == sizeof(GVCP_CMD_HEADER) && command[2] == 0 && command[3] == GVCP_DISCOVERY_CMD);
    return reinterpret_cast<const GVCP_CMD_HEADER*>(command.data())->wReqID;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    aicfuzz::EnterPrivateNetwork();
    static Peer peer;
    peer.commands.Drain();
    aicfuzz::ByteReader input(data, size);
    const std::vector<aicfuzz::Datagram> datagrams = aicfuzz::ReadDatagrams(input, kMaxDatagrams, kMaxDatagram);

    CDeviceDiscovery discovery(aicfuzz::kLoopback, "lo");
    discovery.SendDiscoveryCmd();
    const uint16_t id = AwaitDiscoveryId(peer.commands);
    aicfuzz::SendAnswers(peer.answers, datagrams, id, kFlagAnswerId, GVCP_DISCOVERY_PORT_LOCAL, [](uint8_t flags) {
        return (flags & kFlagBroadcast) ? aicfuzz::kBroadcast : aicfuzz::kLoopback;
    });

    std::vector<boost::shared_ptr<CDeviceInfo>> found;
    // Time-outs and socket errors are absorbed inside: any exception escaping is a finding.
    discovery.GetDeviceInfoList(found, kCollectMs);
    FUZZ_CHECK(found.size() <= datagrams.size());
    std::set<std::string> ids;
    for (const boost::shared_ptr<CDeviceInfo>& info : found) {
        FUZZ_CHECK(info->GetID().size() <= kIdMax);
        FUZZ_CHECK(ids.insert(info->GetID()).second);
    }
    return 0;
}
