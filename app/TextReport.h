#pragma once

#include "app/PassRun.h"

// The plain run's report: every interface of the settled pass with its cameras, then the summary
// of the interfaces the planner cannot use.
void PrintTextReport(const PASS_RESULT& result, const PASS_OPTIONS& options);
