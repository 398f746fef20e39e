#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/LinuxNICAdapter.h"
#include "device/TL.h"
#include "support/AppText.h"
#include "support/CameraSet.h"
#include "support/LinkTest.h"
#include "support/NetNamespace.h"
#include "support/Records.h"

#include <gtest/gtest.h>
#include <memory>
#include <set>
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

std::string Devices(CInterface& itf)
{
    std::string text;
    for (CDevice* device : *itf.GetDeviceList()) {
        text += (text.empty() ? "" : ", ") + device->GetDevID() + " " + KeptOrNew(device);
    }
    return text;
}

std::string Veth(const std::string& name, const std::string& mac, const std::string& cidr)
{
    return "ip link add " + name + " address " + mac + " type veth peer name p" + name + " && ip link set " + name +
           " up && ip addr add " + cidr + " dev " + name;
}

boost::shared_ptr<CInterfaceInfo> HostSnapshot(const std::string& name)
{
    std::vector<NIC_INFO> nics;
    CLinuxNICAdapter().GetInterfaceList(nics);
    for (const NIC_INFO& nic : nics) {
        if (nic.strName == name) {
            return boost::shared_ptr<CInterfaceInfo>(new CInterfaceInfo(nic));
        }
    }
    ADD_FAILURE() << name << " not enumerated";
    return boost::shared_ptr<CInterfaceInfo>(new CInterfaceInfo(NIC_INFO()));
}

size_t CountCommands(const Responder& responder, uint16_t command)
{
    size_t count = 0;
    for (const Datagram& datagram : responder.Received()) {
        count += datagram.Command() == command ? 1 : 0;
    }
    return count;
}

const uint16_t kReadReg = 0x0080;

using ModelInterfaces = NetNamespaceTest;

// One interface on the peer link, with the cameras the peer namespace answers as.
class ModelDevices : public LinkTest {
protected:
    void SetUp() override
    {
        LinkTest::SetUp();
        m_itf.reset(new CInterface(HostSnapshot(PeerLink::kHostIf), nullptr));
    }

    bool Update()
    {
        bool changed = false;
        m_itf->UpdateDeviceList(&changed, 500);
        return changed;
    }

    std::unique_ptr<CInterface> m_itf;
};

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

TEST_F(ModelDevices, DevicesAreRebuiltOnlyWhenTheRecordsChange)
{
    CameraModel a = CameraAt("A", 0x0A, 0x0A4D0002);
    CameraModel b = CameraAt("B", 0x01, 0xC0A83203);
    CameraModel renamed = a;
    renamed.userName = "renamed";
    struct Step {
        const char* what;
        std::vector<PlacedCamera> cameras;
        bool changed;
        std::string expected;
    };
    const std::string idA = "A(00-11-1C-01-02-0A)";
    const std::string idB = "B(00-11-1C-01-02-01)";
    const std::vector<Step> steps = {
        {"first camera", {{a}}, true, idA + " new"},
        {"same camera", {{a}}, false, idA + " kept"},
        {"second camera sorts first by MAC", {{a}, {b}}, true, idB + " new, " + idA + " new"},
        {"same cameras, other answer order", {{b}, {a}}, false, idB + " kept, " + idA + " kept"},
        {"user name changed", {{renamed}, {b}}, true, idB + " new, " + idA + " new"},
        {"cameras gone", {}, true, ""},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        StartCamera(Cameras(step.cameras));
        EXPECT_EQ(Update(), step.changed);
        EXPECT_EQ(Devices(*m_itf), step.expected);
    }
}

