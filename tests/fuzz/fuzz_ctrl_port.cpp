// The control port's acknowledge handling for READREG, WRITEREG, READMEM and WRITEMEM (and the
// access-status and privilege calls built on them). Fuzzed datagrams are queued on the port's
// interface endpoint before the call, some carrying the request ids the port is about to use.
#include "FuzzNet.h"

#include "common/Exception.h"
#include "gvcp/GVCPCtrlPort.h"
#include "gvcp/GvcpProtocol.h"

#include <arpa/inet.h>

using namespace GenICam::Client;

namespace {

const size_t kMaxDatagrams = 12;
const unsigned int kAckWaitMs = 2; // queued datagrams are judged at once; only silence costs time
const uint8_t kFlagAnswerId = 0x04; // carry one of the next request ids, chosen by the low bits

// Exposes the ids the port will take next, computed by the port itself and then undone.
class CPeekCtrlPort : public CGVCPCtrlPort {
public:
    using CGVCPCtrlPort::CGVCPCtrlPort;
    std::vector<uint16_t> UpcomingReqIDs(size_t count)
    {
        const unsigned short saved = m_nReqID;
        std::vector<uint16_t> ids;
        for (size_t i = 0; i < count; ++i) {
            ids.push_back(htons(_GetReqID()));
        }
        m_nReqID = saved;
        return ids;
    }
};

std::vector<unsigned long> Addresses(size_t count, uint8_t seed)
{
    std::vector<unsigned long> addresses;
    for (size_t i = 0; i < count; ++i) {
        // Mostly aligned; the low bits of the seed put a misaligned one in now and then.
        addresses.push_back(0x0A00 + 4 * i + ((i == 0) ? (seed & 3) : 0));
    }
    return addresses;
}

void ReadRegs(CPeekCtrlPort& port, size_t requested, uint8_t seed)
{
    std::vector<unsigned long> addresses = Addresses(requested, seed);
    std::vector<unsigned int> values(requested);
    unsigned long count = requested;
    try {
        port.ReadRegList(addresses.data(), values.data(), &count);
    } catch (CAppException&) {
    }
    FUZZ_CHECK(count <= requested);
}

void WriteRegs(CPeekCtrlPort& port, size_t requested, uint8_t seed)
{
    std::vector<unsigned long> addresses = Addresses(requested, seed);
    std::vector<unsigned int> values(requested, 0x01020304);
    unsigned long count = requested;
    try {
        port.WriteRegList(addresses.data(), values.data(), &count);
    } catch (CAppException&) {
    }
}

void ReadMemory(CPeekCtrlPort& port, size_t requested, uint8_t seed)
{
    std::vector<unsigned char> buffer(requested);
    unsigned long size = requested;
    try {
        port.ReadMem(0x0048 + (seed & 3), buffer.data(), &size);
    } catch (CAppException&) {
    }
    FUZZ_CHECK(size <= requested);
}

void WriteMemory(CPeekCtrlPort& port, size_t requested, uint8_t seed)
{
    std::vector<unsigned char> buffer(requested, 0x5A);
    unsigned long size = requested;
    try {
        port.WriteMem(0x00E8 + (seed & 3), buffer.data(), &size);
    } catch (CAppException&) {
    }
}

void AccessStatus(CPeekCtrlPort& port)
{
    int status = -1;
    port.GetAccessStatus(status); // never throws
    FUZZ_CHECK(status == 0 || status == 1 || status == 2 || status == 3 || status == 1000);
}

void Privilege(CPeekCtrlPort& port, uint8_t seed)
{
    try {
        port.SetPrivilege(static_cast<DEVICE_ACCESS_VALUE>(seed % 3));
    } catch (CAppException&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    aicfuzz::EnterPrivateNetwork();
    static aicfuzz::UdpSocket device(aicfuzz::kLoopback2, GVCP_PORT);
    device.Drain();

    aicfuzz::ByteReader input(data, size);
    const uint8_t operation = input.Byte();
    const uint16_t amount = input.Word();
    const uint8_t seed = input.Byte();
    const uint8_t retries = input.Byte();
    std::vector<aicfuzz::Datagram> datagrams = aicfuzz::ReadDatagrams(input, kMaxDatagrams, GVCP_PACKET_MAX + 64);

    CPeekCtrlPort port(aicfuzz::kLoopback, aicfuzz::kLoopback2, "lo");
    port.SetCmdTimeout(kAckWaitMs);
    port.SetCmdRetryTimes(1 + retries % 3);
    const std::vector<uint16_t> ids = port.UpcomingReqIDs(4);
    for (aicfuzz::Datagram& datagram : datagrams) {
        if (datagram.flags & kFlagAnswerId) {
            aicfuzz::PatchReqId(datagram.bytes, ids[datagram.flags & 3]);
        }
        device.SendTo(datagram.bytes, aicfuzz::kLoopback, GVCP_DISCOVERY_PORT_LOCAL);
    }

    switch (operation % 6) {
    case 0:
        AccessStatus(port);
        break;
    case 1:
        ReadRegs(port, 1 + amount % (GVCP_READREG_MAX + 1), seed);
        break;
    case 2:
        WriteRegs(port, 1 + amount % (GVCP_WRITEREG_MAX + 1), seed);
        break;
    case 3:
        ReadMemory(port, 1 + amount % 1300, seed);
        break;
    case 4:
        WriteMemory(port, 1 + amount % 1300, seed);
        break;
    default:
        Privilege(port, seed);
        break;
    }
    return 0;
}
