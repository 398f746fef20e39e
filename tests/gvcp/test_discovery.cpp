#include "gvcp/DeviceDiscovery.h"

#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "gvcp/DeviceInfo.h"
#include "support/LinkTest.h"

#include <memory>

using namespace GenICam::Client;
using namespace aictest;

namespace {

using DeviceList = std::vector<boost::shared_ptr<CDeviceInfo>>;

struct DiscoveryDeleter {
    void operator()(CDeviceDiscovery* discovery) const { CInstanceFactory::DestoryDeviceDiscoveryIntstance(discovery); }
};
using DiscoveryPtr = std::unique_ptr<CDeviceDiscovery, DiscoveryDeleter>;

DiscoveryPtr MakeDiscovery()
{
    return DiscoveryPtr(CInstanceFactory::CreateDeviceDiscoveryIntstance(PeerLink::kHostIp, PeerLink::kHostIf));
}

DeviceList Collect(CDeviceDiscovery& discovery, unsigned long timeoutMs, DeviceList list = {})
{
    discovery.SendDiscoveryCmd();
    discovery.GetDeviceInfoList(list, timeoutMs);
    return list;
}

const char kCameraId[] = "AIC-CAM(00-11-1C-01-02-03)";

class Discovery : public LinkTest {};

} // namespace

TEST_F(Discovery, BroadcastsTheEightByteCommandWithConsecutiveIds)
{
    Responder& camera = StartCamera(Silent());
    DiscoveryPtr discovery = MakeDiscovery();
    discovery->SendDiscoveryCmd();
    discovery->SendDiscoveryCmd();
    ASSERT_TRUE(camera.WaitForCount(2, 2000));
    const std::vector<Datagram> got = camera.Received();
    const uint16_t id = got[0].ReqId();
    EXPECT_NE(id, 0);
    EXPECT_EQ(got[0].bytes, std::vector<uint8_t>({0x42, 0x11, 0x00, 0x02, 0x00, 0x00, uint8_t(id >> 8), uint8_t(id)}));
    EXPECT_EQ(got[0].srcIp, PeerLink::kHostIp);
    EXPECT_EQ(got[0].srcPort, 59001);
    EXPECT_EQ(got[1].ReqId(), uint16_t(id + 1));
}

TEST_F(Discovery, AcceptsOnlyFullSizeAcknowledgesToTheCurrentRequest)
{
    struct Case {
        const char* name;
        std::function<void(std::vector<uint8_t>&, uint16_t)> edit;
        bool accepted;
    } cases[] = {
        {"exact 256 bytes", [](std::vector<uint8_t>&, uint16_t) {}, true},
        {"300 bytes, read as the first 256", [](std::vector<uint8_t>& a, uint16_t) { a.resize(300, 0xEE); }, true},
        {"255 bytes", [](std::vector<uint8_t>& a, uint16_t) { a.resize(255); }, false},
        {"stale id", [](std::vector<uint8_t>& a, uint16_t id) { PutBe16(a, 6, uint16_t(id - 1)); }, false},
    };
    for (const Case& c : cases) {
        StartCamera(EditReplies(Camera(CameraModel{}), [edit = c.edit](std::vector<Reply>& r, const Datagram& request) {
            edit(r.at(0).bytes, request.ReqId());
        }));
        DiscoveryPtr discovery = MakeDiscovery();
        const DeviceList list = Collect(*discovery, 200);
        ASSERT_EQ(list.size(), c.accepted ? 1u : 0u) << c.name;
        if (c.accepted) {
            EXPECT_EQ(list[0]->GetID(), kCameraId) << c.name;
            EXPECT_EQ(list[0]->GetStrIP(), "10.77.0.2") << c.name;
        }
    }
}

TEST_F(Discovery, OneRecordPerDeviceInOrderOfFirstArrival)
{
    CameraModel second;
    second.mac[5] = 0x04;
    StartCamera([second](const Datagram& request) {
        const std::vector<uint8_t> first = MakeDiscoveryAck(CameraModel{}, request.ReqId());
        return std::vector<Reply>{{first, 0, 0, 0},
                                  {MakeDiscoveryAck(second, request.ReqId()), 0, 0, 0},
                                  {first, 0, 0, 0},
                                  {first, 20, 0, 0}};
    });
    DiscoveryPtr discovery = MakeDiscovery();
    DeviceList list = Collect(*discovery, 200);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]->GetID(), kCameraId);
    EXPECT_EQ(list[1]->GetID(), "AIC-CAM(00-11-1C-01-02-04)");

    // Records already in the list take part in the check.
    list = Collect(*discovery, 200, list);
    EXPECT_EQ(list.size(), 2u);
}

TEST_F(Discovery, BroadcastAcknowledgesAreHeardOnTheWildcardEndpoint)
{
    CameraModel model;
    model.broadcastDiscoveryAck = true;
    Responder& camera = StartCamera(Camera(model));
    DiscoveryPtr discovery = MakeDiscovery();
    const DeviceList list = Collect(*discovery, 200);
    ASSERT_EQ(camera.Received().size(), 1u);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]->GetID(), kCameraId);
}

TEST_F(Discovery, TotalCollectionTimeIsHonoured)
{
    StartCamera(Camera(CameraModel{}));
    DiscoveryPtr discovery = MakeDiscovery();
    const unsigned long budgets[] = {0, 300};
    for (unsigned long budget : budgets) {
        DeviceList list;
        const uint64_t start = Helper::GetSystemCounterMs();
        discovery->GetDeviceInfoList(list, budget);
        const uint64_t took = Helper::GetSystemCounterMs() - start;
        EXPECT_GE(took + 1, budget) << budget;
        EXPECT_LT(took, budget + 100) << budget;
        EXPECT_TRUE(list.empty()) << "nothing was asked for, nothing may be collected";
    }
}
