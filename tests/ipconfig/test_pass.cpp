#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/Interface.h"
#include "ipconfig/ConfigPass.h"
#include "ipconfig/IPConfigNetCardIPValid.h"
#include "support/Records.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace GenICam::Client;

namespace {

unsigned int Ip(const char* text)
{
    return Cipcalc().iptolong(text);
}

CAMERA_OUTCOME Outcome(CAMERA_ACTION action, GVCP_RESULT move, CAMERA_NOTE note = CAMERA_NOTE_NONE,
                       const char* newIP = "192.168.1.11")
{
    CAMERA_OUTCOME outcome;
    outcome.strDevID = "CAM(00-0F-31-00-00-01)";
    outcome.nAction = action;
    outcome.nNote = note;
    outcome.nOldIP = Ip("10.0.0.7");
    outcome.nNewIP = Ip(newIP);
    outcome.stForceIP.stMove = move;
    return outcome;
}

// "action address reason", as every report shows an outcome.
std::string Told(const CAMERA_OUTCOME& outcome)
{
    return std::string(ActionText(outcome.nAction)) + " " + DottedText(outcome.nNewIP) + " " + ReasonText(outcome);
}

SEEN_CAMERA Camera(const char* itf, const char* ip, bool available)
{
    return SEEN_CAMERA{itf, "CAM(00-0F-31-00-00-01)", "CAM", "SN1", GenICam::Client::CameraIdOf("00-0F-31-00-00-01"), Ip(ip), 0xFFFFFF00, available};
}

SEEN_INTERFACE Interface(const char* name)
{
    return SEEN_INTERFACE{GenICam::Client::InterfaceIdOf(name), "02-00-00-00-00-01", "192.168.1.5", "255.255.255.0", Ip("192.168.1.5"),
                          Ip("255.255.255.0"), name};
}

// Probes nothing; counts how many searches probe at the same moment.
class CountingProber : public IAddressProber {
public:
    std::vector<ARP_PROBE_RESULT> Probe(const std::vector<unsigned int>& candidates) override
    {
        const int now = ++ms_active;
        for (int seen = ms_most.load(); now > seen && !ms_most.compare_exchange_weak(seen, now);) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        --ms_active;
        return std::vector<ARP_PROBE_RESULT>(candidates.size(), ARP_PROBE_RESULT{ARP_PROBE_FREE, 0});
    }
    static std::atomic<int> ms_active;
    static std::atomic<int> ms_most;
};
std::atomic<int> CountingProber::ms_active{0};
std::atomic<int> CountingProber::ms_most{0};

class Configurator : public CIPConfigNetCardIPValid {
public:
    using CIPConfigNetCardIPValid::CIPConfigNetCardIPValid;

protected:
    std::unique_ptr<IAddressProber> _CreateProber(const PROBE_LINK&) override
    {
        return std::unique_ptr<IAddressProber>(new CountingProber());
    }
};

struct NIC {
    const char* name;
    const char* ip;
    const char* mask;
    std::vector<const char*> cameras;
};

// One dry-run pass as the driver makes it, searches overlapping: "interface MAC action address reason" per camera.
std::vector<std::string> RunPass(const PASS_OPTIONS& options, const std::vector<NIC>& nics)
{
    std::vector<std::unique_ptr<CInterface>> owned;
    std::vector<CInterface*> interfaces;
    uint8_t n = 0;  // camera MACs count up across interfaces
    for (const NIC& nic : nics) {
        owned.emplace_back(new CInterface(aictest::MakeSnapshot(nic.name, Ip(nic.ip), Ip(nic.mask)), nullptr));
        interfaces.push_back(owned.back().get());
        for (const char* ip : nic.cameras) {
            ++n;
            aictest::AddCamera(interfaces.back(), aictest::CameraAt("CAM" + std::to_string(n), n, Ip(ip)));
        }
    }
    CIPConfigAllDevices::Clear();
    CConfigPass pass(options);
    pass.RecordSeen(SeeInterfaces(interfaces));
    CIPConfigAllDevices::RecordUsedNetCardIP(interfaces, pass);
    std::vector<std::unique_ptr<CIPConfigAllDevices>> configurators;
    std::vector<CIPConfigAllDevices*> plan;
    for (CInterface* itf : interfaces) {
        configurators.emplace_back(new Configurator(itf, &pass));
        plan.push_back(configurators.back().get());
    }
    const std::vector<bool> planned = PlanBySubnet(plan);
    for (size_t i = 0; i < plan.size(); ++i) {
        EXPECT_TRUE(planned[i] && plan[i]->SendPlanned()) << nics[i].name;
    }
    std::vector<std::string> lines;
    for (const INTERFACE_REPORT& itf : pass.Settle(SeeInterfaces(interfaces))) {
        for (const CAMERA_REPORT& camera : itf.vecCamera) {
            lines.push_back(itf.stInterface.stId.strLabel + " " + camera.stCamera.stId.strText + " " + Told(camera.stOutcome));
        }
    }
    return lines;
}

} // namespace

