#include "ipconfig/IPConfigAllDevices.h"

#include "common/Diagnostics.h"
#include "common/Exception.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/Interface.h"

#include <algorithm>
#include <cstring>
#include <cstdint>

using GenICam::Client::CAppException;
using GenICam::Client::CDevice;
using GenICam::Client::CInterface;
using GenICam::Client::Helper::Diag;
using GenICam::Client::Helper::IsDiagnostics;

namespace {

const unsigned int kLinkLocalFirst = 0xA9FE0000;
const unsigned int kLinkLocalLast = 0xA9FEFFFF;

} // namespace

std::vector<unsigned int> CIPConfigAllDevices::ms_vecUsedIP;
std::vector<std::string> CIPConfigAllDevices::ms_vecConfigDevID;
std::vector<IP_ASSIGNMENT> CIPConfigAllDevices::ms_vecAssignment;
std::vector<IP_ASSIGNMENT> CIPConfigAllDevices::ms_vecUnassigned;
bool CIPConfigAllDevices::ms_bDryRun = false;
bool CIPConfigAllDevices::ms_bStandard = false;
bool CIPConfigAllDevices::ms_bCheckConflicts = false;
std::map<unsigned int, std::string> CIPConfigAllDevices::ms_mapUsedBy;

const IP_ASSIGNMENT* FindRecord(const std::vector<IP_ASSIGNMENT>& records, const std::string& devID)
{
    for (const IP_ASSIGNMENT& record : records) {
        if (record.strDevID == devID) {
            return &record;
        }
    }
    return nullptr;
}

bool IsIPValid(unsigned int ip)
{
    return ip != 0 && (ip < kLinkLocalFirst || ip > kLinkLocalLast);
}

CIPConfigAllDevices::CIPConfigAllDevices(CInterface* itf)
    : m_pInterface(itf), m_vecDevice(*itf->GetDeviceList()), m_nNetCardIP(0), m_nNetCardMask(0),
      m_stIPConfigSetting()
{
}

CIPConfigAllDevices::~CIPConfigAllDevices() = default;

void CIPConfigAllDevices::MarkDev()
{
    for (CDevice* device : m_vecDevice) {
        const bool selected = __NeedsNewIP(device);
        if (selected) {
            m_vecConfigDevice.push_back(device);
        }
        if (GenICam::Client::Helper::IsDiagnostics()) {
            const char* why = !selected ? "not selected: keeps its address"
                              : device->IsSameSubnetWithIF() ? "selected: its address is taken by an earlier camera"
                                                              : "selected: out of the subnet";
            GenICam::Client::Helper::Diag("%s: camera %s: %s", m_pInterface->GetInterfaceDescription().c_str(),
                                          device->GetStrMac().c_str(), why);
        }
    }
}

// Every address a camera keeps is recorded, so a later camera with the same one is moved.
bool CIPConfigAllDevices::__NeedsNewIP(CDevice* device)
{
    const unsigned int ip = device->GetIntIP();
    const unsigned int mask = device->GetIntSubNetMask();
    if (!IsIPValid(ip)) {
        return true;
    }
    if (!Cipcalc().IsInSameSubnet(m_nNetCardIP, ip, m_nNetCardMask) || mask != m_nNetCardMask) {
        return true;
    }
    const bool taken = __IsRecorded(ip);
    __RecordUsed(ip, IsDiagnostics() ? "camera " + device->GetStrMac() : std::string());
    return taken;
}

size_t CIPConfigAllDevices::GetConfigNum()
{
    return m_vecConfigDevice.size();
}

