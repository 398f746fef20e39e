#include "ipconfig/AddressProber.h"

#include "common/Diagnostics.h"
#include "common/ipcalc.h"
#include "device/ARP.h"
#include "device/ArpConflict.h"
#include "common/Identity.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
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

// Without a socket nothing was sent and nothing can be heard: the plain run has always counted that
// as free, and a run that must know asks for --check-conflicts, which needs the right up front.
std::vector<ARP_PROBE_RESULT> CPlainProber::Probe(const std::vector<unsigned int>& candidates)
{
    std::vector<ARP_PROBE_RESULT> verdicts;
    for (unsigned int ip : candidates) {
        CARP arp;
        const std::string text = DottedText(ip);
        // An address label (eth0:1) names no device: its frame is not sent and the candidate counts as free.
        ARP_PROBE_RESULT verdict =
            arp.Probe(m_stLink.strIP.c_str(), text.c_str(), m_stLink.strMAC.c_str(), m_stLink.strName.c_str());
        if (verdict.nKind == ARP_PROBE_NO_SOCKET || verdict.nKind == ARP_PROBE_UNSENT) {
            Diag("%s: candidate %s free unprobed: %s: %s", m_stLink.strName.c_str(), text.c_str(),
                 verdict.nKind == ARP_PROBE_UNSENT ? "probe not sent" : "no ARP socket", strerror(verdict.nErrno));
            verdict = {ARP_PROBE_FREE, 0};
        } else if (verdict.nKind == ARP_PROBE_FAILED) {
            Diag("%s: candidate %s not probed: %s", m_stLink.strName.c_str(), text.c_str(), strerror(verdict.nErrno));
        } else {
            Diag("%s: candidate %s %s", m_stLink.strName.c_str(), text.c_str(),
                 verdict.nKind == ARP_PROBE_TAKEN ? "taken: the interface's own address or a reply to the probe"
                                                  : "free: no reply");
        }
        verdicts.push_back(verdict);
    }
    return verdicts;
}

CConflictProber::CConflictProber(PROBE_LINK link) : m_stLink(std::move(link)), m_nRound(0) {}

// A round that could not open its socket or failed midway says nothing about any candidate.
std::vector<ARP_PROBE_RESULT> CConflictProber::Probe(const std::vector<unsigned int>& candidates)
{
    const char* name = m_stLink.strName.c_str();
    uint8_t mac[6] = {0};
    Cipcalc().StrToMac(m_stLink.strMAC.c_str(), mac);
    CArpConflictProbe probe;
    if (!probe.Open(m_stLink.strName, mac)) {
        Diag("%s: no ARP socket on the link: %s", name, strerror(probe.GetErrno()));
        return std::vector<ARP_PROBE_RESULT>(candidates.size(), ARP_PROBE_RESULT{ARP_PROBE_FAILED, probe.GetErrno()});
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
    std::vector<ARP_PROBE_RESULT> verdicts(candidates.size(), ARP_PROBE_RESULT{ARP_PROBE_FREE, 0});
    for (size_t i = 0; i < claims.size(); ++i) {
        if (claims[i].nKind != ARP_CLAIM_NONE) {
            verdicts[i].nKind = ARP_PROBE_TAKEN;
            Diag("%s: candidate %s taken: %s %s", name, DottedText(candidates[i]).c_str(),
                 ClaimText(claims[i].nKind), MacText(claims[i].aMAC).c_str());
        } else if (probe.GetErrno() != 0) {
            verdicts[i] = {ARP_PROBE_FAILED, probe.GetErrno()};
        } else {
            Diag("%s: candidate %s free: no claim within the round", name, DottedText(candidates[i]).c_str());
        }
    }
    if (probe.GetErrno() != 0) {
        Diag("%s: probe round %u failed: %s", name, m_nRound, strerror(probe.GetErrno()));
    }
    return verdicts;
}

std::unique_ptr<IAddressProber> CreateAddressProber(bool checkConflicts, const PROBE_LINK& link)
{
    if (checkConflicts) {
        return std::unique_ptr<IAddressProber>(new CConflictProber(link));
    }
    return std::unique_ptr<IAddressProber>(new CPlainProber(link));
}