TEST_F(ModelDevices, AccessStatusIsReadOnlyFromCamerasInTheSubnetWithTheSameMask)
{
    struct Case {
        const char* what;
        uint32_t ip;
        uint32_t mask;
        size_t reads;
    };
    const std::vector<Case> cases = {
        {"same subnet and mask", 0x0A4D0002, 0xFFFFFF00, 1},
        {"address fits but mask differs", 0x0A4D0002, 0xFFFF0000, 0},
        {"other subnet", 0xC0A80909, 0xFFFFFF00, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        m_itf.reset(new CInterface(HostSnapshot(PeerLink::kHostIf), nullptr));
        StartCamera(Cameras({{CameraAt("A", 0x0A, c.ip, c.mask)}}));
        EXPECT_TRUE(Update());
        EXPECT_EQ(CountCommands(*m_camera, kReadReg), c.reads);
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

    std::vector<CInterface*> InterfaceList() { return *m_manager->GetTLObject()->GetCurInterfaceList(); }

    // "name:devices" per interface in list order.
    std::string DeviceCounts()
    {
        std::string text;
        for (CInterface* itf : InterfaceList()) {
            text += (text.empty() ? "" : " ") + itf->GetInterfaceDescription() + ":" +
                    std::to_string(itf->GetDeviceList()->size());
        }
        return text;
    }

    // Names (interface description, device model) of the flagged objects, sorted.
    std::string Flagged()
    {
        std::set<std::string> names;
        for (CInterface* itf : InterfaceList()) {
            if (itf->GetSameFlag()) {
                names.insert(itf->GetInterfaceDescription());
            }
            for (CDevice* device : *itf->GetDeviceList()) {
                if (device->GetSameFlag()) {
                    names.insert(device->GetModelName());
                }
            }
        }
        std::string text;
        for (const std::string& name : names) {
            text += (text.empty() ? "" : " ") + name;
        }
        return text;
    }

    CDeviceManager* m_manager = nullptr;
};

} // namespace

TEST_F(ModelManager, CameraSeenOnThreeInterfacesStaysOnTheFirst)
{
    PeerLink link;
    link.AddLink("eth1", "10.78.1.1/24", "10.78.1.2/24");
    link.AddLink("eth2", "10.78.2.1/24", "10.78.2.2/24");
    Responder cameras(Cameras({{CameraAt("A", 0x0A, 0x0A4D0002)}}), link.PeerNamespace());

    ASSERT_EQ(m_manager->UpdateDeviceList(3000), 0);
    EXPECT_EQ(DeviceCounts(), "eth2:1 eth1:0 aic0:0");
    CDevice* device = nullptr;
    ASSERT_TRUE(m_manager->GetDevObjByID("A(00-11-1C-01-02-0A)", &device));
    EXPECT_EQ(device->GetIF(), InterfaceList().front());
}

TEST_F(ModelManager, SharedAddressesAreFlaggedAndClearedAgain)
{
    PeerLink link;
    link.AddLink("cam4", "10.79.0.1/24", "10.79.0.2/24");
    link.InPeer("ip addr add 10.77.0.50/24 dev aic1 && ip addr add 10.77.0.60/24 dev aic1");
    Sh(Veth("eth1", "02:00:00:00:00:11", "10.78.1.1/24") + " && " + Veth("eth2", "02:00:00:00:00:12", "10.78.1.1/24") +
       " && " + Veth("eth3", "02:00:00:00:00:13", "10.78.1.1/24"));
    Responder cameras(Cameras({{CameraAt("A", 0x0A, 0x0A4D0032), PeerLink::kHostIp},
                               {CameraAt("B", 0x0B, 0x0A4D0032), 0x0A4F0001},
                               {CameraAt("C", 0x0C, 0x0A4D003C), PeerLink::kHostIp}}),
                      link.PeerNamespace());

    ASSERT_EQ(m_manager->UpdateDeviceList(3000), 0);
    EXPECT_EQ(Flagged(), "A B eth1 eth2 eth3");

    // Flags left over on unique objects are cleared by the next update.
    for (CInterface* itf : InterfaceList()) {
        itf->SetSameIPFlag(true);
        for (CDevice* device : *itf->GetDeviceList()) {
            device->SetSameIPFlag(true);
        }
    }
    ASSERT_EQ(m_manager->UpdateDeviceList(3000), 0);
    EXPECT_EQ(Flagged(), "A B eth1 eth2 eth3");

    Sh("ip addr flush dev eth3 && ip addr add 10.78.3.1/24 dev eth3");
    ASSERT_EQ(m_manager->UpdateDeviceList(3000), 0);
    EXPECT_EQ(Flagged(), "A B eth1 eth2");
}

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
