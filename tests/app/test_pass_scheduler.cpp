#include "app/PassScheduler.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string Scope(const PASS_SCOPE& scope)
{
    if (scope.bEveryInterface) {
        return "all";
    }
    std::string text;
    for (const std::string& name : scope.vecInterfaces) {
        text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

} // namespace

TEST(PassScheduler, IntervalTriggersAndCarrierBurst)
{
    CPassScheduler scheduler(10000);
    // what: "start", "end", "link", "announce", "carrier <if>"; next: NextPassAt() after it; scope for "start"
    const struct {
        uint64_t at;
        const char* what;
        uint64_t next;
        const char* scope;
    } steps[] = {
        {0, "start", UINT64_MAX, "all"},
        {500, "end", 10500, ""},
        // link changes and announcements collected for 100 ms into one pass
        {1000, "link", 1100, ""},
        {1050, "announce", 1100, ""},
        {1100, "start", UINT64_MAX, "all"},
        {1200, "link", 1300, ""},  // during the pass: another one follows
        {1400, "end", 1300, ""},
        {1400, "start", UINT64_MAX, "all"},
        {1600, "end", 11600, ""},
        // carrier up on eth1: a pass on eth1 only, then every second for 30 s
        {2000, "carrier eth1", 2100, ""},
        {2100, "start", 3100, "eth1"},
        {2300, "end", 3100, ""},
        {3100, "start", 4100, "eth1"},
        {3400, "end", 4100, ""},
        // a full pass on the interval also serves the burst
        {11600, "start", 12600, "all"},
        {11900, "end", 12600, ""},
        {12600, "start", 13600, "eth1"},
        {12700, "end", 13600, ""},
        // the burst is over: only the interval is left
        {31600, "start", UINT64_MAX, "all"},
        {31800, "end", 41800, ""},
    };
    for (const auto& step : steps) {
        const std::string what = step.what;
        std::string scope;
        if (what == "start") {
            scope = Scope(scheduler.StartPass(step.at));
        } else if (what == "end") {
            scheduler.OnPassEnded(step.at);
        } else if (what == "link") {
            scheduler.OnInterfaceEvent(step.at);
        } else if (what == "announce") {
            scheduler.OnAnnouncement(step.at);
        } else {
            scheduler.OnCarrierUp(what.substr(8), step.at);
        }
        EXPECT_EQ(scheduler.NextPassAt(), step.next) << step.at << " " << what;
        EXPECT_EQ(scope, step.scope) << step.at << " " << what;
    }
}
