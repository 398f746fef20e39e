#include "app/WatchEvents.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

const uint64_t kAt = 1795588200123ULL;  // 2026-11-25T06:30:00.123Z

WATCH_EVENT Camera(WATCH_EVENT_KIND kind, uint32_t ip, const char* reason = "")
{
    WATCH_EVENT event;
    event.nWallMs = kAt;
    event.nKind = kind;
    event.strInterface = "eth0";
    event.strMac = "00-11-22-33-44-55";
    event.strModel = "SIM-CAM";
    event.strSerial = "S1";
    event.nIP = ip;
    event.nMask = 0xFFFFFF00;
    event.strReason = reason;
    return event;
}

WATCH_EVENT WithPrevious(WATCH_EVENT event, uint32_t previous)
{
    event.bHasPreviousIP = true;
    event.nPreviousIP = previous;
    return event;
}

} // namespace

TEST(WatchEvents, JsonAndTextLines)
{
    const uint32_t fits = 0xC0A8010B;   // 192.168.1.11
    const uint32_t stray = 0x0A000007;  // 10.0.0.7
    WATCH_EVENT badText = Camera(WATCH_EVENT_APPEARED, fits);
    badText.strModel = "SIM\xff";
    WATCH_EVENT noCamera;
    noCamera.nWallMs = 0;
    noCamera.strInterface = "eth1";
    const char head[] = R"({"time":"2026-11-25T06:30:00.123Z","event":)";
    const char facts[] = R"("interface":"eth0","mac":"00-11-22-33-44-55",)";
    const struct {
        WATCH_EVENT event;
        std::string json;
        std::string text;
    } cases[] = {
        {Camera(WATCH_EVENT_APPEARED, fits),
         std::string(head) + R"("appeared",)" + facts +
             R"("ip":"192.168.1.11","mask":"255.255.255.0","model":"SIM-CAM","serial":"S1"})",
         "2026-11-25T06:30:00.123Z eth0 00-11-22-33-44-55 appeared at 192.168.1.11"},
        {WithPrevious(Camera(WATCH_EVENT_MOVED, fits), stray),
         std::string(head) + R"("moved",)" + facts +
             R"("ip":"192.168.1.11","mask":"255.255.255.0","model":"SIM-CAM","serial":"S1","previous_ip":"10.0.0.7"})",
         "2026-11-25T06:30:00.123Z eth0 00-11-22-33-44-55 moved 10.0.0.7 -> 192.168.1.11"},
        {WithPrevious(Camera(WATCH_EVENT_PLANNED, fits), stray), "",
         "2026-11-25T06:30:00.123Z eth0 00-11-22-33-44-55 planned 10.0.0.7 -> 192.168.1.11"},
        {WithPrevious(Camera(WATCH_EVENT_FAILED, stray, "refused (status 0x8002)"), stray),
         std::string(head) + R"("failed",)" + facts +
             R"("ip":"10.0.0.7","mask":"255.255.255.0","model":"SIM-CAM","serial":"S1","previous_ip":"10.0.0.7",)"
             R"x("reason":"refused (status 0x8002)"})x",
         "2026-11-25T06:30:00.123Z eth0 00-11-22-33-44-55 failed 10.0.0.7: refused (status 0x8002)"},
        {WithPrevious(Camera(WATCH_EVENT_LOST, fits, "no answer at the new address"), stray), "",
         "2026-11-25T06:30:00.123Z eth0 00-11-22-33-44-55 lost 10.0.0.7 -> 192.168.1.11: no answer at the new address"},
        {Camera(WATCH_EVENT_GONE, fits), "", "2026-11-25T06:30:00.123Z eth0 00-11-22-33-44-55 gone from 192.168.1.11"},
        {badText, std::string(head) + R"("appeared",)" + facts +
                      R"("ip":"192.168.1.11","mask":"255.255.255.0","model":"SIM)" "\xef\xbf\xbd" R"(","serial":"S1"})",
         ""},
        {noCamera, R"({"time":"1970-01-01T00:00:00.000Z","event":"appeared","interface":"eth1"})", ""},
    };
    for (const auto& t : cases) {
        if (!t.json.empty()) {
            EXPECT_EQ(WatchEventJson(t.event), t.json);
        }
        if (!t.text.empty()) {
            EXPECT_EQ(WatchEventText(t.event), t.text);
        }
    }
}

TEST(WatchEvents, WriterEndsEveryLineAndStatusCounts)
{
    char buffer[512] = {0};
    FILE* out = fmemopen(buffer, sizeof(buffer), "w");
    ASSERT_NE(out, nullptr);
    const std::vector<WATCH_EVENT> events = {Camera(WATCH_EVENT_MOVED, 1), Camera(WATCH_EVENT_FAILED, 2),
                                             Camera(WATCH_EVENT_LOST, 3)};
    EXPECT_TRUE(CWatchEventWriter(out, false).Write(events));
    EXPECT_EQ(std::string(buffer), WatchEventText(events[0]) + "\n" + WatchEventText(events[1]) + "\n" +
                                       WatchEventText(events[2]) + "\n");
    fclose(out);

    EXPECT_EQ(WatchStatusLine(12, 2, 5, events), "pass 12: 2 interfaces, 5 cameras, 1 moved, 2 failed");
    EXPECT_EQ(WatchStatusLine(1, 1, 1, {Camera(WATCH_EVENT_PLANNED, 1)}),
              "pass 1: 1 interface, 1 camera, 0 moved, 0 failed, 1 planned");
}
