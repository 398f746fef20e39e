#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/TL.h"
#include "support/AppText.h"
#include "support/NetNamespace.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace GenICam::Client;
using namespace aictest;

namespace {

// Objects still carrying the flag set after the previous step were kept; new ones start without it.
std::string KeptOrNew(CZqObjectBase* object)
{
    const std::string mark = object->GetSameFlag() ? "kept" : "new";
    object->SetSameIPFlag(true);
    return mark;
}

std::string Interfaces(CTL& tl)
{
    std::string text;
    for (CInterface* itf : *tl.GetCurInterfaceList()) {
        text += (text.empty() ? "" : ", ") + itf->GetDisplayName() + " gw " + itf->GetInterfaceStrGateWay() + " " +
                KeptOrNew(itf);
    }
    return text;
}

std::string Veth(const std::string& name, const std::string& mac, const std::string& cidr)
{
    return "ip link add " + name + " address " + mac + " type veth peer name p" + name + " && ip link set " + name +
           " up && ip addr add " + cidr + " dev " + name;
}

using ModelInterfaces = NetNamespaceTest;

} // namespace

TEST_F(ModelInterfaces, ObjectsFollowTheHostByMac)
{
    struct Step {
        const char* what;
        std::string command;
        std::string expected;
    };
    const std::string eth0 = "eth0(10.60.1.1[02-00-00-00-00-01])";
    const std::string eth1 = "eth1(10.60.2.1[02-00-00-00-00-02])";
    const std::vector<Step> steps = {
        {"first enumeration", Veth("eth0", "02:00:00:00:00:01", "10.60.1.1/24") + " && " +
                                  Veth("eth1", "02:00:00:00:00:02", "10.60.2.1/24"),
         eth1 + " gw 0.0.0.0 new, " + eth0 + " gw 0.0.0.0 new"},
        {"identical host", "true", eth1 + " gw 0.0.0.0 kept, " + eth0 + " gw 0.0.0.0 kept"},
        {"gateway added", "ip route add default via 10.60.1.254",
         eth1 + " gw 0.0.0.0 kept, " + eth0 + " gw 10.60.1.254 kept"},
        {"alias label merges into its interface", "ip addr add 10.60.9.1/24 dev eth0 label eth0:1",
         eth1 + " gw 0.0.0.0 kept, " + eth0 + " gw 10.60.1.254 kept"},
        {"interface removed", "ip link del eth1", eth0 + " gw 10.60.1.254 kept"},
        {"new interface appended", Veth("eth2", "02:00:00:00:00:03", "10.60.3.1/24"),
         eth0 + " gw 10.60.1.254 kept, eth2(10.60.3.1[02-00-00-00-00-03]) gw 0.0.0.0 new"},
        {"address changed in place", "ip addr flush dev eth2 && ip addr add 10.60.4.1/24 dev eth2",
         eth0 + " gw 10.60.1.254 kept, eth2(10.60.4.1[02-00-00-00-00-03]) gw 0.0.0.0 kept"},
    };
    CTL tl;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        Sh(step.command);
        tl.UpdateInterfaceList(0);
        EXPECT_EQ(Interfaces(tl), step.expected);
    }
}

namespace {

// The manager over the test's namespace; each test ends with the model torn down.
class ModelManager : public NetNamespaceTest {
protected:
    void SetUp() override
    {
        NetNamespaceTest::SetUp();
        m_manager = CDeviceManager::GetInstanse();
        ASSERT_EQ(m_manager->InitEnvironment(), 0);
    }

    void TearDown() override
    {
        EXPECT_EQ(m_manager->UnInitEnvironment(), 0);
        CDeviceManager::ReleaseInstance();
    }

    CDeviceManager* m_manager = nullptr;
};

} // namespace

TEST_F(ModelManager, FailureBecomesReturnCodeAndLastError)
{
    ASSERT_EQ(m_manager->UpdateDeviceList(3000), 0);
    // An interface whose address cannot be read makes the same-address pass throw.
    NIC_INFO addressless;
    addressless.aHexMAC[5] = 0x99;
    m_manager->GetTLObject()->GetCurInterfaceList()->push_back(
        new CInterface(boost::shared_ptr<CInterfaceInfo>(new CInterfaceInfo(addressless)), m_manager->GetTLObject()));

    EXPECT_EQ(m_manager->UpdateDeviceList(3000), -1009);
    EXPECT_EQ(aictest::WithoutLine(m_manager->GetLastErrorDescription()),
              "{-1009}{{-1009}{GetIntIP:line[]}{Index : 0 Invalid  when GetIntIP}}");
}
