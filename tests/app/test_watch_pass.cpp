#include "app/Watch.h"
#include "common/ipcalc.h"

#include <gtest/gtest.h>

namespace {

unsigned int Ip(const char* text)
{
    return Cipcalc().iptolong(text);
}

const char kId[] = "CAM(00-0F-31-00-00-01)";
const char kMac[] = "00-0F-31-00-00-01";

SEEN_MODEL Model(const char* cameraIP, bool available)
{
    SEEN_MODEL model;
    model.vecInterface.push_back(SEEN_INTERFACE{GenICam::Client::InterfaceIdOf("eth0"), "02-00-00-00-00-01", "192.168.1.5", "255.255.255.0",
                                                Ip("192.168.1.5"), Ip("255.255.255.0"), "eth0"});
    model.vecCamera.push_back(SEEN_CAMERA{"eth0", kId, "CAM", "SN1", GenICam::Client::CameraIdOf(kMac), Ip(cameraIP), Ip("255.0.0.0"), available});
    return model;
}

struct RESULT_ROW {
    CAMERA_ACTION nAction;
    unsigned int nNewIP;
    const char* szSeenAtEnd;  // null: gone by the end of the pass
    bool bResult;
    WATCH_OUTCOME nOutcome;
    const char* szIP;  // what the result carries
};

// What the watch state is told of each way a pass can end for a camera.
TEST(WatchPass, ResultOfEachOutcome)
{
    const unsigned int sent = Ip("192.168.1.11");
    const RESULT_ROW rows[] = {
        {CAMERA_SENT, sent, "192.168.1.11", true, WATCH_OUTCOME_MOVED, "192.168.1.11"},
        {CAMERA_SENT, sent, nullptr, true, WATCH_OUTCOME_LOST, "192.168.1.11"},
        {CAMERA_SENT, sent, "10.0.0.9", true, WATCH_OUTCOME_FAILED, "10.0.0.9"},
        {CAMERA_FAILED, sent, "10.0.0.7", true, WATCH_OUTCOME_FAILED, "0.0.0.0"},
        {CAMERA_PLANNED, sent, "10.0.0.7", true, WATCH_OUTCOME_PLANNED, "192.168.1.11"},
        {CAMERA_NO_ADDRESS, 0, "10.0.0.7", true, WATCH_OUTCOME_NO_ADDRESS, "0.0.0.0"},
        {CAMERA_KEPT, 0, nullptr, false, WATCH_OUTCOME_KEPT, "0.0.0.0"},  // vanished untouched: misses tell it
    };
    for (const RESULT_ROW& row : rows) {
        CConfigPass pass{PASS_OPTIONS()};
        pass.RecordSeen(Model("10.0.0.7", false));
        CAMERA_OUTCOME outcome;
        outcome.strDevID = kId;
        outcome.nAction = row.nAction;
        outcome.nOldIP = Ip("10.0.0.7");
        outcome.nNewIP = row.nNewIP;
        outcome.stForceIP.stMove.nKind = GenICam::Client::GVCP_RESULT_OK;
        pass.RecordOutcome(outcome);
        SEEN_MODEL end = Model(row.szSeenAtEnd == nullptr ? "10.0.0.7" : row.szSeenAtEnd, false);
        if (row.szSeenAtEnd == nullptr) {
            end.vecCamera.clear();
        }
        pass.Settle(end);
        const std::vector<std::string> only = {kMac};
        const std::vector<WATCH_RESULT> results = WatchResultsOf(pass.GetReport(), &only);
        ASSERT_EQ(results.size(), row.bResult ? 1u : 0u) << ActionText(row.nAction);
        if (row.bResult) {
            EXPECT_EQ(results[0].nOutcome, row.nOutcome) << ActionText(row.nAction);
            EXPECT_EQ(DottedText(results[0].nIP), row.szIP) << ActionText(row.nAction);
        }
        const std::vector<std::string> none;
        EXPECT_TRUE(WatchResultsOf(pass.GetReport(), &none).empty()) << "only the cameras worked on";
    }
}

// A second camera at an address already met does not fit, as the planner would move it.
TEST(WatchPass, SecondCameraAtAnAddressDoesNotFit)
{
    SEEN_MODEL model = Model("192.168.1.20", true);
    SEEN_CAMERA twin = model.vecCamera[0];
    twin.stId = GenICam::Client::CameraIdOf("00-0F-31-00-00-02");
    model.vecCamera.push_back(twin);
    const WATCH_PASS_VIEW view = WatchViewOf(model);
    ASSERT_EQ(view.vecCameras.size(), 2u);
    EXPECT_TRUE(view.vecCameras[0].bFits);
    EXPECT_FALSE(view.vecCameras[1].bFits);
    EXPECT_EQ(view.vecCameras[0].nInterfaceMask, Ip("255.255.255.0"));
}

} // namespace
