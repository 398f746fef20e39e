#include "device/Interface.h"

#include "common/Diagnostics.h"
#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/TL.h"
#include "gvcp/DeviceDiscovery.h"
#include "gvcp/DeviceInfo.h"
#include "gvcp/GVCPCtrlPort.h"

#include <algorithm>
#include <memory>
#include <new>

namespace GenICam {
namespace Client {

namespace {

// The per-interface discovery always collects this long, whatever the manager's time-out.
const unsigned long DISCOVERY_COLLECT_MS = 500;

typedef std::vector<boost::shared_ptr<CDeviceInfo>> DeviceInfoList;

const char* AccessStatusText(int status)
{
    switch (status) {
    case DEVICE_ACCESS_STATUS_READWRITE:
        return "read/write";
    case DEVICE_ACCESS_STATUS_READONLY:
        return "read-only";
    case DEVICE_ACCESS_STATUS_NOACCESS:
        return "no access";
    case DEVICE_ACCESS_STATUS_BUSY:
        return "busy (status 0xC000)";
    default:
        return "unknown";
    }
}

void DiagCamera(const std::string& itf, CDeviceInfo& record, bool inSubnet, int status)
{
    if (!Helper::IsDiagnostics()) {
        return;
    }
    const std::string where = DottedText(record.GetIntIP()) + "/" + DottedText(record.GetIntSubnetMask());
    if (inSubnet) {
        Helper::Diag("%s: camera %s: %s %s, in the subnet, access status %d (%s)", itf.c_str(),
                     record.GetStrMAC().c_str(), record.GetModelName().c_str(), where.c_str(), status,
                     AccessStatusText(status));
    } else {
        Helper::Diag("%s: camera %s: %s %s, out of the subnet (address or mask), access status not read",
                     itf.c_str(), record.GetStrMAC().c_str(), record.GetModelName().c_str(), where.c_str());
    }
}

// Returns a control port to the factory also when its read throws.
struct CtrlPortRelease {
    void operator()(CGVCPCtrlPort* port) const { CInstanceFactory::DestoryGVCPCtrlPortIntstance(port); }
};

// Returns a discovery driver to the factory under the interface's discovery lock, also on a throw.
class DiscoveryRelease {
public:
    explicit DiscoveryRelease(boost::recursive_mutex& mutex) : m_mutex(&mutex) {}
    void operator()(CDeviceDiscovery* discovery) const
    {
        boost::unique_lock<boost::recursive_mutex> lock(*m_mutex);
        CInstanceFactory::DestoryDeviceDiscoveryIntstance(discovery);
    }

private:
    boost::recursive_mutex* m_mutex;
};

} // namespace

CInterface::CInterface(boost::shared_ptr<CInterfaceInfo> info, CTL* tl)
    : m_pInterfaceInfo(info), m_pTL(tl), m_hUpdateThread(0)
{
}

CInterface::~CInterface()
{
    try {
        for (CDevice* device : m_vecDevice) {
            delete device;
        }
        m_vecDevice.clear();
        m_vecDeviceInfo.clear();
        KillUpdateThread();
    } catch (...) {
    }
}

bool CInterface::IsMe(const std::string& id)
{
    return m_pInterfaceInfo->IsMyID(id);
}

void CInterface::GetNumDevices(unsigned int* count)
{
    boost::unique_lock<boost::recursive_mutex> lock(m_DeviceInfoListMutex);
    if (count == nullptr) {
        APP_THROW(GC_ERR_INVALID_PARAMETER, "Invalid parameter.");
    }
    *count = static_cast<unsigned int>(m_vecDeviceInfo.size());
}

void CInterface::GetDeviceID(unsigned int index, std::string& id)
{
    boost::unique_lock<boost::recursive_mutex> lock(m_DeviceInfoListMutex);
    if (index >= m_vecDeviceInfo.size()) {
        APP_THROW(GC_ERR_INVALID_PARAMETER, Helper::MsgComposer(" Invalid Device Index %d", index));
    }
    id = m_vecDeviceInfo[index]->GetID();
}

void CInterface::GetInfo(int id, int* type, void* buffer, unsigned long* size)
{
    m_pInterfaceInfo->GetInfo(id, type, buffer, size);
}

void CInterface::UpdateDeviceList(bool* changed, unsigned long timeout)
{
    const unsigned int address = m_pInterfaceInfo->GetIntIP(0);
    const std::string description = m_pInterfaceInfo->GetStrDescription();

    DeviceInfoList records;
    if (address != 0) {
        std::unique_ptr<CDeviceDiscovery, DiscoveryRelease> discovery(
            CInstanceFactory::CreateDeviceDiscoveryIntstance(address, description), DiscoveryRelease(m_DiscoveryMutex));
        if (discovery) {
            { boost::unique_lock<boost::recursive_mutex> waitForRelease(m_DiscoveryMutex); }
            discovery->SendDiscoveryCmd();
            discovery->GetDeviceInfoList(records, timeout);
        }
    }

    __GetAllDeviceStatus(records);

    const bool isChanged = __IsDeviceInfoListChange(records);
    if (isChanged) {
        std::sort(records.begin(), records.end(), DeviceInfoPtrOps());
        boost::unique_lock<boost::recursive_mutex> infoLock(m_DeviceInfoListMutex);
        m_vecDeviceInfo = records;
        m_mapDeviceInfo.clear();
        for (const boost::shared_ptr<CDeviceInfo>& record : records) {
            m_mapDeviceInfo.emplace(record->GetID(), record);
        }
        boost::unique_lock<boost::recursive_mutex> deviceLock(m_DeviceListMutex);
        __UpdateDeviceListInfo();
    }

    if (changed != nullptr) {
        *changed = isChanged;
    }
}

void CInterface::StartUpdateThread()
{
    KillUpdateThread();
    if (pthread_create(&m_hUpdateThread, nullptr, &CInterface::OnThreadUpdateDeviceList, this) != 0) {
        m_hUpdateThread = 0;
        APP_THROW(GC_ERR_ERROR, "Unexpected error");
    }
}

void* CInterface::OnThreadUpdateDeviceList(void* self)
{
    try {
        bool changed = false;
        static_cast<CInterface*>(self)->UpdateDeviceList(&changed, DISCOVERY_COLLECT_MS);
    } catch (...) {
    }
    pthread_exit(nullptr);
}

void CInterface::KillUpdateThread()
{
    if (m_hUpdateThread != 0) {
        pthread_join(m_hUpdateThread, nullptr);
        m_hUpdateThread = 0;
    }
}

pthread_t CInterface::GetThreadHandle()
{
    return m_hUpdateThread;
}

void CInterface::ClearThreadHandle()
{
    m_hUpdateThread = 0;
}

bool CInterface::IsMyInfo(const boost::shared_ptr<CInterfaceInfo>& info) const
{
    return m_pInterfaceInfo->IsSameInterface(*info);
}

void CInterface::SetInterfaceInfo(const boost::shared_ptr<CInterfaceInfo>& info)
{
    if (!(*m_pInterfaceInfo == *info)) {
        *m_pInterfaceInfo = *info;
    }
}

std::vector<CDevice*>* CInterface::GetDeviceList()
{
    return &m_vecDevice;
}

bool CInterface::GetDevObjByID(std::string id, CDevice** device)
{
    const std::vector<CDevice*> devices = m_vecDevice;
    for (CDevice* candidate : devices) {
        if (candidate->IsMe(id)) {
            *device = candidate;
            return true;
        }
    }
    return false;
}

bool CInterface::GetDevObjByID(std::string id, const CDevice** device)
{
    CDevice* found = nullptr;
    if (!GetDevObjByID(id, &found)) {
        return false;
    }
    *device = found;
    return true;
}

bool CInterface::IsExitSameIP(char* ip)
{
    const std::vector<CDevice*> devices = m_vecDevice;
    const std::string text(ip);
    return std::any_of(devices.begin(), devices.end(),
                       [&text](CDevice* device) { return device->IsMyIP(text); });
}

void CInterface::ReleaseDevice(const std::string& id)
{
    boost::unique_lock<boost::recursive_mutex> lock(m_DeviceListMutex);
    auto device = std::find_if(m_vecDevice.begin(), m_vecDevice.end(),
                               [&id](CDevice* candidate) { return candidate->IsMe(id); });
    if (device != m_vecDevice.end()) {
        m_vecDevice.erase(device);
    }
    auto record = std::find_if(m_vecDeviceInfo.begin(), m_vecDeviceInfo.end(),
                               [&id](const boost::shared_ptr<CDeviceInfo>& info) { return info->IsMyID(id); });
    if (record != m_vecDeviceInfo.end()) {
        m_mapDeviceInfo.erase((*record)->GetID());
        m_vecDeviceInfo.erase(record);
    }
}

unsigned int CInterface::GetInterfaceIP()
{
    return m_pInterfaceInfo->GetIntIP(0);
}

unsigned int CInterface::GetInterfaceSubnetMask()
{
    return m_pInterfaceInfo->GetIntSubnetMask(0);
}

std::string CInterface::GetInterfaceStrIP()
{
    return m_pInterfaceInfo->GetStrIP(0);
}

std::string CInterface::GetInterfaceStrSubNet()
{
    return m_pInterfaceInfo->GetStrSubnetMask(0);
}

std::string CInterface::GetInterfaceStrGateWay()
{
    return m_pInterfaceInfo->GetStrGateway(0);
}

std::string CInterface::GetInterfaceDescription()
{
    return m_pInterfaceInfo->GetStrDescription();
}

void CInterface::GetHexMAC(unsigned char* mac)
{
    m_pInterfaceInfo->GetHexMAC(mac);
}

std::string CInterface::GetStrMAC()
{
    return m_pInterfaceInfo->GetStrMAC();
}

std::string CInterface::GetDisplayName() const
{
    return m_pInterfaceInfo->GetStrDescription() + "(" + m_pInterfaceInfo->GetDisplayName() + ")";
}

// Devices are rebuilt, never patched: every earlier CDevice* becomes invalid.
void CInterface::__UpdateDeviceListInfo()
{
    for (CDevice* device : m_vecDevice) {
        delete device;
    }
    m_vecDevice.clear();
    for (const boost::shared_ptr<CDeviceInfo>& record : m_vecDeviceInfo) {
        CDevice* device = new (std::nothrow) CDevice(m_pTL, this, record);
        if (device != nullptr) {
            m_vecDevice.push_back(device);
        }
    }
}

bool CInterface::__FindDeviceInfo(CDevice* device)
{
    return std::any_of(m_vecDeviceInfo.begin(), m_vecDeviceInfo.end(),
                       [device](const boost::shared_ptr<CDeviceInfo>& record) { return device->IsMe(record->GetID()); });
}

bool CInterface::__IsDeviceInfoListChange(DeviceInfoList& records)
{
    boost::unique_lock<boost::recursive_mutex> lock(m_DeviceInfoListMutex);
    if (records.size() != m_vecDeviceInfo.size()) {
        return true;
    }
    for (const boost::shared_ptr<CDeviceInfo>& record : records) {
        if (!__IsDevcieInfoKnown(record)) {
            return true;
        }
    }
    return false;
}

bool CInterface::__IsDevcieInfoKnown(const boost::shared_ptr<CDeviceInfo>& record)
{
    const auto known = m_mapDeviceInfo.find(record->GetID());
    return known != m_mapDeviceInfo.end() && *record == *known->second;
}

// Only cameras that already fit the subnet can answer a control-port read.
void CInterface::__GetAllDeviceStatus(DeviceInfoList& records)
{
    const unsigned int address = m_pInterfaceInfo->GetIntIP(0);
    const unsigned int mask = m_pInterfaceInfo->GetIntSubnetMask(0);
    const std::string description = m_pInterfaceInfo->GetStrDescription();
    int status = DEVICE_ACCESS_STATUS_UNKNOWN;
    for (const boost::shared_ptr<CDeviceInfo>& record : records) {
        const bool inSubnet = __IsInSameSubnet(address, mask, record->GetIntIP(), record->GetIntSubnetMask());
        if (inSubnet && m_pTL != nullptr && m_pTL->IsReuseKnownStatus() && __ReuseKnownStatus(*record)) {
            continue;
        }
        if (inSubnet) {
            std::unique_ptr<CGVCPCtrlPort, CtrlPortRelease> port(
                CInstanceFactory::CreateGVCPCtrlPortIntstance(address, record->GetIntIP(), description));
            port->GetAccessStatus(status);
            record->SetAccessStatus(status);
        } else {
            record->SetAccessStatus(DEVICE_ACCESS_STATUS_UNKNOWN);
        }
        DiagCamera(description, *record, inSubnet, inSubnet ? status : DEVICE_ACCESS_STATUS_UNKNOWN);
    }
}

// Takes the status of a known record that is otherwise the same: the camera did not change.
bool CInterface::__ReuseKnownStatus(CDeviceInfo& record)
{
    boost::unique_lock<boost::recursive_mutex> lock(m_DeviceInfoListMutex);
    const auto known = m_mapDeviceInfo.find(record.GetID());
    if (known != m_mapDeviceInfo.end()) {
        record.SetAccessStatus(known->second->GetAccessStatus());
        if (record == *known->second) {
            return true;
        }
    }
    record.SetAccessStatus(DEVICE_ACCESS_STATUS_UNKNOWN);
    return false;
}

bool CInterface::__IsInSameSubnet(unsigned int ifIP, unsigned int ifMask, unsigned int devIP, unsigned int devMask)
{
    if (ifMask != devMask) {
        return false;
    }
    Cipcalc calc;
    return calc.IsInSameSubnet(ifIP, devIP, ifMask);
}

bool DeviceInfoPtrOps::operator()(const boost::shared_ptr<CDeviceInfo>& a, const boost::shared_ptr<CDeviceInfo>& b) const
{
    return a->GetStrMAC() < b->GetStrMAC();
}

} // namespace Client
} // namespace GenICam
