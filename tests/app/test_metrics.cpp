#include "app/Metrics.h"

#include "common/AtomicFile.h"
#include "common/ipcalc.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

const unsigned int kFit = 0xC0A80114;      // 192.168.1.20
const unsigned int kForeign = 0x0A000007;  // 10.0.0.7

CAMERA_REPORT Camera(const std::string& mac, bool available, CAMERA_ACTION action, unsigned int newIP = 0,
                     bool gone = false)
{
    CAMERA_REPORT camera;
    camera.stCamera.stId = GenICam::Client::CameraIdOf(mac);
    camera.stCamera.strModel = "SIM";
    camera.stCamera.strSerial = "S" + mac.substr(mac.size() - 2);
    camera.stCamera.nIP = available ? kFit : kForeign;
    camera.stCamera.bAvailable = available;
    camera.stOutcome.nAction = action;
    camera.stOutcome.nNewIP = newIP;
    camera.bGone = gone;
    return camera;
}

INTERFACE_REPORT Interface(const std::string& name, std::vector<CAMERA_REPORT> cameras)
{
    INTERFACE_REPORT itf;
    itf.stInterface.stId = GenICam::Client::InterfaceIdOf(name);
    itf.vecCamera = std::move(cameras);
    return itf;
}

METRICS_PASS Pass(bool dryRun)
{
    METRICS_PASS pass;
    pass.fEndedAtS = 1764090000.5;
    pass.fDurationS = 1.25;
    pass.bDryRun = dryRun;
    pass.strVersion = "1.2.3";
    return pass;
}

std::string Text(const std::vector<INTERFACE_REPORT>& report, bool dryRun)
{
    METRICS_COUNTERS counters;
    CountPass(report, &counters);
    return MetricsText(report, counters, Pass(dryRun));
}

} // namespace

TEST(Metrics, WholeTextOfOnePass)
{
    CAMERA_REPORT odd = Camera("00-0F-31-00-00-02", false, CAMERA_FAILED);
    odd.stCamera.strModel = "A \"B\" C\\D";
    odd.stCamera.strSerial = "x\ny";
    const std::vector<INTERFACE_REPORT> report = {
        Interface("eth0", {Camera("00-0F-31-00-00-01", true, CAMERA_MOVED, kFit), odd}),
        Interface("eth1", {}),
    };
    EXPECT_EQ(Text(report, false),
              "# HELP autoipconfig_cameras Cameras of an interface by their state after the last pass.\n"
              "# TYPE autoipconfig_cameras gauge\n"
              "autoipconfig_cameras{interface=\"eth0\",state=\"reachable\"} 1\n"
              "autoipconfig_cameras{interface=\"eth0\",state=\"unreachable\"} 1\n"
              "autoipconfig_cameras{interface=\"eth1\",state=\"reachable\"} 0\n"
              "autoipconfig_cameras{interface=\"eth1\",state=\"unreachable\"} 0\n"
              "# HELP autoipconfig_camera_info A camera the last pass saw, with its address.\n"
              "# TYPE autoipconfig_camera_info gauge\n"
              "autoipconfig_camera_info{interface=\"eth0\",mac=\"00-0F-31-00-00-01\",serial=\"S01\",model=\"SIM\","
              "ip=\"192.168.1.20\"} 1\n"
              "autoipconfig_camera_info{interface=\"eth0\",mac=\"00-0F-31-00-00-02\",serial=\"x\\ny\","
              "model=\"A \\\"B\\\" C\\\\D\",ip=\"10.0.0.7\"} 1\n"
              "# HELP autoipconfig_moves_total Cameras sent a new address since the start, by result.\n"
              "# TYPE autoipconfig_moves_total counter\n"
              "autoipconfig_moves_total{interface=\"eth0\",result=\"moved\"} 1\n"
              "autoipconfig_moves_total{interface=\"eth0\",result=\"failed\"} 1\n"
              "autoipconfig_moves_total{interface=\"eth0\",result=\"lost\"} 0\n"
              "autoipconfig_moves_total{interface=\"eth1\",result=\"moved\"} 0\n"
              "autoipconfig_moves_total{interface=\"eth1\",result=\"failed\"} 0\n"
              "autoipconfig_moves_total{interface=\"eth1\",result=\"lost\"} 0\n"
              "# HELP autoipconfig_passes_total Passes finished since the start.\n"
              "# TYPE autoipconfig_passes_total counter\n"
              "autoipconfig_passes_total 1\n"
              "# HELP autoipconfig_last_pass_timestamp_seconds When the last pass ended, since the epoch.\n"
              "# TYPE autoipconfig_last_pass_timestamp_seconds gauge\n"
              "autoipconfig_last_pass_timestamp_seconds 1764090000.500\n"
              "# HELP autoipconfig_last_pass_duration_seconds How long the last pass took.\n"
              "# TYPE autoipconfig_last_pass_duration_seconds gauge\n"
              "autoipconfig_last_pass_duration_seconds 1.250\n"
              "# HELP autoipconfig_build_info The running version.\n"
              "# TYPE autoipconfig_build_info gauge\n"
              "autoipconfig_build_info{version=\"1.2.3\"} 1\n");
}

