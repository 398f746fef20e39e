#pragma once

#include <string>
#include <vector>

namespace GenICam {
namespace Client {
class CInterface;
} // namespace Client
} // namespace GenICam

class CConfigPass;
struct SEEN_MODEL;

// What the confirmation thread needs of its pass.
struct CONFIRM_CONTEXT {
    const CConfigPass* pPass;  // may be null: no cameras are named as sent
    bool bShowProgress;        // the dots and their line end
};

// The phases of one run and the report; main strings them together.
bool InitDeviceModule();
void UnInitDeviceModule();
bool UpdateDeviceList();
void ConfigAllDevices(CConfigPass& pass);
// A null argument shows the progress dots; otherwise it points to a CONFIRM_CONTEXT.
void* OnThreadReUpdateDeviceList(void* context);
void PrintInterfaceInfo(const CConfigPass& pass);
void PrintDeviceInfo(GenICam::Client::CInterface* itf, const CConfigPass& pass);

// Only these interfaces (kernel name or address label) take part in the run; none given: all.
void SelectInterfaces(const std::vector<std::string>& names);
// The transport layer's interfaces and their cameras as they stand now.
SEEN_MODEL SeeDeviceModel();