// Probes as many unrecorded candidates as addresses are still wanted, in rounds, so the free ones
// found are the first free ones in address order whichever prober decides.
bool CIPConfigAllDevices::GetIPList(std::vector<unsigned int>* list)
{
    unsigned int first = 0;
    unsigned int last = 0;
    __GetCandidateRange(m_nNetCardIP, m_nNetCardMask, &first, &last);
    const size_t wanted = GetConfigNum();
    if (wanted == 0) {
        return true;
    }
    PROBE_LINK link;
    if (!__ReadProbeLink(&link)) {
        return false;  // an interface that cannot be read counts every candidate as taken
    }
    std::unique_ptr<IAddressProber> prober = _CreateProber(link);
    // 64-bit so that the walk cannot wrap past the top of the address space.
    uint64_t next = first;
    while (list->size() < wanted) {
        const std::vector<unsigned int> round = __NextCandidates(link.strName, &next, last, wanted - list->size());
        if (round.empty()) {
            Diag("%s: too few free addresses: %zu of %zu found", link.strName.c_str(), list->size(), wanted);
            return false;
        }
        const std::vector<ARP_PROBE_RESULT> verdicts = prober->Probe(round);
        for (size_t i = 0; i < round.size(); ++i) {
            if (verdicts[i].nKind == ARP_PROBE_FAILED) {
                Diag("%s: address search failed: probe for %s not done: %s", link.strName.c_str(),
                     DottedText(round[i]).c_str(), strerror(verdicts[i].nErrno));
                return false;
            }
            if (verdicts[i].nKind == ARP_PROBE_FREE) {
                list->push_back(round[i]);
            }
        }
    }
    return true;
}

std::vector<unsigned int> CIPConfigAllDevices::__NextCandidates(const std::string& name, uint64_t* next,
                                                                unsigned int last, size_t count)
{
    std::vector<unsigned int> round;
    for (; *next <= last && round.size() < count; ++*next) {
        const unsigned int ip = static_cast<unsigned int>(*next);
        if (!__IsRecorded(ip)) {
            round.push_back(ip);
        } else if (IsDiagnostics()) {
            const auto owner = ms_mapUsedBy.find(ip);
            Diag("%s: candidate %s taken by the list: %s", name.c_str(), DottedText(ip).c_str(),
                 owner != ms_mapUsedBy.end() && !owner->second.empty() ? owner->second.c_str() : "recorded");
        }
    }
    return round;
}

bool CIPConfigAllDevices::__ReadProbeLink(PROBE_LINK* link)
{
    try {
        link->strIP = m_pInterface->GetInterfaceStrIP();
        link->strMAC = m_pInterface->GetStrMAC();
        link->strName = m_pInterface->GetInterfaceDescription();
    } catch (CAppException&) {
        return false;
    }
    return true;
}

std::unique_ptr<IAddressProber> CIPConfigAllDevices::_CreateProber(const PROBE_LINK& link)
{
    return CreateAddressProber(ms_bCheckConflicts, link);
}

// From network + 11 to broadcast - 1, the offsets applied to the last byte with its carries.
void CIPConfigAllDevices::__GetCandidateRange(unsigned int ip, unsigned int mask, unsigned int* first,
                                              unsigned int* last)
{
    Cipcalc calc;
    int firstQuad[4] = {0};
    int lastQuad[4] = {0};
    calc.getSubnetRange(ip, calc.calcbits(mask), firstQuad, lastQuad);
    *first = calc.dottted_decial2long(firstQuad);
    *last = calc.dottted_decial2long(lastQuad);
}

bool CIPConfigAllDevices::__IsIPUsed(unsigned int ip)
{
    if (__IsRecorded(ip)) {
        return true;
    }
    PROBE_LINK link;
    return !__ReadProbeLink(&link) || _CreateProber(link)->Probe({ip}).front().nKind != ARP_PROBE_FREE;
}

bool CIPConfigAllDevices::__IsRecorded(unsigned int ip)
{
    return std::find(ms_vecUsedIP.begin(), ms_vecUsedIP.end(), ip) != ms_vecUsedIP.end();
}

bool CIPConfigAllDevices::ConfigDevIP(const IP_CONFIG_SETTING& setting, std::vector<CDevice*>& devices,
                                      std::vector<unsigned int>& list)
{
    bool ok = true;
    size_t next = 0;
    for (CDevice* device : devices) {
        if (device == nullptr) {
            ok = false;
            continue;
        }
        if (next == list.size()) {
            return false;
        }
        const unsigned int ip = list[next++];
        IP_ASSIGNMENT assignment{device->GetDevID(), device->GetIntIP(), ip, IP_OUTCOME_PLANNED, 0, std::string(),
                                 false};
        if (!ms_bDryRun) {
            const bool sent = __SendAddress(device, ip, setting, assignment);
            assignment.nOutcome = sent ? IP_OUTCOME_SENT : IP_OUTCOME_FAILED;
            assignment.nStatus = device->GetForceIPExStatus();
            ok = ok && sent;
        }
        ms_vecAssignment.push_back(assignment);
    }
    return ok;
}

