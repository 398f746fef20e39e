#pragma once

#include "device/InterfaceSurvey.h"

#include "ipconfig/ConfigPass.h"

#include <vector>

// The run-wide lines of the operator's diagnostics (--verbose).
void DiagRawNetworkRight();
// A service is not run with --verbose: the one right it needs, when missing, is said on stderr always.
void WarnWithoutRawNetworkRight();
// The same for a watch with no interface to work on, such as a unit with a private network.
void WarnWithoutUsableInterface(const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts);
void DiagInterfaces(const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts);
// Each camera's outcome, with the same reason the JSON report gives.
void DiagOutcomes(const std::vector<INTERFACE_REPORT>& report);
