#include "device/InterfaceInfo.h"
#include "device/LinuxNICAdapter.h"
#include "support/NetNamespace.h"
#include "support/Records.h"

#include <gtest/gtest.h>
#include <string>

using namespace GenICam::Client;

namespace {

class HostInterfaces : public aictest::NetNamespaceTest {
protected:
    static void Veth(const std::string& name, const std::string& cidr)
    {
        Sh("ip link add " + name + " type veth peer name p" + name);
        Sh("ip link set " + name + " up && ip link set p" + name + " up");
        if (!cidr.empty()) {
            Sh("ip addr add " + cidr + " dev " + name);
        }
    }

    static std::vector<NIC_INFO> Enumerate()
    {
        std::vector<NIC_INFO> list;
        CLinuxNICAdapter().GetInterfaceList(list);
        return list;
    }
};

std::string Names(const std::vector<NIC_INFO>& list)
{
    std::string names;
    for (const auto& nic : list) {
        names += (names.empty() ? "" : ",") + nic.strName;
    }
    return names;
}

} // namespace

TEST_F(HostInterfaces, RecordsComeInReverseKernelOrderWithAddressesMacAndGateway)
{
    EXPECT_TRUE(Enumerate().empty()) << "loopback is skipped";
    Veth("eth0", "192.168.1.10/24");
    Sh("ip addr add 192.168.7.1/24 dev eth0 label eth0:1");
    Veth("eth1", "10.0.0.1/8");
    Veth("cam2", "172.16.5.4/27");
    Veth("wlo1", "10.1.1.1/24");
    Sh("ip route add default via 192.168.1.1 dev eth0");
    Sh("ip route add 10.9.0.0/16 via 10.0.0.254 dev eth1");
    const auto list = Enumerate();
    ASSERT_EQ(Names(list), "cam2,eth1,eth0:1,eth0") << "a name containing lo is skipped, a label is an entry";

    const NIC_INFO& cam = list[0];
    EXPECT_EQ(cam.vecIntIP, std::vector<uint32_t>{0xAC100504});
    EXPECT_EQ(cam.vecStrIP, std::vector<std::string>{"172.16.5.4"});
    EXPECT_EQ(cam.vecIntSubnetMask, std::vector<uint32_t>{0xFFFFFFE0});
    EXPECT_EQ(cam.vecStrSubnetMask, std::vector<std::string>{"255.255.255.224"});
    EXPECT_EQ(cam.vecIntGateway, std::vector<uint32_t>{0});
    EXPECT_EQ(cam.vecStrGateway, std::vector<std::string>{"0.0.0.0"});
    EXPECT_EQ(cam.strMAC, aictest::MacOf("cam2"));
    EXPECT_EQ(cam.strDescription, "cam2");
    // The gateway is that of the interface's first route through one.
    EXPECT_EQ(list[1].vecStrGateway[0], "10.0.0.254");
    EXPECT_EQ(list[3].vecStrGateway[0], "192.168.1.1");
    EXPECT_EQ(list[3].vecIntGateway[0], 0xC0A80101u);
    EXPECT_EQ(list[2].vecStrIP[0], "192.168.7.1");
    EXPECT_EQ(list[2].strMAC, list[3].strMAC);
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
