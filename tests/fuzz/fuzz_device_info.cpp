// Decoding of a discovery record into CDeviceInfo, and every query on the result.
#include "Fuzz.h"

#include "gvcp/DeviceInfo.h"

#include <cstring>
#include <string>
#include <vector>

using GenICam::Client::CDeviceInfo;
using GenICam::Client::ZQ_DISCOVERY_ACK;

namespace {

const size_t kModelMax = sizeof(ZQ_DISCOVERY_ACK::szModelName);
const size_t kMacText = 17;

// The ids that answer (unknown ids raise without looking at the record: the unit test has them).
const int kAnsweredIds[] = {0, 1, 2, 4, 5};

// One information id, as a size query and then into a buffer of exactly that size.
void Query(CDeviceInfo& info, int id)
{
    int type = 0;
    unsigned long size = 0;
    info.GetInfo(id, &type, nullptr, &size);
    std::vector<char> buffer(size);
    info.GetInfo(id, &type, buffer.data(), &size);
    FUZZ_CHECK(type != 1 || (size > 0 && buffer[size - 1] == '\0'));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    // The first byte picks the information id, the rest is the record.
    const int id = kAnsweredIds[data[0] % 5];
    ZQ_DISCOVERY_ACK ack;
    memset(&ack, 0, sizeof(ack));
    memcpy(&ack, data + 1, size - 1 < sizeof(ack) ? size - 1 : sizeof(ack));

    CDeviceInfo info(ack);
    // No text may reach past its wire field, full or not.
    FUZZ_CHECK(info.GetModelName().size() <= kModelMax);
    FUZZ_CHECK(info.GetSN().size() <= sizeof(ack.szSerialNumber));
    FUZZ_CHECK(info.GetStrMAC().size() == kMacText);
    FUZZ_CHECK(info.GetID() == info.GetModelName() + "(" + info.GetStrMAC() + ")");
    FUZZ_CHECK(info.IsMyID(info.GetID()) && info.IsMyMAC(info.GetStrMAC()));
    FUZZ_CHECK(info.GetStrIP().size() <= 15);

    const CDeviceInfo copy(info);
    FUZZ_CHECK(copy == info && info == copy);
    Query(info, id);
    info.SetAccessStatus(3);
    FUZZ_CHECK(!(copy == info));
    return 0;
}
