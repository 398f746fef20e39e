#include "device/Device.h"
#include "device/Interface.h"
#include "support/Records.h"

#include <gtest/gtest.h>
#include <string>

using namespace GenICam::Client;
using aictest::MakeRecord;
using aictest::MakeSnapshot;

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
        CDevice device(nullptr, &itf, MakeRecord(aictest::CameraAt("AIC-CAM", 0xCC, c.ip, c.mask)));
        std::string ip = DottedText(c.ip);
        std::string mask = DottedText(c.mask);
        std::string gateway = "1.2.3.4";
        EXPECT_EQ(device.IsSameSubnetWithIF(&ip[0], &mask[0], &gateway[0]), c.fits) << ip << "/" << mask;
        EXPECT_EQ(device.IsSameSubnetWithIF(), c.fits) << ip << "/" << mask;
    }
}