TEST(CameraOutcome, ReasonTextPerOutcome)
{
    const struct {
        CAMERA_OUTCOME outcome;
        const char* action;
        std::string reason;
    } cases[] = {
        {Outcome(CAMERA_PLANNED, {}), "planned", "dry run: nothing sent"},
        {Outcome(CAMERA_MOVED, {GVCP_RESULT_OK}), "moved", ""},
        {Outcome(CAMERA_MOVED, {GVCP_RESULT_NO_ANSWER}), "moved", ""},
        {Outcome(CAMERA_FAILED, {GVCP_RESULT_REFUSED, 0x8001}), "failed", "command not implemented (status 0x8001)"},
        {Outcome(CAMERA_FAILED, {GVCP_RESULT_REFUSED, 0x8002}), "failed", "refused (status 0x8002)"},
        {Outcome(CAMERA_FAILED, {GVCP_RESULT_NO_ANSWER}), "failed", "no answer"},
        {Outcome(CAMERA_FAILED, {GVCP_RESULT_BAD_ACK}), "failed", "no valid acknowledge"},
        {Outcome(CAMERA_FAILED, {GVCP_RESULT_SEND_FAILED, 0, ENETUNREACH}), "failed",
         "force-IP not sent: Network is unreachable"},
        {Outcome(CAMERA_FAILED, {GVCP_RESULT_SOCKET_FAILED, 0, EACCES}), "failed",
         "force-IP not sent: Permission denied"},
        {Outcome(CAMERA_FAILED, {}), "failed", "force-IP not sent"},
        {Outcome(CAMERA_FAILED, {GVCP_RESULT_STOPPED}), "failed", "stopped before an answer"},
        {Outcome(CAMERA_FAILED, {GVCP_RESULT_OK}, CAMERA_NOTE_NOT_AT_NEW_ADDRESS), "failed",
         "acknowledged, but not at the new address"},
        {Outcome(CAMERA_LOST, {GVCP_RESULT_OK}), "lost", "no answer at the new address"},
        {Outcome(CAMERA_LOST, {}, CAMERA_NOTE_NONE, "0.0.0.0"), "lost", "no answer since the first discovery"},
        {Outcome(CAMERA_NO_ADDRESS, {}), "kept", "no free address for every camera of this interface"},
        {Outcome(CAMERA_KEPT, {}), "kept", ""},
        {Outcome(CAMERA_KEPT, {}, CAMERA_NOTE_INTERFACE_NO_ADDRESS), "kept", "interface has no address"},
        {Outcome(CAMERA_KEPT, {}, CAMERA_NOTE_INTERFACE_LINK_LOCAL), "kept", "interface is link-local"},
        {Outcome(CAMERA_KEPT, {}, CAMERA_NOTE_INTERFACE_UNREADABLE), "kept", "interface could not be read"},
        {Outcome(CAMERA_KEPT, {}, CAMERA_NOTE_NOT_SEEN_BEFORE), "kept", "not seen before the configuration"},
        {Outcome(CAMERA_KEPT, {}, CAMERA_NOTE_CHANGED_ADDRESS), "kept", "changed its address during the run"},
    };
    for (const auto& c : cases) {
        EXPECT_STREQ(ActionText(c.outcome.nAction), c.action) << c.reason;
        EXPECT_EQ(ReasonText(c.outcome), c.reason) << c.action;
    }
}

