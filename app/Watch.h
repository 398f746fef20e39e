#pragma once

#include "app/Options.h"
#include "app/PassScheduler.h"
#include "app/WatchState.h"
#include "ipconfig/ConfigPass.h"

#include <vector>

// The long-running mode: the first pass is the plain run with the same options; then a pass every
// interval and soon after a link, address or announcement, each told as events. Returns the exit status.
int RunWatch(const RUN_OPTIONS& options);

// What one pass saw, as the watch state compares passes.
WATCH_PASS_VIEW WatchViewOf(const SEEN_MODEL& seen);
// The part of a view behind the links a pass was limited to.
WATCH_PASS_VIEW WatchViewOn(const WATCH_PASS_VIEW& view, const PASS_SCOPE& scope);
// What one settled pass did to the cameras it worked on (MAC texts; all when `only` is null).
std::vector<WATCH_RESULT> WatchResultsOf(const std::vector<INTERFACE_REPORT>& report,
                                         const std::vector<std::string>* only);
