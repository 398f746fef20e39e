#pragma once

#include "ipconfig/IPConfigNetCardIPValid.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

// The pool's addresses in order, those `skip` refuses left out; the `deferred` ones (remembered for
// absent cameras) only after the pool is used up.
class CPoolWalk {
public:
    CPoolWalk(std::vector<ADDRESS_RANGE> pool, std::vector<unsigned int> deferred,
              std::function<bool(unsigned int)> skip);
    // Up to `count` more candidates; empty when none are left.
    std::vector<unsigned int> Next(size_t count);

private:
    std::vector<ADDRESS_RANGE> pool;
    std::vector<unsigned int> deferred;
    std::function<bool(unsigned int)> skip;
    size_t range = 0;
    uint64_t next = 0;  // 64-bit: a range ending at 255.255.255.255 must not wrap
    size_t deferredAt = 0;
};

// Configurator of an interface when a configuration file or the watch's memory says where cameras go:
// reserved cameras to their addresses, the others to the interface's pool, remembered ones first.
class CIPConfigPlanned : public CIPConfigNetCardIPValid {
public:
    CIPConfigPlanned(GenICam::Client::CInterface* itf, CConfigPass* pass);

    bool PlanAddresses() override;

protected:
    std::string _PlanNote(GenICam::Client::CDevice* device) const override;

private:
    struct RESERVED_MOVE {
        GenICam::Client::CDevice* pDevice;
        unsigned int nIP;
    };

    bool PlanPool(const std::vector<GenICam::Client::CDevice*>& devices, IAddressProber& prober,
                  std::vector<unsigned int>* list);
    void PlanReserved(const std::vector<RESERVED_MOVE>& moves, IAddressProber& prober);
    void KeepWithNote(GenICam::Client::CDevice* device, const std::string& note);
    bool Skipped(unsigned int ip);
    std::string HolderOf(unsigned int ip, const std::string& self) const;

    std::string name;
    std::vector<ADDRESS_RANGE> pool;
    std::vector<ADDRESS_RANGE> exclude;
    std::vector<unsigned int> chosen;   // given to a camera in this plan, not yet recorded
    std::vector<unsigned int> leaving;  // addresses whose holders this plan moves away
    std::map<GenICam::Client::CDevice*, std::string> notes;
};
