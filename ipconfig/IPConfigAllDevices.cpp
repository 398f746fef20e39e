#include "ipconfig/IPConfigAllDevices.h"

#include "common/Diagnostics.h"
#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/Interface.h"

#include <algorithm>
#include <cstring>
#include <cstdint>
#include <exception>
#include <thread>

using GenICam::Client::CAppException;
using GenICam::Client::CDevice;
using GenICam::Client::CInterface;
using GenICam::Client::FORCEIP_OUTCOME;
using GenICam::Client::GVCP_RESULT;
using GenICam::Client::Helper::Diag;
using GenICam::Client::Helper::IsDiagnostics;

namespace {

// Two subnets overlap when each one's network, cut to the shorter mask, is the same.
bool Overlap(unsigned int ipA, unsigned int maskA, unsigned int ipB, unsigned int maskB)
{
    const unsigned int common = maskA & maskB;
    return (ipA & common) == (ipB & common);
}

} // namespace

std::vector<unsigned int> CIPConfigAllDevices::ms_vecUsedIP;
std::vector<std::string> CIPConfigAllDevices::ms_vecConfigDevID;

CIPConfigAllDevices::CIPConfigAllDevices(CInterface* itf, CConfigPass* pass)
    : m_pInterface(itf), m_pPass(pass), m_vecDevice(*itf->GetDeviceList()), m_nNetCardIP(0), m_nNetCardMask(0),
      m_stIPConfigSetting()
{
}

CIPConfigAllDevices::~CIPConfigAllDevices() = default;

bool CIPConfigAllDevices::ReadSubnet(unsigned int* ip, unsigned int* mask) const
{
    try {
        *ip = m_pInterface->GetInterfaceIP();
        *mask = m_pInterface->GetInterfaceSubnetMask();
    } catch (CAppException&) {
        return false;
    }
    return true;
}

bool CIPConfigAllDevices::SendPlanned()
{
    const bool ok = ConfigDevIP(m_stIPConfigSetting, m_vecConfigDevice, m_vecPlannedIP);
    for (CDevice* device : m_vecConfigDevice) {
        ms_vecConfigDevID.push_back(device->GetDevID());
    }
    return ok;
}


void CIPConfigAllDevices::MarkDev()
{
    for (CDevice* device : m_vecDevice) {
        const bool selected = __NeedsNewIP(device) && m_pPass->MaySelect(device->GetStrMac());
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
    const std::string who = IsDiagnostics() ? "camera " + device->GetStrMac() : std::string();
    std::unique_lock<std::mutex> lock = m_pPass->LockUsed();
    const bool taken = std::find(ms_vecUsedIP.begin(), ms_vecUsedIP.end(), ip) != ms_vecUsedIP.end();
    ms_vecUsedIP.push_back(ip);
    m_pPass->NoteHolder(ip, who);
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
            std::string owner;
            {
                std::unique_lock<std::mutex> lock = m_pPass->LockUsed();
                owner = m_pPass->GetHolder(ip);
            }
            Diag("%s: candidate %s taken by the list: %s", name.c_str(), DottedText(ip).c_str(),
                 owner.empty() ? "recorded" : owner.c_str());
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
    return CreateAddressProber(m_pPass->GetOptions().bCheckConflicts, link);
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
    std::unique_lock<std::mutex> lock = m_pPass->LockUsed();
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
        CAMERA_OUTCOME outcome;
        outcome.strDevID = device->GetDevID();
        outcome.nAction = CAMERA_PLANNED;
        outcome.nOldIP = device->GetIntIP();
        outcome.nNewIP = list[next++];
        outcome.strPlanNote = _PlanNote(device);
        if (!m_pPass->GetOptions().bDryRun) {
            const bool sent = __SendAddress(device, outcome.nNewIP, setting, outcome);
            outcome.nAction = sent ? CAMERA_SENT : CAMERA_FAILED;
            ok = ok && sent;
        }
        m_pPass->RecordOutcome(outcome);
    }
    return ok;
}

bool CIPConfigAllDevices::__SendAddress(CDevice* device, unsigned int ip, const IP_CONFIG_SETTING& setting,
                                        CAMERA_OUTCOME& outcome)
{
    std::string error;
    bool persistent = false;
    bool sent = false;
    if (m_pPass->GetOptions().bStandard) {
        Cipcalc calc;
        sent = device->SetStandardForceIP(ip, calc.iptolong(setting.szSubnetMask), calc.iptolong(setting.szGateway),
                                          persistent, error);
    } else {
        sent = device->SetForceIPEx(DottedText(ip).c_str(), setting.szSubnetMask, setting.szGateway, "",
                                    setting.nForceIPExValue, error);
    }
    outcome.stForceIP = device->GetForceIPOutcome();
    return sent;
}

std::string CIPConfigAllDevices::_PlanNote(CDevice*) const
{
    return std::string();
}

