// Decoding of a discovery acknowledge into CDeviceInfo, and every query on the result.
#include "FuzzNet.h"

#include "common/Exception.h"
#include "gvcp/DeviceInfo.h"

#include <cstring>
#include <string>

using GenICam::Client::CAppException;
using GenICam::Client::CDeviceInfo;
using GenICam::Client::ZQ_DISCOVERY_ACK;

namespace {

const size_t kModelMax = sizeof(ZQ_DISCOVERY_ACK::szModelName);
const size_t kMacText = 17;

// Every information id, as a size query and then into a buffer of exactly that size.
void QueryAll(CDeviceInfo& info)
{
    for (int id = -1; id <= 6; ++id) {
        try {
            int type = 0;
            unsigned long size = 0;
            info.GetInfo(id, &type, nullptr, &size);
            std::vector<char> buffer(size);
            info.GetInfo(id, &type, buffer.data(), &size);
            FUZZ_CHECK(type != 1 || (size > 0 && buffer[size - 1] == '\0'));
        } catch (CAppException&) {
            FUZZ_CHECK(id == 3 || id < 0 || id > 5);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ZQ_DISCOVERY_ACK ack;
    memset(&ack, 0, sizeof(ack));
    memcpy(&ack, data, size < sizeof(ack) ? size : sizeof(ack));

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
    QueryAll(info);
    info.SetAccessStatus(3);
    FUZZ_CHECK(!(copy == info));
    return 0;
}
