// Runs inside the camera lab of model.json (CTest: device_model_lab), whose host namespace holds
// eth0 to eth3 and whose simulated cameras answer discovery and the access-status read.
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/LinuxNICAdapter.h"
#include "device/TL.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <set>
#include <string>

using namespace GenICam::Client;

namespace {

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

// Cameras (MAC text as the records write it) that received a READREG, from the lab's live records.
std::set<std::string> ReadCameras()
{
    std::set<std::string> cameras;
    const std::string dir = getenv("GVLAB_RECORD_DIR");
    FILE* pipe = popen(("cat " + dir + "/*.jsonl").c_str(), "r");
    char line[4096];
    while (pipe != nullptr && fgets(line, sizeof(line), pipe) != nullptr) {
        const std::string entry = line;
        const size_t at = entry.find("\"camera\": \"");
        if (entry.find("\"cmd\": \"readreg\"") != std::string::npos && at != std::string::npos) {
            cameras.insert(entry.substr(at + 11, 17));
        }
    }
    pclose(pipe);
    return cameras;
}

std::string Devices(CInterface& itf)
{
    std::string text;
    for (CDevice* device : *itf.GetDeviceList()) {
        text += (text.empty() ? "" : ", ") + device->GetModelName() + (device->GetSameFlag() ? " kept" : " new");
        device->SetSameIPFlag(true);
    }
    return text;
}

// "name:devices" per interface in list order, and the flagged objects' names, sorted.
std::string Counts(CTL& tl)
{
    std::string text;
    for (CInterface* itf : *tl.GetCurInterfaceList()) {
        text += (text.empty() ? "" : " ") + itf->GetInterfaceDescription() + ":" +
                std::to_string(itf->GetDeviceList()->size());
    }
    return text;
}

std::string Flagged(CTL& tl)
{
    std::set<std::string> names;
    for (CInterface* itf : *tl.GetCurInterfaceList()) {
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

} // namespace

TEST(ModelLab, DevicesInMacOrderRebuiltOnlyOnNewsAndStatusReadOnlyWhereSubnetAndMaskFit)
{
    CInterface itf(HostSnapshot("eth0"), nullptr);
    bool changed = false;
    itf.UpdateDeviceList(&changed, 500);
    EXPECT_TRUE(changed);
    EXPECT_EQ(Devices(itf), "B new, A new, C new, D new, E new");
    itf.UpdateDeviceList(&changed, 500);
    EXPECT_FALSE(changed);
    EXPECT_EQ(Devices(itf), "B kept, A kept, C kept, D kept, E kept");
    // D and E share an address, where the simulator lets D answer.
    EXPECT_EQ(ReadCameras(), (std::set<std::string>{"00-11-1C-01-02-0A", "00-11-1C-01-02-0D"}));
}

TEST(ModelLab, ACameraSeenTwiceStaysOnTheFirstInterfaceAndSharedAddressesAreFlagged)
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    ASSERT_EQ(manager->InitEnvironment(), 0);
    ASSERT_EQ(manager->UpdateDeviceList(3000), 0);
    CTL& tl = *manager->GetTLObject();
    EXPECT_EQ(Counts(tl), "eth6:0 eth5:0 eth4:0 eth3:1 eth2:0 eth1:0 eth0:5");
    EXPECT_EQ(Flagged(tl), "D E eth4 eth5 eth6");
    EXPECT_EQ(manager->UnInitEnvironment(), 0);
    CDeviceManager::ReleaseInstance();
}
