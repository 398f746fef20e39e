#include "app/WatchState.h"

#include "common/ipcalc.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

const uint32_t kEth0 = 0xC0A80105;  // 192.168.1.5/24

// A camera on eth0 at `ip`; it fits when inside 192.168.1.0/24.
WATCH_SIGHTING Seen(const std::string& mac, const char* ip, const char* itf = "eth0")
{
    const uint32_t address = Cipcalc().iptolong(ip);
    const bool fits = (address & 0xFFFFFF00) == (kEth0 & 0xFFFFFF00);
    const SEEN_CAMERA camera{itf, "SIM(" + mac + ")", "SIM", "S" + mac, GenICam::Client::CameraIdOf(mac), address, 0xFFFFFF00, fits};
    return WATCH_SIGHTING{camera, kEth0, 0xFFFFFF00, fits};
}

WATCH_RESULT Did(const std::string& mac, WATCH_OUTCOME outcome, const char* ip = "0.0.0.0", const char* reason = "")
{
    return WATCH_RESULT{mac, outcome, Cipcalc().iptolong(ip), 0xFFFFFF00, reason};
}

std::string Joined(const std::vector<std::string>& parts, const char* separator)
{
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : separator) + part;
    }
    return text;
}

// "moved B 10.0.0.7->192.168.1.11" per event; a reason follows after ": ".
std::string Told(const std::vector<WATCH_EVENT>& events)
{
    std::vector<std::string> lines;
    for (const WATCH_EVENT& e : events) {
        lines.push_back(std::string(WatchEventName(e.nKind)) + " " + e.stCamera.stId.strText + " " +
                        (e.bHasPreviousIP ? DottedText(e.nPreviousIP) + "->" : "") + DottedText(e.stCamera.nIP) +
                        (e.strReason.empty() ? "" : ": " + e.strReason));
    }
    return Joined(lines, "; ");
}

struct STEP {
    uint64_t nowMs;
    std::vector<WATCH_SIGHTING> seen;
    std::string work;
    std::vector<WATCH_RESULT> results;
    std::string events;
};

void RunSteps(CWatchState& state, const std::vector<STEP>& steps)
{
    for (const STEP& step : steps) {
        const WATCH_PASS_VIEW view{{"eth0"}, true, step.seen};
        EXPECT_EQ(Joined(state.CamerasToWork(view, step.nowMs), " "), step.work) << "at " << step.nowMs;
        EXPECT_EQ(Told(state.EndPass(view, step.results, step.nowMs, 0)), step.events) << "at " << step.nowMs;
    }
}

} // namespace

TEST(WatchState, EachStateIsToldOnce)
{
    CWatchState state;
    RunSteps(state, {
        {0, {Seen("A", "192.168.1.20"), Seen("B", "10.0.0.7")}, "B",
         {Did("B", WATCH_OUTCOME_MOVED, "192.168.1.11")}, "appeared A 192.168.1.20; moved B 10.0.0.7->192.168.1.11"},
        {10000, {Seen("A", "192.168.1.20"), Seen("B", "192.168.1.11")}, "", {}, ""},
        // A rebooted into another address; refused, then within its back-off left alone
        {20000, {Seen("A", "10.0.0.9"), Seen("B", "192.168.1.11")}, "A",
         {Did("A", WATCH_OUTCOME_FAILED, "0.0.0.0", "refused (status 0x8002)")},
         "failed A 10.0.0.9->10.0.0.9: refused (status 0x8002)"},
        {21000, {Seen("A", "10.0.0.9"), Seen("B", "192.168.1.11")}, "", {}, ""},
        {22000, {Seen("A", "10.0.0.9"), Seen("B", "192.168.1.11")}, "A",
         {Did("A", WATCH_OUTCOME_LOST, "192.168.1.12", "no answer at the new address")},
         "lost A 10.0.0.9->192.168.1.12: no answer at the new address"},
        // back where it was sent: reachable again
        {30000, {Seen("A", "192.168.1.12"), Seen("B", "192.168.1.11")}, "", {}, "appeared A 192.168.1.12"},
        // a pass that stopped before working on C: C is still to do
        {40000, {Seen("A", "192.168.1.12"), Seen("C", "10.0.0.3")}, "C", {}, ""},
        {41000, {Seen("A", "192.168.1.12"), Seen("C", "10.0.0.3")}, "C",
         {Did("C", WATCH_OUTCOME_NO_ADDRESS, "0.0.0.0", "no free address for every camera of this interface")},
         "appeared C 10.0.0.3: no free address for every camera of this interface"},
        {43000, {Seen("A", "192.168.1.12"), Seen("C", "10.0.0.3")}, "C",
         {Did("C", WATCH_OUTCOME_NO_ADDRESS, "0.0.0.0", "no free address for every camera of this interface")},
         "gone B 192.168.1.11"},
    });
}

