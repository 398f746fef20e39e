#include "common/Exception.h"
#include "device/InterfaceInfo.h"
#include "device/LinuxNICAdapter.h"
#include "support/NetNamespace.h"

#include <gtest/gtest.h>
#include <string>

using namespace GenICam::Client;
using aictest::Capture;

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

    static std::string Mac(const std::string& name)
    {
        std::string mac = Capture("ip -br link show " + name + " | awk '{print $3}' | tr a-f: A-F-");
        return mac.substr(0, 17);
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

TEST_F(HostInterfaces, LoopbackAndNamesContainingLoAreSkipped)
{
    EXPECT_TRUE(Enumerate().empty());
    Veth("wlo1", "10.1.1.1/24");
    EXPECT_TRUE(Enumerate().empty());
}

TEST_F(HostInterfaces, RecordsComeInReverseKernelOrderWithAddressesAndMac)
{
    Veth("eth0", "192.168.1.10/24");
    Veth("eth1", "10.0.0.1/8");
    Veth("cam2", "172.16.5.4/27");
    const auto list = Enumerate();
    ASSERT_EQ(Names(list), "cam2,eth1,eth0");

    const NIC_INFO& cam = list[0];
    EXPECT_EQ(cam.vecIntIP, std::vector<uint32_t>{0xAC100504});
    EXPECT_EQ(cam.vecStrIP, std::vector<std::string>{"172.16.5.4"});
    EXPECT_EQ(cam.vecIntSubnetMask, std::vector<uint32_t>{0xFFFFFFE0});
    EXPECT_EQ(cam.vecStrSubnetMask, std::vector<std::string>{"255.255.255.224"});
    EXPECT_EQ(cam.vecIntGateway, std::vector<uint32_t>{0});
    EXPECT_EQ(cam.vecStrGateway, std::vector<std::string>{"0.0.0.0"});
    EXPECT_EQ(cam.strMAC, Mac("cam2"));
    EXPECT_EQ(cam.strDescription, "cam2");
}

TEST_F(HostInterfaces, AliasLabelIsAnEntryOfItsOwnWithTheSameMac)
{
    Veth("eth0", "192.168.1.10/24");
    Sh("ip addr add 192.168.7.1/24 dev eth0 label eth0:1");
    const auto list = Enumerate();
    ASSERT_EQ(Names(list), "eth0:1,eth0");
    EXPECT_EQ(list[0].vecStrIP[0], "192.168.7.1");
    EXPECT_EQ(list[0].strMAC, list[1].strMAC);
}

TEST_F(HostInterfaces, AtMostSixteenEntriesAreSeen)
{
    Veth("eth0", "");
    for (int i = 0; i < 20; ++i) {
        Sh("ip addr add 10.0." + std::to_string(i) + ".1/24 dev eth0 label eth0:" + std::to_string(i));
    }
    // lo is the first of the 16 entries and is skipped.
    EXPECT_EQ(Enumerate().size(), 15u);
}

TEST_F(HostInterfaces, GatewayComesFromTheFirstGatewayRouteOfTheInterface)
{
    Veth("eth0", "192.168.1.10/24");
    Veth("eth1", "192.168.2.10/24");
    Veth("eth2", "192.168.3.10/24");
    Sh("ip route add default via 192.168.1.1 dev eth0");
    Sh("ip route add 10.9.0.0/16 via 192.168.2.254 dev eth1");
    const auto list = Enumerate();
    ASSERT_EQ(Names(list), "eth2,eth1,eth0");
    EXPECT_EQ(list[2].vecStrGateway[0], "192.168.1.1");
    EXPECT_EQ(list[2].vecIntGateway[0], 0xC0A80101u);
    EXPECT_EQ(list[1].vecStrGateway[0], "192.168.2.254");
    EXPECT_EQ(list[0].vecIntGateway[0], 0u);
    EXPECT_EQ(list[0].vecStrGateway[0], "0.0.0.0");
}

namespace {

NIC_INFO Nic(const char* name, unsigned char lastMacByte, uint32_t ip)
{
    NIC_INFO nic;
    nic.vecIntIP = {ip};
    nic.vecIntSubnetMask = {0xFFFFFF00};
    nic.vecIntGateway = {0};
    nic.vecStrIP = {"192.168.1.10"};
    nic.vecStrSubnetMask = {"255.255.255.0"};
    nic.vecStrGateway = {"0.0.0.0"};
    const unsigned char mac[6] = {0x00, 0x0C, 0x29, 0xAB, 0xCD, lastMacByte};
    memcpy(nic.aHexMAC, mac, 6);
    nic.strMAC = "00-0C-29-AB-CD-" + std::string(lastMacByte == 0xEF ? "EF" : "01");
    nic.strName = nic.strDescription = name;
    return nic;
}

template <typename Call>
std::string Thrown(Call call)
{
    try {
        call();
    } catch (CAppException& e) {
        return e.what();
    }
    return "";
}

} // namespace

TEST(InterfaceSnapshot, IdentityEqualityAndDisplayName)
{
    CInterfaceInfo a(Nic("eth0", 0xEF, 0xC0A8010A));
    CInterfaceInfo renamed(Nic("eth9", 0xEF, 0xC0A8010A));
    CInterfaceInfo moved(Nic("eth0", 0xEF, 0xC0A8010B));
    CInterfaceInfo other(Nic("eth0", 0x01, 0xC0A8010A));

    EXPECT_EQ(a.GetDisplayName(), "192.168.1.10[00-0C-29-AB-CD-EF]");
    EXPECT_TRUE(a.IsMyID("00-0C-29-AB-CD-EF"));
    EXPECT_FALSE(a.IsMyID("00-0c-29-ab-cd-ef"));
    EXPECT_TRUE(a == renamed);
    EXPECT_FALSE(a == moved);
    EXPECT_TRUE(a.IsSameInterface(moved));
    EXPECT_FALSE(a.IsSameInterface(other));
    EXPECT_EQ(a.GetInt64MAC(), 0x000C29ABCDEFULL);

    CInterfaceInfo copy(a);
    copy = moved;
    EXPECT_EQ(copy.GetIntIP(0), 0xC0A8010Bu);
    EXPECT_EQ(copy.GetDisplayName(), moved.GetDisplayName());

    NIC_INFO empty;
    EXPECT_EQ(CInterfaceInfo(empty).GetDisplayName(), "IP Error[]");
}

TEST(InterfaceSnapshot, GettersAndInfoThrowTheirOwnTexts)
{
    CInterfaceInfo a(Nic("eth0", 0xEF, 0xC0A8010A));
    EXPECT_EQ(a.GetIntGateway(0), 0u);
    const struct {
        std::string thrown;
        std::string expected;
    } cases[] = {
        {Thrown([&] { a.GetIntIP(1); }), "{-1009}{GetIntIP:line["},
        {Thrown([&] { a.GetStrIP(1); }), "{Index : 1 Invalid  when GetStrIP}"},
        {Thrown([&] { a.GetIntSubnetMask(1); }), "{-1001}{GetIntSubnetMask:line["},
        {Thrown([&] { a.GetStrSubnetMask(1); }), "{Index : 1 Invalid  when GetStrSubnetMask}"},
        {Thrown([&] { a.GetIntGateway(1); }), "{Index : 1 Invalid  when GetIntGateway}"},
        {Thrown([&] { a.GetStrGateway(1); }), "{-1001}{GetStrGateway:line["},
        {Thrown([&] { a.GetStrGateway(1); }), "{Index : 1 Invalid  when GetStrSubnetMask}"},
        {Thrown([&] { a.GetInfo(3, nullptr, nullptr, nullptr); }), "{Information 3 not implemented}"},
        {Thrown([&] { a.GetInfo(3, nullptr, nullptr, nullptr); }), "{-1003}{GetInfo:line["},
    };
    for (const auto& c : cases) {
        EXPECT_NE(c.thrown.find(c.expected), std::string::npos) << c.thrown;
    }

    int type = 0;
    char text[32];
    unsigned long size = sizeof(text);
    a.GetInfo(2, &type, text, &size);
    EXPECT_STREQ(text, "GEV");
    size = sizeof(text);
    a.GetInfo(0, &type, text, &size);
    EXPECT_STREQ(text, "00-0C-29-AB-CD-EF");
}
