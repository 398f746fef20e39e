#pragma once

#include "common/KernelInterfaces.h"

#include <cstdint>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {

// The interface list holds the kernel's first 16 IPv4 address entries, and skips every name that
// contains "lo" (a substring test: wlo1 too).
const size_t kInterfaceEntryLimit = 16;
bool IsSkippedInterfaceName(const std::string& name);

// What a run makes of one kernel interface or address entry: used, or the reason it is not.
struct INTERFACE_VERDICT {
    KERNEL_ADDRESS stEntry;  // address 0 for an interface without IPv4
    bool bUsed;
    std::string strReason;
};

// Judges the entries (kernel order) and the kernel's interfaces without any IPv4 entry, as the
// interface list and its --interface filter (empty: all) treat them. Entries that share a MAC become
// one interface, which takes the kernel's first of them: the later ones are merged into it.
std::vector<INTERFACE_VERDICT> JudgeInterfaces(const std::vector<KERNEL_ADDRESS>& entries,
                                               const std::vector<std::string>& withoutIPv4,
                                               const std::vector<std::string>& filter);

// Reads the host's interfaces and judges them.
std::vector<INTERFACE_VERDICT> SurveyInterfaces(const std::vector<std::string>& filter);

} // namespace Client
} // namespace GenICam
