#pragma once

#include "ipconfig/AddressProber.h"
#include "ipconfig/ConfigPass.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {
class CInterface;
class CDevice;
} // namespace Client
} // namespace GenICam

// How one interface can take part in the configuration.
enum IPCONFIG_ENVIRONMENT_TYPE {
    IPCONFIG_NETCARD_IP_VALID = 1,
    IPCONFIG_NETCARD_IP_INVALID = 2,
};

// What every force-IP of one interface carries besides the address.
struct IP_CONFIG_SETTING {
    char szSubnetMask[16];
    char szGateway[16];
    unsigned int nForceIPExValue;
};

// Configurator of one interface. The lists of taken addresses span all interfaces of one pass.
class CIPConfigAllDevices {
public:
    CIPConfigAllDevices(GenICam::Client::CInterface* itf, CConfigPass* pass);
    virtual ~CIPConfigAllDevices();
    CIPConfigAllDevices(const CIPConfigAllDevices&) = delete;
    CIPConfigAllDevices& operator=(const CIPConfigAllDevices&) = delete;

    // The whole job for one interface: PlanAddresses(), then SendPlanned().
    virtual bool ConfigAllDevices() = 0;
    // Reads the interface, selects the devices and finds their addresses; sends nothing.
    virtual bool PlanAddresses() = 0;
    // Sends (or, in a dry run, records) the addresses PlanAddresses() found.
    bool SendPlanned();

    void MarkDev();
    size_t GetConfigNum();
    bool GetIPList(std::vector<unsigned int>* list);
    bool ConfigDevIP(const IP_CONFIG_SETTING& setting, std::vector<GenICam::Client::CDevice*>& devices,
                     std::vector<unsigned int>& list);
    void RecordIPAssignedToDev(std::vector<unsigned int>& list);
    void RecordNoAddress(const std::vector<GenICam::Client::CDevice*>& devices);
    // The interface's address and mask as it holds them now; false when they cannot be read.
    bool ReadSubnet(unsigned int* ip, unsigned int* mask) const;

    static void RecordUsedNetCardIP(std::vector<GenICam::Client::CInterface*> interfaces, CConfigPass& pass);
    static void RecordUsedDeviceIP(std::vector<GenICam::Client::CDevice*> devices, CConfigPass& pass);
    static void RecordUsedAddresses(const std::vector<unsigned int>& addresses, CConfigPass& pass);
    static void Clear();

    // First free address of a subnet, recorded as taken; the run sequence does not need it.
    bool __GetAvailableNetCardIP(unsigned int ip, unsigned int mask, unsigned int* out);

protected:
    // The seam the candidate search probes through.
    virtual std::unique_ptr<IAddressProber> _CreateProber(const PROBE_LINK& link);

    GenICam::Client::CInterface* m_pInterface;
    CConfigPass* m_pPass;
    std::vector<GenICam::Client::CDevice*> m_vecDevice;
    std::vector<GenICam::Client::CDevice*> m_vecConfigDevice;
    std::vector<unsigned int> m_vecPlannedIP;
    unsigned int m_nNetCardIP;
    unsigned int m_nNetCardMask;
    IP_CONFIG_SETTING m_stIPConfigSetting;

    static std::vector<unsigned int> ms_vecUsedIP;
    static std::vector<std::string> ms_vecConfigDevID;

    // The address plan's reason for a device this configurator sends an address; empty by default.
    virtual std::string _PlanNote(GenICam::Client::CDevice* device) const;
    bool __ReadProbeLink(PROBE_LINK* link);
    bool __NeedsNewIP(GenICam::Client::CDevice* device);
    bool __IsRecorded(unsigned int ip);
    static void __GetCandidateRange(unsigned int ip, unsigned int mask, unsigned int* first, unsigned int* last);

private:
    bool __IsIPUsed(unsigned int ip);
    std::vector<unsigned int> __NextCandidates(const std::string& name, uint64_t* next, unsigned int last,
                                               size_t count);
    static void __RecordUsed(unsigned int ip, const std::string& who, CConfigPass& pass);
    bool __SendAddress(GenICam::Client::CDevice* device, unsigned int ip, const IP_CONFIG_SETTING& setting,
                       CAMERA_OUTCOME& outcome);
};

// Runs PlanAddresses() of every configurator: those whose subnets overlap one after another in the
// given order, the others at the same time. One result per configurator.
std::vector<bool> PlanBySubnet(const std::vector<CIPConfigAllDevices*>& configurators);
