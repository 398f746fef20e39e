#include "ipconfig/AddressProber.h"

#include "common/Diagnostics.h"
#include "common/ipcalc.h"
#include "device/ARP.h"
#include "device/ArpConflict.h"

#include <arpa/inet.h>
#include <cstdio>
#include <utility>

using GenICam::Client::Helper::Diag;
using GenICam::Client::Helper::IsDiagnostics;

namespace {

const char* ClaimText(ARP_CLAIM_KIND kind)
{
    switch (kind) {
    case ARP_CLAIM_REPLY:
        return "an ARP reply from";
    case ARP_CLAIM_REQUEST:
        return "an ARP request from";
    default:
        return "a probe for the same address from";
    }
}

} // namespace

IAddressProber::~IAddressProber() = default;

CPlainProber::CPlainProber(PROBE_LINK link) : m_stLink(std::move(link)) {}

std::vector<bool> CPlainProber::Probe(const std::vector<unsigned int>& candidates)
{
    std::vector<bool> taken;
    for (unsigned int ip : candidates) {
        CARP arp;
        const std::string text = DottedText(ip);
        taken.push_back(arp.DetectIP(m_stLink.strIP.c_str(), text.c_str(), m_stLink.strMAC.c_str(),
                                     m_stLink.strName.c_str()));
        Diag("%s: candidate %s %s", m_stLink.strName.c_str(), text.c_str(),
             taken.back() ? "taken: the interface's own address or a reply to the probe" : "free: no reply");
    }
    return taken;
}

CConflictProber::CConflictProber(PROBE_LINK link) : m_stLink(std::move(link)), m_nRound(0) {}

// Without a socket (no raw-network right) nothing can be heard: every candidate counts as free, as
// with the plain probe.
std::vector<bool> CConflictProber::Probe(const std::vector<unsigned int>& candidates)
{
    const char* name = m_stLink.strName.c_str();
    std::vector<bool> taken(candidates.size(), false);
    uint8_t mac[6] = {0};
    Cipcalc().StrToMac(m_stLink.strMAC.c_str(), mac);
    CArpConflictProbe probe;
    if (!probe.Open(m_stLink.strName, mac)) {
        Diag("%s: no ARP socket on the link: %zu candidates count as free unprobed", name, candidates.size());
        return taken;
    }
    std::vector<uint32_t> wire;
    for (unsigned int ip : candidates) {
        wire.push_back(htonl(ip));
    }
    ++m_nRound;
    if (IsDiagnostics() && !candidates.empty()) {
        Diag("%s: probe round %u: %s to %s, %zu to probe", name, m_nRound,
             DottedText(candidates.front()).c_str(), DottedText(candidates.back()).c_str(), candidates.size());
    }
    const std::vector<ARP_CLAIM> claims = probe.Round(wire);
    for (size_t i = 0; i < claims.size(); ++i) {
        taken[i] = claims[i].nKind != ARP_CLAIM_NONE;
        if (taken[i]) {
            Diag("%s: candidate %s taken: %s %s", name, DottedText(candidates[i]).c_str(),
                 ClaimText(claims[i].nKind), MacText(claims[i].aMAC).c_str());
        } else {
            Diag("%s: candidate %s free: no claim within the round", name, DottedText(candidates[i]).c_str());
        }
    }
    return taken;
}

std::unique_ptr<IAddressProber> CreateAddressProber(bool checkConflicts, const PROBE_LINK& link)
{
    if (checkConflicts) {
        return std::unique_ptr<IAddressProber>(new CConflictProber(link));
    }
    return std::unique_ptr<IAddressProber>(new CPlainProber(link));
}
