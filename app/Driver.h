#pragma once

#include <string>
#include <vector>

class CConfigPass;
struct SEEN_MODEL;

// The device model's side of a pass; the pass runner strings them together.
bool InitDeviceModule();
void UnInitDeviceModule();
void ConfigAllDevices(CConfigPass& pass);

// Only these interfaces (kernel name or address label) take part in the run; none given: all.
void SelectInterfaces(const std::vector<std::string>& names);
// The transport layer's interfaces and their cameras as they stand now.
SEEN_MODEL SeeDeviceModel();
