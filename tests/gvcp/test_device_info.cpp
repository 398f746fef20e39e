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

TEST(DeviceInfo, DecodesEveryField)
{
    struct Case {
        const char* name;
        CameraModel model;
        std::string id, display;
    };
    CameraModel plain;
    plain.manufacturer = "Vendor";
    plain.model = "M1";
    plain.serial = "SN42";
    plain.mac = {{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
    plain.ip = 0xC0A8010A;
    plain.mask = 0xFFFFFF00;
    plain.gateway = 0xC0A80101;
    plain.featureByte = 0xA5;
    CameraModel full = plain;
    full.manufacturer = kFull32;
    full.model = kFull32;
    full.version = kFull32;
    full.serial = kFull16;
    full.userName = kFull16;
    full.mac = {{0xAB, 0xCD, 0xEF, 0x01, 0x02, 0xFF}};
    full.featureByte = 0x80;
    const Case cases[] = {
        {"short texts", plain, "M1(00-11-22-33-44-55)", "M1(192.168.1.10[00-11-22-33-44-55])"},
        {"full texts without NUL", full, kFull32 + "(AB-CD-EF-01-02-FF)",
         kFull32 + "(192.168.1.10[AB-CD-EF-01-02-FF])"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CDeviceInfo info = Decode(c.model);
        EXPECT_EQ(info.GetID(), c.id);
        EXPECT_EQ(InfoText(info, 0), c.id);
        EXPECT_EQ(InfoText(info, 1), c.model.manufacturer);
        EXPECT_EQ(InfoText(info, 2), c.model.model);
        EXPECT_EQ(InfoText(info, 4), c.display);
        EXPECT_EQ(InfoInt(info, 5), 0);
        EXPECT_EQ(info.GetModelName(), c.model.model);
        EXPECT_EQ(info.GetSN(), c.model.serial);
        EXPECT_EQ(info.GetStrIP(), "192.168.1.10");
        EXPECT_EQ(info.GetIntIP(), c.model.ip);
        EXPECT_EQ(info.GetIntSubnetMask(), c.model.mask);
        EXPECT_EQ(info.GetDevMode(), 0x80000001u);
        EXPECT_EQ(info.GetRestartAndresetFeature(), c.model.featureByte);
        unsigned char mac[6] = {0};
        info.GetHexMAC(mac);
        EXPECT_EQ(0, memcmp(mac, c.model.mac.data(), 6));
        EXPECT_TRUE(info.IsMyMAC(c.id.substr(c.id.size() - 18, 17)));
    }
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
    EXPECT_EQ(InfoInt(a, 5), 2);
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
            EXPECT_EQ(e.GetErrorCode(), -1003);
            EXPECT_EQ(aictest::WithoutLine(e.what()),
                      "{-1003}{GetInfo:line[]}{INFO ID " + std::to_string(id) + " is out of range}");
        }
    }
}
