#pragma once

#include "ipconfig/AddressProber.h"

#include <cstdint>
#include <map>
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

// One address the planner gave a device (or, in a dry run, would have given it).
struct IP_ASSIGNMENT {
    std::string strDevID;
    unsigned int nOldIP;
    unsigned int nNewIP;
};

// False for 0 and for the link-local block 169.254.0.0/16.
bool IsIPValid(unsigned int ip);

// Configurator of one interface. The lists of taken addresses span all interfaces of one run.
class CIPConfigAllDevices {
public:
    explicit CIPConfigAllDevices(GenICam::Client::CInterface* itf);
    virtual ~CIPConfigAllDevices();
    CIPConfigAllDevices(const CIPConfigAllDevices&) = delete;
    CIPConfigAllDevices& operator=(const CIPConfigAllDevices&) = delete;

    virtual bool ConfigAllDevices() = 0;

    void MarkDev();
    size_t GetConfigNum();
    bool GetIPList(std::vector<unsigned int>* list);
    bool ConfigDevIP(const IP_CONFIG_SETTING& setting, std::vector<GenICam::Client::CDevice*>& devices,
                     std::vector<unsigned int>& list);
    void RecordIPAssignedToDev(std::vector<unsigned int>& list);

    static void RecordUsedNetCardIP(std::vector<GenICam::Client::CInterface*> interfaces);
    static void RecordUsedDeviceIP(std::vector<GenICam::Client::CDevice*> devices);
    static void Clear();

    // A dry run plans and records every assignment but sends nothing.
    static void SetDryRun(bool dryRun);
    static bool IsDryRun();
    static const std::vector<IP_ASSIGNMENT>& GetAssignments();
    // Conflict probes (every candidate at once) in place of the plain one-by-one probe.
    static void SetCheckConflicts(bool checkConflicts);

    // First free address of a subnet, recorded as taken; the run sequence does not need it.
    bool __GetAvailableNetCardIP(unsigned int ip, unsigned int mask, unsigned int* out);

protected:
    // The seam the candidate search probes through.
    virtual std::unique_ptr<IAddressProber> _CreateProber(const PROBE_LINK& link);

    GenICam::Client::CInterface* m_pInterface;
    std::vector<GenICam::Client::CDevice*> m_vecDevice;
    std::vector<GenICam::Client::CDevice*> m_vecConfigDevice;
    unsigned int m_nNetCardIP;
    unsigned int m_nNetCardMask;
    IP_CONFIG_SETTING m_stIPConfigSetting;

    static std::vector<unsigned int> ms_vecUsedIP;
    static std::vector<std::string> ms_vecConfigDevID;
    static std::vector<IP_ASSIGNMENT> ms_vecAssignment;
    static bool ms_bDryRun;
    static bool ms_bCheckConflicts;
    // Who holds each recorded address, kept for the diagnostics only.
    static std::map<unsigned int, std::string> ms_mapUsedBy;

private:
    bool __IsIPUsed(unsigned int ip);
    bool __ReadProbeLink(PROBE_LINK* link);
    std::vector<unsigned int> __NextCandidates(const std::string& name, uint64_t* next, unsigned int last,
                                               size_t count);
    static void __RecordUsed(unsigned int ip, const std::string& who);
    bool __NeedsNewIP(GenICam::Client::CDevice* device);
    static bool __IsRecorded(unsigned int ip);
    static void __GetCandidateRange(unsigned int ip, unsigned int mask, unsigned int* first, unsigned int* last);
};
