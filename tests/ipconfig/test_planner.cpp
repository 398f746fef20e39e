#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/Interface.h"
#include "ipconfig/IPConfigAllDevices.h"
#include "support/NetNamespace.h"
#include "support/Records.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace GenICam::Client;

namespace {

unsigned int Ip(const char* text)
{
    return Cipcalc().iptolong(text);
}

std::vector<std::string> Texts(const std::vector<unsigned int>& ips)
{
    std::vector<std::string> out;
    for (unsigned int ip : ips) {
        char text[16] = {0};
        Cipcalc().longtoip(ip, text);
        out.push_back(text);
    }
    return out;
}

// An interface that exists only in memory: its name matches no link, so a probe sends nothing
// and reports the candidate free at once.
std::unique_ptr<CInterface> MakeInterface(const char* ip, const char* mask)
{
    return std::unique_ptr<CInterface>(new CInterface(aictest::MakeSnapshot("aicnolink0", Ip(ip), Ip(mask)), nullptr));
}

// Hands the interface a camera as discovery would have; the interface owns it.
void AddCamera(CInterface* itf, int n, const char* ip, const char* mask)
{
    const aictest::CameraModel model =
        aictest::CameraAt("CAM" + std::to_string(n), static_cast<uint8_t>(n), Ip(ip), Ip(mask));
    itf->GetDeviceList()->push_back(new CDevice(nullptr, itf, aictest::MakeRecord(model)));
}

class Planner : public CIPConfigAllDevices {
public:
    explicit Planner(CInterface* itf) : CIPConfigAllDevices(itf)
    {
        m_nNetCardIP = itf->GetInterfaceIP();
        m_nNetCardMask = itf->GetInterfaceSubnetMask();
    }
    bool ConfigAllDevices() override { return true; }

    static void Taken(const std::vector<const char*>& ips)
    {
        for (const char* ip : ips) {
            ms_vecUsedIP.push_back(Ip(ip));
        }
    }
    std::vector<std::string> Selected() const
    {
        std::vector<std::string> models;
        for (CDevice* device : m_vecConfigDevice) {
            models.push_back(device->GetModelName());
        }
        return models;
    }
    void Select(size_t count) { m_vecConfigDevice.assign(count, nullptr); }
};

class PlannerTest : public aictest::NetNamespaceTest {
protected:
    void SetUp() override
    {
        aictest::NetNamespaceTest::SetUp();
        CIPConfigAllDevices::Clear();
    }
};

} // namespace

TEST(IsIPValid, ZeroAndLinkLocalAreUnusable)
{
    const struct {
        unsigned int ip;
        bool valid;
    } cases[] = {
        {0, false},         {0xA9FE0000, false}, {0xA9FE0304, false}, {0xA9FEFFFF, false},
        {0xA9FDFFFF, true}, {0xA9FF0000, true},  {0x00000001, true},  {0xFFFFFFFF, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(IsIPValid(c.ip), c.valid) << std::hex << c.ip;
    }
}

TEST_F(PlannerTest, MarkDevSelectsMisfitsAndLaterHoldersOfATakenAddress)
{
    struct Camera {
        const char* ip;
        const char* mask;
    };
    const struct {
        const char* name;
        std::vector<Camera> cameras;
        std::vector<const char*> taken;  // interface addresses, cameras behind unusable interfaces
        std::vector<std::string> selected;
    } cases[] = {
        {"fits, foreign, zero",
         {{"192.168.1.20", "255.255.255.0"}, {"10.0.0.7", "255.0.0.0"}, {"0.0.0.0", "0.0.0.0"}},
         {"192.168.1.5"},
         {"CAM2", "CAM3"}},
        {"right network, other mask", {{"192.168.1.20", "255.255.0.0"}}, {}, {"CAM1"}},
        {"link-local", {{"169.254.10.10", "255.255.0.0"}}, {}, {"CAM1"}},
        {"the first of two keeps the address",
         {{"192.168.1.30", "255.255.255.0"}, {"192.168.1.30", "255.255.255.0"}},
         {},
         {"CAM2"}},
        {"the interface's own address", {{"192.168.1.5", "255.255.255.0"}}, {"192.168.1.5"}, {"CAM1"}},
        {"blocked by a camera elsewhere", {{"192.168.1.40", "255.255.255.0"}}, {"192.168.1.40"}, {"CAM1"}},
    };
    for (const auto& c : cases) {
        CIPConfigAllDevices::Clear();
        Planner::Taken(c.taken);
        auto itf = MakeInterface("192.168.1.5", "255.255.255.0");
        for (size_t i = 0; i < c.cameras.size(); ++i) {
            AddCamera(itf.get(), static_cast<int>(i + 1), c.cameras[i].ip, c.cameras[i].mask);
        }
        Planner planner(itf.get());
        planner.MarkDev();
        EXPECT_EQ(planner.Selected(), c.selected) << c.name;
    }
}

TEST_F(PlannerTest, CandidatesRunFromNetworkPlus11ToBroadcastMinus1WithCarries)
{
    const struct {
        const char* ip;
        const char* mask;
        std::vector<const char*> taken;
        size_t wanted;
        bool enough;
        std::vector<std::string> found;
    } cases[] = {
        {"192.168.1.5", "255.255.255.0", {"192.168.1.11", "192.168.1.13"}, 2, true, {"192.168.1.12", "192.168.1.14"}},
        {"192.168.1.5", "255.255.255.0", {}, 0, true, {}},
        {"192.168.1.130", "255.255.255.128", {}, 1, true, {"192.168.1.139"}},
        {"10.1.7.7", "255.255.0.0", {}, 1, true, {"10.1.0.11"}},
        {"10.0.0.241", "255.255.255.240", {}, 5, false, {"10.0.0.251", "10.0.0.252", "10.0.0.253", "10.0.0.254"}},
        {"10.0.0.249", "255.255.255.248", {}, 1, false, {}},  // .248 + 11 carries past .254
        {"192.168.9.1", "255.255.255.252", {}, 1, false, {}},
        {"10.0.2.5", "255.255.254.0", {}, 1, true, {"10.0.2.11"}},
    };
    for (const auto& c : cases) {
        CIPConfigAllDevices::Clear();
        Planner::Taken(c.taken);
        auto itf = MakeInterface(c.ip, c.mask);
        Planner planner(itf.get());
        planner.Select(c.wanted);
        std::vector<unsigned int> list;
        EXPECT_EQ(planner.GetIPList(&list), c.enough) << c.ip << "/" << c.mask;
        EXPECT_EQ(Texts(list), c.found) << c.ip << "/" << c.mask;
    }
}