// What the planner recorded, judged against where the camera answers at the end, if anywhere.
TEST(CameraOutcome, SettleJudgesEachCameraByWhereItAnswers)
{
    const struct {
        const char* name;
        CAMERA_ACTION planned;
        GVCP_RESULT move;
        const char* now;  // the camera's address at the end; null: it is gone
        bool interfaceGone;
        std::string expected;  // action, shown address, reason
    } cases[] = {
        {"acknowledge lost, camera moved", CAMERA_FAILED, {GVCP_RESULT_NO_ANSWER}, "192.168.1.11", false,
         "moved 192.168.1.11 "},
        {"acknowledged, answers at the old address", CAMERA_SENT, {GVCP_RESULT_OK}, "10.0.0.7", false,
         "failed 192.168.1.11 acknowledged, but not at the new address"},
        {"refused, answers at the old address", CAMERA_FAILED, {GVCP_RESULT_REFUSED, 0x8006}, "10.0.0.7", false,
         "failed 192.168.1.11 refused (status 0x8006)"},
        {"sent, interface gone", CAMERA_SENT, {GVCP_RESULT_OK}, nullptr, true,
         "lost 192.168.1.11 no answer at the new address"},
        {"send failed, interface gone", CAMERA_FAILED, {GVCP_RESULT_SEND_FAILED, 0, ENODEV}, nullptr, true,
         "failed 192.168.1.11 force-IP not sent: No such device"},
        {"refused, then gone", CAMERA_FAILED, {GVCP_RESULT_REFUSED, 0x8002}, nullptr, false,
         "lost 0.0.0.0 no answer since the first discovery"},
        {"never selected, interface gone", CAMERA_KEPT, {}, nullptr, true,
         "lost 0.0.0.0 no answer since the first discovery"},
    };
    for (const auto& c : cases) {
        CConfigPass pass{PASS_OPTIONS()};
        pass.RecordSeen(SEEN_MODEL{{Interface("eth0")}, {Camera("eth0", "10.0.0.7", false)}});
        if (c.planned != CAMERA_KEPT) {
            pass.RecordOutcome(Outcome(c.planned, c.move));
        }
        SEEN_MODEL now;
        if (!c.interfaceGone) {
            now.vecInterface.push_back(Interface("eth0"));
        }
        if (c.now != nullptr) {
            now.vecCamera.push_back(Camera("eth0", c.now, true));
        }
        const std::vector<INTERFACE_REPORT>& report = pass.Settle(now);
        ASSERT_EQ(report.size(), 1u) << c.name;
        EXPECT_EQ(report[0].bGone, c.interfaceGone) << c.name;
        ASSERT_EQ(report[0].vecCamera.size(), 1u) << c.name;
        EXPECT_EQ(Told(report[0].vecCamera[0].stOutcome), c.expected) << c.name;
    }
}

// Conflict searches of one subnet take turns, of different subnets overlap; a later pass is as a fresh process's.
TEST(ConfigPass, SearchesOverlapPerSubnetAndASecondPassGivesWhatAFreshProcessGives)
{
    PASS_OPTIONS dry;
    dry.bDryRun = true;
    PASS_OPTIONS conflicts = dry;
    conflicts.bCheckConflicts = true;
    const std::vector<NIC> later = {{"eth1", "192.168.1.6", "255.255.255.0", {"10.0.0.9"}}};
    const std::vector<std::string> alone = RunPass(dry, later);
    EXPECT_EQ(alone, std::vector<std::string>({"eth1 00-11-1C-01-02-01 planned 192.168.1.11 dry run: nothing sent"}));
    CountingProber::ms_most = 0;
    EXPECT_EQ(RunPass(conflicts, {{"eth0", "192.168.1.5", "255.255.255.0", {"10.0.0.7"}},
                                  {"eth1", "192.168.1.6", "255.255.255.0", {"10.0.0.8"}},
                                  {"eth2", "10.1.0.5", "255.255.0.0", {"10.0.0.9"}}}),
              std::vector<std::string>({"eth0 00-11-1C-01-02-01 planned 192.168.1.11 dry run: nothing sent",
                                        "eth1 00-11-1C-01-02-02 planned 192.168.1.12 dry run: nothing sent",
                                        "eth2 00-11-1C-01-02-03 planned 10.1.0.11 dry run: nothing sent"}));
    EXPECT_EQ(CountingProber::ms_most.load(), 2);
    EXPECT_EQ(RunPass(dry, later), alone);
}