void CIPConfigAllDevices::RecordIPAssignedToDev(std::vector<unsigned int>& list)
{
    for (unsigned int ip : list) {
        __RecordUsed(ip,
                     IsDiagnostics() ? "chosen for a camera of " + m_pInterface->GetInterfaceDescription() : std::string(),
                     *m_pPass);
    }
}

void CIPConfigAllDevices::__RecordUsed(unsigned int ip, const std::string& who, CConfigPass& pass)
{
    std::unique_lock<std::mutex> lock = pass.LockUsed();
    ms_vecUsedIP.push_back(ip);
    pass.NoteHolder(ip, who);
}

void CIPConfigAllDevices::RecordNoAddress(const std::vector<CDevice*>& devices)
{
    for (CDevice* device : devices) {
        if (device != nullptr) {
            CAMERA_OUTCOME outcome;
            outcome.strDevID = device->GetDevID();
            outcome.nAction = CAMERA_NO_ADDRESS;
            outcome.nOldIP = device->GetIntIP();
            m_pPass->RecordOutcome(outcome);
        }
    }
}

void CIPConfigAllDevices::RecordUsedAddresses(const std::vector<unsigned int>& addresses, CConfigPass& pass)
{
    for (unsigned int ip : addresses) {
        __RecordUsed(ip, IsDiagnostics() ? "a camera seen before" : std::string(), pass);
    }
}

void CIPConfigAllDevices::RecordUsedNetCardIP(std::vector<CInterface*> interfaces, CConfigPass& pass)
{
    for (CInterface* itf : interfaces) {
        unsigned int ip = 0;
        try {
            ip = itf->GetInterfaceIP();
        } catch (CAppException&) {
            continue;
        }
        if (IsIPValid(ip)) {
            __RecordUsed(ip, IsDiagnostics() ? "interface " + itf->GetInterfaceDescription() : std::string(), pass);
        }
    }
}

void CIPConfigAllDevices::RecordUsedDeviceIP(std::vector<CDevice*> devices, CConfigPass& pass)
{
    for (CDevice* device : devices) {
        const unsigned int ip = device->GetIntIP();
        if (IsIPValid(ip)) {
            __RecordUsed(ip, IsDiagnostics() ? "camera " + device->GetStrMac() : std::string(), pass);
        }
    }
}

void CIPConfigAllDevices::Clear()
{
    ms_vecUsedIP.clear();
    ms_vecConfigDevID.clear();
}

bool CIPConfigAllDevices::__GetAvailableNetCardIP(unsigned int ip, unsigned int mask, unsigned int* out)
{
    unsigned int first = 0;
    unsigned int last = 0;
    __GetCandidateRange(ip, mask, &first, &last);
    for (uint64_t candidate = first; candidate <= last; ++candidate) {
        if (!__IsIPUsed(static_cast<unsigned int>(candidate))) {
            *out = static_cast<unsigned int>(candidate);
            __RecordUsed(*out, std::string(), *m_pPass);
            return true;
        }
    }
    return false;
}

// Subnets that overlap share candidates, so their searches keep their order in one chain.
std::vector<bool> PlanBySubnet(const std::vector<CIPConfigAllDevices*>& configurators)
{
    struct LINK {
        unsigned int nIP = 0;
        unsigned int nMask = 0;
        bool bRead = false;
    };
    std::vector<LINK> links(configurators.size());
    std::vector<std::vector<size_t>> chains;
    for (size_t i = 0; i < configurators.size(); ++i) {
        links[i].bRead = configurators[i]->ReadSubnet(&links[i].nIP, &links[i].nMask);
        auto joins = [&](const std::vector<size_t>& chain) {
            return links[i].bRead && std::any_of(chain.begin(), chain.end(), [&](size_t j) {
                       return links[j].bRead && Overlap(links[i].nIP, links[i].nMask, links[j].nIP, links[j].nMask);
                   });
        };
        auto chain = std::find_if(chains.begin(), chains.end(), joins);
        if (chain == chains.end()) {
            chains.push_back({i});
        } else {
            chain->push_back(i);
        }
    }
    // vector<bool> packs its bits: one char per result keeps the threads' writes apart.
    std::vector<char> planned(configurators.size(), 0);
    std::vector<std::exception_ptr> errors(chains.size());
    std::vector<std::thread> threads;
    for (size_t c = 0; c < chains.size(); ++c) {
        threads.emplace_back([&, c] {
            try {
                for (size_t i : chains[c]) {
                    planned[i] = configurators[i]->PlanAddresses() ? 1 : 0;
                }
            } catch (...) {
                errors[c] = std::current_exception();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::exception_ptr& error : errors) {
        if (error) {
            std::rethrow_exception(error);
        }
    }
    return std::vector<bool>(planned.begin(), planned.end());
}
