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

// What became of a device the planner selected.
enum IP_OUTCOME {
    IP_OUTCOME_PLANNED = 0,    // dry run: nothing sent
    IP_OUTCOME_SENT = 1,       // the force-IP was acknowledged
    IP_OUTCOME_FAILED = 2,     // the force-IP failed: see nStatus and strError
    IP_OUTCOME_NO_ADDRESS = 3, // too few free addresses for its interface: nothing sent
};

// One address the planner gave a device (or, in a dry run, would have given it), and what came of it.
struct IP_ASSIGNMENT {
    std::string strDevID;
    unsigned int nOldIP;
    unsigned int nNewIP;  // 0 when the device got none
    IP_OUTCOME nOutcome;
    uint16_t nStatus;      // the device's refusing GVCP status; 0 when it sent none
    std::string strError;  // the force-IP's error text
    bool bPersistent;      // the standard path stored the address in the device
};

// The record of the device with this ID in `records`; null when there is none.
const IP_ASSIGNMENT* FindRecord(const std::vector<IP_ASSIGNMENT>& records, const std::string& devID);

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
    void RecordNoAddress(const std::vector<GenICam::Client::CDevice*>& devices);

    static void RecordUsedNetCardIP(std::vector<GenICam::Client::CInterface*> interfaces);
    static void RecordUsedDeviceIP(std::vector<GenICam::Client::CDevice*> devices);
    static void Clear();

    // A dry run plans and records every assignment but sends nothing.
    static void SetDryRun(bool dryRun);
    static bool IsDryRun();
    static const std::vector<IP_ASSIGNMENT>& GetAssignments();
    // Devices selected on an interface without enough free addresses, so given none.
    static const std::vector<IP_ASSIGNMENT>& GetUnassigned();

    // Standard GigE Vision commands only, in place of the vendor's 0x9000.
    static void SetStandard(bool standard);
    static bool IsStandard();
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
    static std::vector<IP_ASSIGNMENT> ms_vecUnassigned;
    static bool ms_bDryRun;
    static bool ms_bStandard;
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
    bool __SendAddress(GenICam::Client::CDevice* device, unsigned int ip, const IP_CONFIG_SETTING& setting,
                       IP_ASSIGNMENT& assignment);
    static bool __IsRecorded(unsigned int ip);
    static void __GetCandidateRange(unsigned int ip, unsigned int mask, unsigned int* first, unsigned int* last);
};