TEST(WatchState, DryRunAndConflictChecks)
{
    CWatchState dryRun;
    RunSteps(dryRun, {
        {0, {Seen("A", "10.0.0.7")}, "A", {Did("A", WATCH_OUTCOME_PLANNED, "192.168.1.11")},
         "planned A 10.0.0.7->192.168.1.11"},
        {10000, {Seen("A", "10.0.0.7")}, "", {}, ""},
        {20000, {Seen("A", "10.0.0.8")}, "A", {Did("A", WATCH_OUTCOME_PLANNED, "192.168.1.11")},
         "planned A 10.0.0.8->192.168.1.11"},
    });
    CWatchState checking(true);
    RunSteps(checking, {
        {0, {Seen("A", "192.168.1.20")}, "A", {Did("A", WATCH_OUTCOME_KEPT)}, "appeared A 192.168.1.20"},
        {10000, {Seen("A", "192.168.1.20")}, "", {}, ""},
        {20000, {Seen("A", "192.168.1.21")}, "A", {Did("A", WATCH_OUTCOME_MOVED, "192.168.1.30")},
         "moved A 192.168.1.21->192.168.1.30"},
    });
}

TEST(WatchState, GoneAfterThreeMissesOnItsInterface)
{
    CWatchState state;
    const auto pass = [&state](uint64_t now, std::vector<std::string> interfaces, bool every,
                               std::vector<WATCH_SIGHTING> seen) {
        WATCH_PASS_VIEW view{interfaces, every, seen};
        return Told(state.EndPass(view, {}, now, 0));
    };
    EXPECT_EQ(pass(0, {"eth0", "eth1"}, true, {Seen("A", "192.168.1.20"), Seen("B", "192.168.1.21", "eth1")}),
              "appeared A 192.168.1.20; appeared B 192.168.1.21");
    EXPECT_EQ(pass(1, {"eth0"}, true, {Seen("B", "192.168.1.21", "eth1")}), "");
    EXPECT_EQ(pass(2, {"eth0"}, true, {}), "");                   // B missed once
    EXPECT_EQ(pass(3, {"eth1"}, false, {}), "");                  // a pass on eth1 only: A not looked for
    EXPECT_EQ(pass(4, {"eth0"}, true, {}), "gone A 192.168.1.20; gone B 192.168.1.21");
    EXPECT_EQ(pass(5, {"eth0"}, true, {}), "");
    EXPECT_EQ(state.CameraCount(), 0u);
    EXPECT_EQ(pass(6, {"eth0"}, true, {Seen("A", "192.168.1.20")}), "appeared A 192.168.1.20");
}