bool CIPConfigAllDevices::__SendAddress(CDevice* device, unsigned int ip, const IP_CONFIG_SETTING& setting,
                                        IP_ASSIGNMENT& assignment)
{
    if (ms_bStandard) {
        Cipcalc calc;
        return device->SetStandardForceIP(ip, calc.iptolong(setting.szSubnetMask), calc.iptolong(setting.szGateway),
                                          assignment.bPersistent, assignment.strError);
    }
    return device->SetForceIPEx(DottedText(ip).c_str(), setting.szSubnetMask, setting.szGateway, "",
                                setting.nForceIPExValue, assignment.strError);
}

void CIPConfigAllDevices::RecordIPAssignedToDev(std::vector<unsigned int>& list)
{
    for (unsigned int ip : list) {
        __RecordUsed(ip, IsDiagnostics() ? "chosen for a camera of " + m_pInterface->GetInterfaceDescription()
                                         : std::string());
    }
}

void CIPConfigAllDevices::__RecordUsed(unsigned int ip, const std::string& who)
{
    ms_vecUsedIP.push_back(ip);
    ms_mapUsedBy.emplace(ip, who);
}

void CIPConfigAllDevices::RecordNoAddress(const std::vector<CDevice*>& devices)
{
    for (CDevice* device : devices) {
        if (device != nullptr) {
            ms_vecUnassigned.push_back(
                IP_ASSIGNMENT{device->GetDevID(), device->GetIntIP(), 0, IP_OUTCOME_NO_ADDRESS, 0, std::string(), false});
        }
    }
}

void CIPConfigAllDevices::RecordUsedNetCardIP(std::vector<CInterface*> interfaces)
{
    for (CInterface* itf : interfaces) {
        unsigned int ip = 0;
        try {
            ip = itf->GetInterfaceIP();
        } catch (CAppException&) {
            continue;
        }
        if (IsIPValid(ip)) {
            __RecordUsed(ip, IsDiagnostics() ? "interface " + itf->GetInterfaceDescription() : std::string());
        }
    }
}

void CIPConfigAllDevices::RecordUsedDeviceIP(std::vector<CDevice*> devices)
{
    for (CDevice* device : devices) {
        const unsigned int ip = device->GetIntIP();
        if (IsIPValid(ip)) {
            __RecordUsed(ip, IsDiagnostics() ? "camera " + device->GetStrMac() : std::string());
        }
    }
}

void CIPConfigAllDevices::Clear()
{
    ms_vecUsedIP.clear();
    ms_mapUsedBy.clear();
    ms_vecConfigDevID.clear();
    ms_vecAssignment.clear();
    ms_vecUnassigned.clear();
}

void CIPConfigAllDevices::SetDryRun(bool dryRun)
{
    ms_bDryRun = dryRun;
}

void CIPConfigAllDevices::SetCheckConflicts(bool checkConflicts)
{
    ms_bCheckConflicts = checkConflicts;
}

bool CIPConfigAllDevices::IsDryRun()
{
    return ms_bDryRun;
}

const std::vector<IP_ASSIGNMENT>& CIPConfigAllDevices::GetAssignments()
{
    return ms_vecAssignment;
}

const std::vector<IP_ASSIGNMENT>& CIPConfigAllDevices::GetUnassigned()
{
    return ms_vecUnassigned;
}

void CIPConfigAllDevices::SetStandard(bool standard)
{
    ms_bStandard = standard;
}

bool CIPConfigAllDevices::IsStandard()
{
    return ms_bStandard;
}

bool CIPConfigAllDevices::__GetAvailableNetCardIP(unsigned int ip, unsigned int mask, unsigned int* out)
{
    unsigned int first = 0;
    unsigned int last = 0;
    __GetCandidateRange(ip, mask, &first, &last);
    for (uint64_t candidate = first; candidate <= last; ++candidate) {
        if (!__IsIPUsed(static_cast<unsigned int>(candidate))) {
            *out = static_cast<unsigned int>(candidate);
            __RecordUsed(*out, std::string());
            return true;
        }
    }
    return false;
}
