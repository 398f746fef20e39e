#include "app/RunDiagnostics.h"

#include "common/Diagnostics.h"
#include "common/ipcalc.h"
#include "gvcp/LinkTap.h"
#include "ipconfig/ConfigPass.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

using GenICam::Client::INTERFACE_VERDICT;
using GenICam::Client::Helper::Diag;

namespace {

// What a used interface's state means for its cameras.
const char* UsedNote(const INTERFACE_VERDICT& verdict)
{
    if (!IsIPValid(verdict.stEntry.nIP)) {
        return ": link-local, its cameras are listed and never moved";
    }
    if (!verdict.stEntry.bUp) {
        return ": down, it hears nothing";
    }
    return verdict.stEntry.bCarrier ? "" : ": no carrier, it hears nothing";
}

} // namespace

void DiagRawNetworkRight()
{
    if (GenICam::Client::HasRawNetworkRight()) {
        Diag("raw-network right: yes: answers are read at link level, past the kernel's reverse-path and "
             "local-source checks");
    } else {
        Diag("raw-network right: missing: answers from other subnets can be filtered out by the kernel "
             "(reverse-path filtering), and every candidate address counts as free (no ARP probe)");
    }
}

void WarnWithoutRawNetworkRight()
{
    if (!GenICam::Client::HasRawNetworkRight()) {
        const int error = errno;
        fprintf(stderr, "autoipconfig: no link-level socket (%s): cameras in other subnets can go unseen, "
                        "addresses are not probed and announcements not heard\n", strerror(error));
    }
}

void WarnWithoutUsableInterface(const std::vector<INTERFACE_VERDICT>& verdicts)
{
    if (std::none_of(verdicts.begin(), verdicts.end(), [](const INTERFACE_VERDICT& v) { return v.bUsed; })) {
        fprintf(stderr, "autoipconfig: no interface with a usable IPv4 address: no camera is found until one "
                        "gets one\n");
    }
}

void DiagInterfaces(const std::vector<INTERFACE_VERDICT>& verdicts)
{
    for (const INTERFACE_VERDICT& verdict : verdicts) {
        const std::string& name = verdict.stEntry.strName;
        if (verdict.bUsed) {
            Diag("%s: used, %s/%s, MAC %s%s", name.c_str(), DottedText(verdict.stEntry.nIP).c_str(),
                 DottedText(verdict.stEntry.nMask).c_str(), verdict.stEntry.strMAC.c_str(), UsedNote(verdict));
        } else if (verdict.stEntry.nIP == 0) {
            Diag("%s: not used: %s", name.c_str(), verdict.strReason.c_str());
        } else {
            Diag("%s: not used (%s): %s", name.c_str(), DottedText(verdict.stEntry.nIP).c_str(),
                 verdict.strReason.c_str());
        }
    }
}

void DiagOutcomes(const std::vector<INTERFACE_REPORT>& report)
{
    if (!GenICam::Client::Helper::IsDiagnostics()) {
        return;
    }
    for (const INTERFACE_REPORT& itf : report) {
        for (const CAMERA_REPORT& camera : itf.vecCamera) {
            const std::string reason = ReasonText(camera.stOutcome);
            Diag("%s: camera %s: outcome %s%s%s", itf.stInterface.stId.strLabel.c_str(), camera.stCamera.stId.strText.c_str(),
                 ActionText(camera.stOutcome.nAction), reason.empty() ? "" : ": ", reason.c_str());
        }
    }
}
