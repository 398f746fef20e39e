#include "ipconfig/IPConfigAllDevices.h"

#include "common/Diagnostics.h"
#include "common/Exception.h"
#include "common/ipcalc.h"
#include "device/ARP.h"
#include "device/Device.h"
#include "device/Interface.h"

#include <algorithm>
#include <cstdint>

using GenICam::Client::CAppException;
using GenICam::Client::CDevice;
using GenICam::Client::CInterface;

namespace {

const unsigned int kLinkLocalFirst = 0xA9FE0000;
const unsigned int kLinkLocalLast = 0xA9FEFFFF;

} // namespace

std::vector<unsigned int> CIPConfigAllDevices::ms_vecUsedIP;
std::vector<std::string> CIPConfigAllDevices::ms_vecConfigDevID;
std::vector<IP_ASSIGNMENT> CIPConfigAllDevices::ms_vecAssignment;
bool CIPConfigAllDevices::ms_bDryRun = false;

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
    ms_vecUsedIP.push_back(ip);
    return taken;
}

size_t CIPConfigAllDevices::GetConfigNum()
{
    return m_vecConfigDevice.size();
}

bool CIPConfigAllDevices::GetIPList(std::vector<unsigned int>* list)
{
    unsigned int first = 0;
    unsigned int last = 0;
    __GetCandidateRange(m_nNetCardIP, m_nNetCardMask, &first, &last);
    const size_t wanted = GetConfigNum();
    if (wanted == 0) {
        return true;
    }
    // 64-bit so that the walk cannot wrap past the top of the address space.
    for (uint64_t ip = first; ip <= last; ++ip) {
        if (!__IsIPUsed(static_cast<unsigned int>(ip))) {
            list->push_back(static_cast<unsigned int>(ip));
            if (list->size() == wanted) {
                return true;
            }
        }
    }
    return false;
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
    try {
        const std::string localIP = m_pInterface->GetInterfaceStrIP();
        const std::string localMAC = m_pInterface->GetStrMAC();
        const std::string name = m_pInterface->GetInterfaceDescription();
        CARP arp;
        return arp.DetectIP(localIP.c_str(), DottedText(ip).c_str(), localMAC.c_str(), name.c_str());
    } catch (CAppException&) {
        return true;
    }
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
        ms_vecAssignment.push_back(IP_ASSIGNMENT{device->GetDevID(), device->GetIntIP(), ip});
        std::string error;
        const bool sent = ms_bDryRun || device->SetForceIPEx(DottedText(ip).c_str(), setting.szSubnetMask,
                                                             setting.szGateway, "", setting.nForceIPExValue, error);
        ok = ok && sent;
    }
    return ok;
}

void CIPConfigAllDevices::RecordIPAssignedToDev(std::vector<unsigned int>& list)
{
    ms_vecUsedIP.insert(ms_vecUsedIP.end(), list.begin(), list.end());
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
            ms_vecUsedIP.push_back(ip);
        }
    }
}

void CIPConfigAllDevices::RecordUsedDeviceIP(std::vector<CDevice*> devices)
{
    for (CDevice* device : devices) {
        const unsigned int ip = device->GetIntIP();
        if (IsIPValid(ip)) {
            ms_vecUsedIP.push_back(ip);
        }
    }
}

void CIPConfigAllDevices::Clear()
{
    ms_vecUsedIP.clear();
    ms_vecConfigDevID.clear();
    ms_vecAssignment.clear();
}

void CIPConfigAllDevices::SetDryRun(bool dryRun)
{
    ms_bDryRun = dryRun;
}

bool CIPConfigAllDevices::IsDryRun()
{
    return ms_bDryRun;
}

const std::vector<IP_ASSIGNMENT>& CIPConfigAllDevices::GetAssignments()
{
    return ms_vecAssignment;
}

bool CIPConfigAllDevices::__GetAvailableNetCardIP(unsigned int ip, unsigned int mask, unsigned int* out)
{
    unsigned int first = 0;
    unsigned int last = 0;
    __GetCandidateRange(ip, mask, &first, &last);
    for (uint64_t candidate = first; candidate <= last; ++candidate) {
        if (!__IsIPUsed(static_cast<unsigned int>(candidate))) {
            *out = static_cast<unsigned int>(candidate);
            ms_vecUsedIP.push_back(*out);
            return true;
        }
    }
    return false;
}
