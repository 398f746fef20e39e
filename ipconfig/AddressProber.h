#pragma once

#include "device/ARP.h"

#include <memory>
#include <string>
#include <vector>

// The interface the probes of one configurator go out on, read from it once.
struct PROBE_LINK {
    std::string strName;   // as the report names it: a kernel name or an address label
    std::string strIP;     // dotted
    std::string strMAC;    // report form, 00-11-22-33-44-55
};

// Asks the link which candidate addresses another host already uses.
class IAddressProber {
public:
    virtual ~IAddressProber();
    // Candidates in host order; per candidate free, taken, or failed with the errno. Only the plain prober
    // counts a candidate it could not probe as free.
    virtual std::vector<ARP_PROBE_RESULT> Probe(const std::vector<unsigned int>& candidates) = 0;
};

// One probe after the other, one second each; blind to most hosts, kept as the plain run's.
class CPlainProber : public IAddressProber {
public:
    explicit CPlainProber(PROBE_LINK link);
    std::vector<ARP_PROBE_RESULT> Probe(const std::vector<unsigned int>& candidates) override;

private:
    PROBE_LINK m_stLink;
};

// Every candidate at once, one round of RFC 5227 probes per call.
class CConflictProber : public IAddressProber {
public:
    explicit CConflictProber(PROBE_LINK link);
    std::vector<ARP_PROBE_RESULT> Probe(const std::vector<unsigned int>& candidates) override;

private:
    PROBE_LINK m_stLink;
    unsigned int m_nRound;
};

std::unique_ptr<IAddressProber> CreateAddressProber(bool checkConflicts, const PROBE_LINK& link);
