#pragma once

#include <string>
#include <vector>

namespace GenICam {
namespace Client {
class CDevice;
class CInterface;
} // namespace Client
} // namespace GenICam

struct IP_ASSIGNMENT;

// The phases of one run and the report; main strings them together.
bool InitDeviceModule();
void UnInitDeviceModule();
bool UpdateDeviceList();
void ConfigAllDevices();
// A null argument shows the progress dots; otherwise it points to the run's RUN_OPTIONS.
void* OnThreadReUpdateDeviceList(void* options);
void PrintInterfaceInfo();
void PrintDeviceInfo(GenICam::Client::CInterface* itf);

// Only these interfaces (kernel name or address label) take part in the run; none given: all.
void SelectInterfaces(const std::vector<std::string>& names);
// The address the planner gave (or would give) the device in this run; null when none.
const IP_ASSIGNMENT* FindAssignment(const GenICam::Client::CDevice* device);
const IP_ASSIGNMENT* FindAssignment(const std::string& devID);
