#include "common/Exception.h"
#include "gvcp/DeviceInfo.h"
#include "support/AppText.h"
#include "support/Packets.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

using namespace GenICam::Client;
using aictest::CameraModel;

namespace {

const std::string kFull32 = "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345";
const std::string kFull16 = "0123456789abcdef";

// Acknowledge bytes come from the test support's own offsets, not from the product's struct.
CDeviceInfo Decode(const std::vector<uint8_t>& bytes)
{
    ZQ_DISCOVERY_ACK ack;
    memcpy(&ack, bytes.data(), sizeof(ack));
    return CDeviceInfo(ack);
}

CDeviceInfo Decode(const CameraModel& model)
{
    return Decode(aictest::MakeDiscoveryAck(model, 1));
}

std::string InfoText(CDeviceInfo& info, int id)
{
    int type = 0;
    unsigned long size = 0;
    info.GetInfo(id, &type, nullptr, &size);
    EXPECT_EQ(type, 1) << id;
    std::string text(size, '?');
    info.GetInfo(id, &type, &text[0], &size);
    EXPECT_EQ(text.back(), '\0') << id;
    return text.substr(0, size - 1);
}

int InfoInt(CDeviceInfo& info, int id)
{
    int type = 0;
    int value = -1;
    unsigned long size = sizeof(value);
    info.GetInfo(id, &type, &value, &size);
    EXPECT_EQ(type, 5);
    EXPECT_EQ(size, 4u);
    return value;
}

} // namespace

// Texts full to their width, without NUL, so a field that runs into its neighbour shows.
TEST(DeviceInfo, DecodesEveryField)
{
    CameraModel full;
    full.manufacturer = std::string(32, 'V');
    full.model = kFull32;
    full.version = std::string(32, 'R');
    full.serial = kFull16;
    full.userName = std::string(16, 'U');
    full.mac = {{0xAB, 0xCD, 0xEF, 0x01, 0x02, 0xFF}};
    full.ip = 0xC0A8010A;
    full.featureByte = 0xA5;
    CDeviceInfo info = Decode(full);
    const std::string id = kFull32 + "(AB-CD-EF-01-02-FF)";
    EXPECT_EQ(info.GetID(), id);
    EXPECT_EQ(InfoText(info, 0), id);
    EXPECT_EQ(InfoText(info, 1), full.manufacturer);
    EXPECT_EQ(InfoText(info, 2), kFull32);
    EXPECT_EQ(InfoText(info, 4), kFull32 + "(192.168.1.10[AB-CD-EF-01-02-FF])");
    EXPECT_EQ(InfoInt(info, 5), 0);
    EXPECT_EQ(info.GetModelName(), kFull32);
    EXPECT_EQ(info.GetSN(), kFull16);
    EXPECT_EQ(info.GetStrIP(), "192.168.1.10");
    EXPECT_EQ(info.GetIntIP(), full.ip);
    EXPECT_EQ(info.GetIntSubnetMask(), full.mask);
    EXPECT_EQ(info.GetDevMode(), 0x80000001u);
    EXPECT_EQ(info.GetRestartAndresetFeature(), 0xA5);
    unsigned char mac[6] = {0};
    info.GetHexMAC(mac);
    EXPECT_EQ(0, memcmp(mac, full.mac.data(), 6));
    EXPECT_TRUE(info.IsMyMAC("AB-CD-EF-01-02-FF"));
}

TEST(DeviceInfo, IdentityIsExactAndCaseSensitive)
{
    CameraModel model;
    model.model = "M1";
    model.mac = {{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
    const CDeviceInfo info = Decode(model);
    const struct {
        std::string id;
        bool mine;
    } cases[] = {
        {"M1(00-11-22-33-44-55)", true},  {"m1(00-11-22-33-44-55)", false}, {"M1(00-11-22-33-44-5)", false},
        {"M1(00-11-22-33-44-55) ", false}, {"M1(00-11-22-33-44-56)", false}, {"", false},
        {std::string("M1(00-11-22-33-44-55)\0", 22), false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(info.IsMyID(c.id), c.mine) << c.id;
    }
    EXPECT_FALSE(info.IsMyMAC("00:11:22:33:44:55"));
}

// Records are compared after one change to a copy of the same acknowledge.
TEST(DeviceInfo, EqualityComparesIdentityNamesAddressesAndConfigOnly)
{
    using Edit = std::function<void(std::vector<uint8_t>&)>;
    const auto byteAt = [](size_t offset) -> Edit { return [offset](std::vector<uint8_t>& b) { b[offset] ^= 1; }; };
    const struct {
        const char* field;
        Edit edit;
        bool equal;
    } cases[] = {
        {"status of the acknowledge", byteAt(1), true},
        {"manufacturer", byteAt(80), true},
        {"manufacturer-specific info", byteAt(200), true},
        {"serial number", byteAt(224), true},
        {"MAC", byteAt(23), false},
        {"model", byteAt(112), false},
        {"IP config options", byteAt(27), false},
        {"IP address", byteAt(47), false},
        {"subnet mask", byteAt(62), false},
        {"gateway", byteAt(79), false},
        {"user-defined name", byteAt(240), false},
    };
    const std::vector<uint8_t> base = aictest::MakeDiscoveryAck(CameraModel(), 1);
    for (const auto& c : cases) {
        std::vector<uint8_t> changed = base;
        c.edit(changed);
        EXPECT_EQ(Decode(base) == Decode(changed), c.equal) << c.field;
    }
    CDeviceInfo a = Decode(base);
    CDeviceInfo b = Decode(base);
    b.SetAccessStatus(2);
    EXPECT_FALSE(a == b) << "access status";
    a.SetAccessStatus(2);
    EXPECT_TRUE(a == b);
}

TEST(DeviceInfo, UnknownInfoIdsRaiseOutOfRange)
{
    CDeviceInfo info = Decode(CameraModel());
    for (int id : {3, 6}) {
        int type = 0;
        unsigned long size = 0;
        try {
            info.GetInfo(id, &type, nullptr, &size);
            ADD_FAILURE() << "id " << id << " answered";
        } catch (CAppException& e) {
            EXPECT_EQ(aictest::WithoutLine(e.what()),
                      "{-1003}{GetInfo:line[]}{INFO ID " + std::to_string(id) + " is out of range}");
        }
    }
}
