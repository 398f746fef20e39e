#pragma once

#include "device/InterfaceSurvey.h"

#include <vector>

// The run-wide lines of the operator's diagnostics (--verbose).
void DiagRawNetworkRight();
void DiagInterfaces(const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts);