// Counters outlive the pass that made them, and an interface that went away keeps its own.
TEST(Metrics, CountersAddUpOverPasses)
{
    METRICS_COUNTERS counters;
    CountPass({Interface("eth0", {Camera("00-0F-31-00-00-01", true, CAMERA_MOVED, kFit),
                                  Camera("00-0F-31-00-00-02", false, CAMERA_LOST, kFit, true),
                                  Camera("00-0F-31-00-00-03", false, CAMERA_LOST, 0, true)})},
              &counters);
    CountPass({Interface("eth1", {Camera("00-0F-31-00-00-04", false, CAMERA_FAILED)})}, &counters);
    CountPass({Interface("eth1", {Camera("00-0F-31-00-00-04", false, CAMERA_FAILED),
                                  Camera("00-0F-31-00-00-05", true, CAMERA_KEPT)})},
              &counters);
    const std::string text = MetricsText({}, counters, Pass(false));
    for (const char* line : {"autoipconfig_moves_total{interface=\"eth0\",result=\"moved\"} 1\n",
                             "autoipconfig_moves_total{interface=\"eth0\",result=\"lost\"} 1\n",
                             "autoipconfig_moves_total{interface=\"eth0\",result=\"failed\"} 0\n",
                             "autoipconfig_moves_total{interface=\"eth1\",result=\"failed\"} 2\n",
                             "autoipconfig_moves_total{interface=\"eth1\",result=\"moved\"} 0\n",
                             "autoipconfig_passes_total 3\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
}

TEST(Metrics, ReachableStateAndExitStatus)
{
    const struct {
        const char* name;
        std::vector<CAMERA_REPORT> cameras;
        bool dryRun;
        int reachable;
        int status;
    } cases[] = {
        {"none", {}, false, 0, 0},
        {"fits", {Camera("00-0F-31-00-00-01", true, CAMERA_KEPT)}, false, 1, 0},
        {"refused", {Camera("00-0F-31-00-00-01", true, CAMERA_KEPT), Camera("00-0F-31-00-00-02", false, CAMERA_FAILED)},
         false, 1, 1},
        {"gone after the move", {Camera("00-0F-31-00-00-01", true, CAMERA_LOST, kFit, true)}, false, 0, 1},
        {"planned", {Camera("00-0F-31-00-00-01", false, CAMERA_PLANNED, kFit)}, true, 1, 0},
        {"no address for it", {Camera("00-0F-31-00-00-01", false, CAMERA_NO_ADDRESS)}, true, 0, 1},
    };
    for (const auto& c : cases) {
        const std::vector<INTERFACE_REPORT> report = {Interface("eth0", c.cameras)};
        const std::string reachable = "state=\"reachable\"} " + std::to_string(c.reachable) + "\n";
        const std::string unreachable = "state=\"unreachable\"} " + std::to_string(c.cameras.size() - c.reachable) + "\n";
        const std::string text = Text(report, c.dryRun);
        EXPECT_NE(text.find(reachable), std::string::npos) << c.name;
        EXPECT_NE(text.find(unreachable), std::string::npos) << c.name;
        EXPECT_EQ(ExitStatusOf(true, report, c.dryRun), c.status) << c.name;
        EXPECT_EQ(ExitStatusOf(false, report, c.dryRun), kExitUnfinished) << c.name;
    }
}

// What the format's own checker says of a text with every family and awkward label values.
TEST(Metrics, PromtoolAcceptsTheText)
{
    if (system("command -v promtool >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "promtool is not installed";
    }
    CAMERA_REPORT odd = Camera("00-0F-31-00-00-02", false, CAMERA_FAILED);
    odd.stCamera.strModel = "A \"B\" C\\D";
    odd.stCamera.strSerial = "x\ny";
    const std::string text =
        Text({Interface("eth0", {Camera("00-0F-31-00-00-01", true, CAMERA_MOVED, kFit), odd}), Interface("eth1", {})},
             false);
    char path[] = "/tmp/aic-metrics-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
    const std::string command = std::string("promtool check metrics < ") + path + " 2>&1";
    FILE* checker = popen(command.c_str(), "r");
    ASSERT_NE(checker, nullptr);
    std::string said;
    char buffer[256];
    while (fgets(buffer, sizeof(buffer), checker) != nullptr) {
        said += buffer;
    }
    const int status = pclose(checker);
    unlink(path);
    EXPECT_EQ(status, 0) << said;
    EXPECT_EQ(said, "") << said;
}

// A pass that worked on no camera stands on what it saw; a file that cannot be written is one line.
TEST(Metrics, FileOfEveryPass)
{
    char folder[] = "/tmp/aic-metrics-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string path = std::string(folder) + "/m.prom";
    CMetricsFile file(path, false);
    SEEN_MODEL seen;
    seen.vecInterface.resize(1);
    seen.vecInterface[0].stId = GenICam::Client::InterfaceIdOf("eth0");
    seen.vecCamera.push_back(Camera("00-0F-31-00-00-01", false, CAMERA_KEPT).stCamera);
    seen.vecCamera[0].strInterface = "eth0";
    file.EndPass(seen, {Interface("eth0", {Camera("00-0F-31-00-00-01", true, CAMERA_MOVED, kFit)})}, 0);
    file.EndPass(seen, {}, 0);
    std::string text;
    int error = 0;
    ASSERT_TRUE(GenICam::Client::ReadWholeFile(path, &text, &error));
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644u);
    for (const char* line : {"autoipconfig_cameras{interface=\"eth0\",state=\"unreachable\"} 1\n",
                             "autoipconfig_moves_total{interface=\"eth0\",result=\"moved\"} 1\n",
                             "autoipconfig_passes_total 2\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
    unlink(path.c_str());
    rmdir(folder);
    testing::internal::CaptureStderr();
    CMetricsFile(path, false).EndPass(seen, {}, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "autoipconfig: cannot write the metrics file " + path + ": No such file or directory\n");
}
