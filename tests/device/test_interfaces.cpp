#include "device/InterfaceInfo.h"
#include "device/LinuxNICAdapter.h"
#include "support/NetNamespace.h"
#include "support/Records.h"

#include <gtest/gtest.h>
#include <string>

using namespace GenICam::Client;

// Order, labels and skipped names are the host model's and the lab cases' to show.
using HostInterfaces = aictest::NetNamespaceTest;

TEST_F(HostInterfaces, RecordCarriesAddressMaskMacAndTheFirstRouteThroughAGateway)
{
    Sh("ip link add cam2 type veth peer name pcam2 && ip link set cam2 up && ip link set pcam2 up && "
       "ip addr add 172.16.5.4/27 dev cam2 && ip route add 10.9.0.0/16 via 172.16.5.1 dev cam2");
    std::vector<NIC_INFO> list;
    CLinuxNICAdapter().GetInterfaceList(list);
    ASSERT_EQ(list.size(), 1u);
    const NIC_INFO& cam = list[0];
    EXPECT_EQ(cam.vecIntIP, std::vector<uint32_t>{0xAC100504});
    EXPECT_EQ(cam.vecStrIP, std::vector<std::string>{"172.16.5.4"});
    EXPECT_EQ(cam.vecIntSubnetMask, std::vector<uint32_t>{0xFFFFFFE0});
    EXPECT_EQ(cam.vecStrSubnetMask, std::vector<std::string>{"255.255.255.224"});
    EXPECT_EQ(cam.vecIntGateway, std::vector<uint32_t>{0xAC100501});
    EXPECT_EQ(cam.vecStrGateway, std::vector<std::string>{"172.16.5.1"});
    EXPECT_EQ(cam.strMAC, aictest::MacOf("cam2"));
    EXPECT_EQ(cam.strDescription, "cam2");
}

TEST(InterfaceSnapshot, IdentityEqualityAndDisplayName)
{
    using aictest::MakeNic;
    CInterfaceInfo a(MakeNic("eth0", 0xC0A8010A, 0xFFFFFF00, 0xEF));
    CInterfaceInfo renamed(MakeNic("eth9", 0xC0A8010A, 0xFFFFFF00, 0xEF));
    CInterfaceInfo moved(MakeNic("eth0", 0xC0A8010B, 0xFFFFFF00, 0xEF));
    CInterfaceInfo other(MakeNic("eth0", 0xC0A8010A, 0xFFFFFF00, 0x01));

    EXPECT_EQ(a.GetDisplayName(), "192.168.1.10[02-00-00-00-00-EF]");
    EXPECT_TRUE(a.IsMyID("02-00-00-00-00-EF"));
    EXPECT_FALSE(a.IsMyID("02-00-00-00-00-ef"));
    EXPECT_TRUE(a == renamed);
    EXPECT_FALSE(a == moved);
    EXPECT_TRUE(a.IsSameInterface(moved));
    EXPECT_FALSE(a.IsSameInterface(other));

    NIC_INFO empty;
    EXPECT_EQ(CInterfaceInfo(empty).GetDisplayName(), "IP Error[]");
}
