#include "app/WatchEvents.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// At 2026-11-25T06:30:00.123Z on eth0, at 192.168.1.11/24; previous 10.0.0.7 unless none.
WATCH_EVENT Event(WATCH_EVENT_KIND kind, const char* reason = "", bool previous = true)
{
    WATCH_EVENT event;
    event.nWallMs = 1795588200123ULL;
    event.nKind = kind;
    event.stCamera.strInterface = "eth0";
    event.stCamera.stId.strText = "00-11-22-33-44-55";
    event.stCamera.strModel = "SIM-CAM";
    event.stCamera.strSerial = "S1";
    event.stCamera.nIP = 0xC0A8010B;
    event.stCamera.nMask = 0xFFFFFF00;
    event.bHasPreviousIP = previous;
    event.nPreviousIP = 0x0A000007;
    event.strReason = reason;
    return event;
}

} // namespace

TEST(WatchEvents, TextLines)
{
    const struct {
        WATCH_EVENT event;
        const char* text;  // after "2026-11-25T06:30:00.123Z eth0 00-11-22-33-44-55 "
    } cases[] = {
        {Event(WATCH_EVENT_APPEARED, "", false), "appeared at 192.168.1.11"},
        {Event(WATCH_EVENT_MOVED), "moved 10.0.0.7 -> 192.168.1.11"},
        {Event(WATCH_EVENT_PLANNED), "planned 10.0.0.7 -> 192.168.1.11"},
        {Event(WATCH_EVENT_FAILED, "refused (status 0x8002)"), "failed 192.168.1.11: refused (status 0x8002)"},
        {Event(WATCH_EVENT_LOST, "no answer at the new address"),
         "lost 10.0.0.7 -> 192.168.1.11: no answer at the new address"},
        {Event(WATCH_EVENT_GONE, "", false), "gone from 192.168.1.11"},
    };
    for (const auto& t : cases) {
        EXPECT_EQ(WatchEventText(t.event), std::string("2026-11-25T06:30:00.123Z eth0 00-11-22-33-44-55 ") + t.text);
    }
    EXPECT_EQ(WatchEventText(ConfigEvent(7, "")), "1970-01-01T00:00:00.007Z config applied");
    EXPECT_EQ(WatchEventText(ConfigEvent(7, "/etc/a.toml:7:1: bad")),
              "1970-01-01T00:00:00.007Z config rejected: /etc/a.toml:7:1: bad");
}

TEST(WatchEvents, JsonLines)
{
    WATCH_EVENT badText = Event(WATCH_EVENT_FAILED, "refused (status 0x8002)");
    badText.stCamera.strModel = "SIM\xff";
    WATCH_EVENT noCamera = Event(WATCH_EVENT_APPEARED, "", false);
    noCamera.stCamera.stId.strText.clear();
    noCamera.nWallMs = 7;
    const struct {
        WATCH_EVENT event;
        std::string json;
    } cases[] = {
        {Event(WATCH_EVENT_APPEARED, "", false),
         R"({"time":"2026-11-25T06:30:00.123Z","event":"appeared","interface":"eth0","mac":"00-11-22-33-44-55",)"
         R"("ip":"192.168.1.11","mask":"255.255.255.0","model":"SIM-CAM","serial":"S1"})"},
        {badText, R"x({"time":"2026-11-25T06:30:00.123Z","event":"failed","interface":"eth0","mac":"00-11-22-33-44-55",)x"
                  R"x("ip":"192.168.1.11","mask":"255.255.255.0","model":"SIM)x" "\xef\xbf\xbd"
                  R"x(","serial":"S1","previous_ip":"10.0.0.7","reason":"refused (status 0x8002)"})x"},
        {noCamera, R"({"time":"1970-01-01T00:00:00.007Z","event":"appeared","interface":"eth0"})"},
        {ConfigEvent(7, ""), R"({"time":"1970-01-01T00:00:00.007Z","event":"config"})"},
        {ConfigEvent(7, "/etc/a.toml:7:1: unknown key \"adress\" in [[camera]]"),
         R"({"time":"1970-01-01T00:00:00.007Z","event":"config",)"
         R"("reason":"/etc/a.toml:7:1: unknown key \"adress\" in [[camera]]"})"},
    };
    for (const auto& t : cases) {
        EXPECT_EQ(WatchEventJson(t.event), t.json);
    }
}

TEST(WatchEvents, WriterEndsEveryLineAndStatusCounts)
{
    char buffer[512] = {0};
    FILE* out = fmemopen(buffer, sizeof(buffer), "w");
    ASSERT_NE(out, nullptr);
    const std::vector<WATCH_EVENT> events = {Event(WATCH_EVENT_MOVED), Event(WATCH_EVENT_FAILED),
                                             Event(WATCH_EVENT_LOST)};
    EXPECT_TRUE(CWatchEventWriter(out, false).Write(events));
    EXPECT_EQ(std::string(buffer), WatchEventText(events[0]) + "\n" + WatchEventText(events[1]) + "\n" +
                                       WatchEventText(events[2]) + "\n");
    fclose(out);
    EXPECT_EQ(WatchStatusLine(12, 2, 5, events), "pass 12: 2 interfaces, 5 cameras, 1 moved, 2 failed");
    EXPECT_EQ(WatchStatusLine(1, 1, 1, {Event(WATCH_EVENT_PLANNED)}),
              "pass 1: 1 interface, 1 camera, 0 moved, 0 failed, 1 planned");
}
