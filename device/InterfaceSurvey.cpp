#include "device/InterfaceSurvey.h"

#include "common/Helper.h"
#include "common/ipcalc.h"
#include "common/Identity.h"

#include <algorithm>
#include <net/if.h>

namespace GenICam {
namespace Client {

namespace {

// Far past the list's limit, so the entries it never sees can be named.
const size_t kSurveyEntries = 1024;

bool Contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string SkipReason(const std::vector<KERNEL_ADDRESS>& entries, size_t index, const std::vector<std::string>& filter,
                       const std::vector<const KERNEL_ADDRESS*>& used)
{
    const KERNEL_ADDRESS& entry = entries[index];
    if (index >= kInterfaceEntryLimit) {
        return Helper::MsgComposer("past the %zu-entry limit of the interface list", kInterfaceEntryLimit);
    }
    if (IsSkippedInterfaceName(entry.strName)) {
        return "its name contains \"lo\"";
    }
    if (!filter.empty() && !Contains(filter, entry.strName)) {
        return "not named by --interface";
    }
    for (const KERNEL_ADDRESS* earlier : used) {
        if (earlier->strMAC == entry.strMAC) {
            return "merged into " + earlier->strName + ", which has the same MAC";
        }
    }
    return std::string();
}

// Kernel interfaces that have no IPv4 entry (an alias label names its device before the colon).
std::vector<std::string> ReadNamesWithoutIPv4(const std::vector<KERNEL_ADDRESS>& entries)
{
    std::vector<std::string> names;
    struct if_nameindex* links = if_nameindex();
    for (struct if_nameindex* link = links; link != nullptr && link->if_index != 0; ++link) {
        const std::string name = link->if_name;
        const bool listed = std::any_of(entries.begin(), entries.end(), [&name](const KERNEL_ADDRESS& entry) {
            return DeviceNameOf(entry.strName) == name;
        });
        if (!listed) {
            names.push_back(name);
        }
    }
    if (links != nullptr) {
        if_freenameindex(links);
    }
    return names;
}

} // namespace

bool IsSkippedInterfaceName(const std::string& name)
{
    return name.find("lo") != std::string::npos;
}

std::vector<INTERFACE_VERDICT> JudgeInterfaces(const std::vector<KERNEL_ADDRESS>& entries,
                                               const std::vector<std::string>& withoutIPv4,
                                               const std::vector<std::string>& filter)
{
    std::vector<INTERFACE_VERDICT> verdicts;
    std::vector<const KERNEL_ADDRESS*> used;
    for (size_t i = 0; i < entries.size(); ++i) {
        const std::string reason = SkipReason(entries, i, filter, used);
        if (reason.empty()) {
            used.push_back(&entries[i]);
        }
        verdicts.push_back({entries[i], reason.empty(), reason});
    }
    for (const std::string& name : withoutIPv4) {
        verdicts.push_back({{name, 0, 0, std::string(), false, false}, false, "no IPv4 address"});
    }
    return verdicts;
}

std::vector<INTERFACE_VERDICT> SurveyInterfaces(const std::vector<std::string>& filter)
{
    const std::vector<KERNEL_ADDRESS> entries = ReadKernelAddresses(kSurveyEntries);
    return JudgeInterfaces(entries, ReadNamesWithoutIPv4(entries), filter);
}

} // namespace Client
} // namespace GenICam