TEST(WatchState, BackOffDoublesToItsCapAndRestartsOnChange)
{
    CWatchState state;
    WATCH_PASS_VIEW view{{"eth0"}, true, {Seen("A", "10.0.0.7")}};
    const std::vector<WATCH_RESULT> refused = {Did("A", WATCH_OUTCOME_FAILED, "0.0.0.0", "refused")};
    const uint64_t delays[] = {2000, 4000, 8000, 16000, 32000, 64000, 128000, 256000, 300000, 300000};
    uint64_t now = 1000;
    ASSERT_EQ(state.CamerasToWork(view, now).size(), 1u);
    EXPECT_EQ(state.EndPass(view, refused, now, 0).size(), 1u);
    for (uint64_t delay : delays) {
        EXPECT_TRUE(state.CamerasToWork(view, now + delay - 1).empty()) << delay;
        EXPECT_TRUE(state.EndPass(view, {}, now + delay - 1, 0).empty()) << delay;
        now += delay;
        EXPECT_EQ(state.CamerasToWork(view, now).size(), 1u) << delay;
        EXPECT_EQ(state.EndPass(view, refused, now, 0).size(), 1u) << delay;
    }
    // it restarted at another address: at once, and the back-off starts over
    view.vecCameras = {Seen("A", "10.0.0.8")};
    EXPECT_EQ(state.CamerasToWork(view, now + 1).size(), 1u);
    state.EndPass(view, refused, now + 1, 0);
    EXPECT_TRUE(state.CamerasToWork(view, now + 2000).empty());
    EXPECT_EQ(state.CamerasToWork(view, now + 2001).size(), 1u);
}

TEST(WatchState, CameraPassedBackAndForthIsLeftAloneForTenMinutes)
{
    CWatchState state;
    const uint64_t minute = 60000;
    const char contested[] = "failed A 192.168.1.11: contested: moved 4 times in 10 minutes; left alone for 10 minutes";
    // another host moves it back into its subnet before each of our passes
    std::vector<STEP> steps;
    for (uint64_t k = 0; k < 4; ++k) {
        steps.push_back({k * minute, {Seen("A", "10.0.0.7")}, "A", {Did("A", WATCH_OUTCOME_MOVED, "192.168.1.11")},
                         k < 3 ? "moved A 10.0.0.7->192.168.1.11"
                               : std::string("moved A 10.0.0.7->192.168.1.11; ") + contested});
    }
    steps.push_back({4 * minute, {Seen("A", "10.0.0.7")}, "", {}, ""});
    steps.push_back({13 * minute - 1, {Seen("A", "10.0.0.8")}, "", {}, ""});
    steps.push_back({13 * minute, {Seen("A", "10.0.0.8")}, "A", {Did("A", WATCH_OUTCOME_MOVED, "192.168.1.11")},
                     "moved A 10.0.0.8->192.168.1.11"});
    RunSteps(state, steps);

    // moves spread wider than ten minutes are no contest
    CWatchState slow;
    for (uint64_t k = 0; k < 6; ++k) {
        WATCH_PASS_VIEW view{{"eth0"}, true, {Seen("A", "10.0.0.7")}};
        EXPECT_EQ(Told(slow.EndPass(view, {Did("A", WATCH_OUTCOME_MOVED, "192.168.1.11")}, k * 4 * minute, 0)),
                  "moved A 10.0.0.7->192.168.1.11");
    }
}

TEST(WatchState, AddressesTakenForThePlanner)
{
    CWatchState state;
    WATCH_PASS_VIEW view{{"eth0"}, true, {Seen("A", "10.0.0.7"), Seen("B", "192.168.1.20"), Seen("C", "10.0.0.9")}};
    state.EndPass(view, {Did("A", WATCH_OUTCOME_MOVED, "192.168.1.11"), Did("C", WATCH_OUTCOME_PLANNED, "192.168.1.12")},
                  0, 0);
    // a dry run's plan is taken too; A lost its address in a power cycle: its own is free for it again
    EXPECT_EQ(state.KnownAddresses({}), (std::vector<uint32_t>{0xC0A8010B, 0xC0A80114, 0x0A000009, 0xC0A8010C}));
    EXPECT_EQ(state.KnownAddresses({"A"}), (std::vector<uint32_t>{0xC0A80114, 0x0A000009, 0xC0A8010C}));
}
