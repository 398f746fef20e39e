#pragma once

namespace GenICam {
namespace Client {
class CInterface;
} // namespace Client
} // namespace GenICam

// The phases of one run and the report; main strings them together.
bool InitDeviceModule();
void UnInitDeviceModule();
bool UpdateDeviceList();
void ConfigAllDevices();
void* OnThreadReUpdateDeviceList(void* arg);
void PrintInterfaceInfo();
void PrintDeviceInfo(GenICam::Client::CInterface* itf);
