#include "gvcp/DeviceDiscovery.h"

#include "common/Diagnostics.h"
#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/ipcalc.h"
#include "common/InstanceFactory.h"
#include "common/LinuxAPI.h"
#include "gvcp/DeviceInfo.h"
#include "gvcp/GVCPDiscoveryPort.h"

#include <cstring>

namespace GenICam {
namespace Client {

namespace {

const unsigned int kVendorMacResource = 104;
const size_t kVendorMacMax = 17; // "XX-XX-XX-XX-XX-XX"
const unsigned long kPollSliceMs = 10;

// Receives one acknowledge; false when the slice passed without one or the socket failed.
bool ReceiveOne(CGVCPDiscoveryPort& port, ZQ_DISCOVERY_ACK& ack, unsigned long waitMs)
{
    try {
        port.RecvDiscoveryPacket(ack, static_cast<unsigned int>(waitMs));
        return true;
    } catch (CAppException& e) {
        if (e.GetErrorCode() != GC_ERR_TIMEOUT && e.GetErrorCode() != GC_ERR_IO) {
            throw CAppException(e);
        }
        return false;
    }
}

} // namespace

CDeviceDiscovery::CDeviceDiscovery(unsigned int ip, std::string name)
    : m_pDiscoveryPort(CInstanceFactory::CreateGVCPDiscoveryPortIntstance(ip, true, name)), m_strName(name)
{
    try {
        m_strVendorMacFlag = __GetVendorMacFlag();
        if (m_strVendorMacFlag == "-") {
            m_strVendorMacFlag.clear();
        }
    } catch (...) {
        m_strVendorMacFlag.clear();
    }
}

CDeviceDiscovery::~CDeviceDiscovery()
{
    CInstanceFactory::DestoryGVCPDiscoveryPortIntstance(m_pDiscoveryPort);
}

void CDeviceDiscovery::SendDiscoveryCmd()
{
    m_pDiscoveryPort->SendDiscoveryPacket(0xFFFFFFFF);
}

void CDeviceDiscovery::GetDeviceInfoList(std::vector<boost::shared_ptr<CDeviceInfo>>& list, unsigned long timeoutMs)
{
    unsigned long remaining = timeoutMs;
    unsigned long wait = kPollSliceMs;
    unsigned int repeated = 0;
    const uint64_t start = Helper::GetSystemCounterMs();
    while (remaining != 0) {
        if (remaining < kPollSliceMs) {
            wait = remaining;
        }
        ZQ_DISCOVERY_ACK ack;
        memset(&ack, 0, sizeof(ack));
        if (ReceiveOne(*m_pDiscoveryPort, ack, wait)) {
            boost::shared_ptr<CDeviceInfo> info(new CDeviceInfo(ack));
            if (!__IsDeviceInlist(list, info)) {
                list.push_back(info);
            } else {
                ++repeated;
                Helper::Diag("%s: camera %s: discovery: ignored a repeated acknowledge", m_strName.c_str(),
                             info->GetStrMAC().c_str());
            }
        }
        const uint64_t elapsed = Helper::GetSystemCounterMs() - start;
        remaining = elapsed < timeoutMs ? static_cast<unsigned long>(timeoutMs - elapsed) : 0;
    }
    __DiagPass(repeated, list.size());
}

void CDeviceDiscovery::__DiagPass(unsigned int repeated, size_t found) const
{
    if (!Helper::IsDiagnostics()) {
        return;
    }
    const DISCOVERY_TALLY& tally = m_pDiscoveryPort->GetTally();
    Helper::Diag("%s: discovery pass: %u datagrams received, %u acknowledges accepted (%u repeated), %u ignored; "
                 "%zu cameras; read through %s",
                 m_strName.c_str(), tally.nDatagrams, tally.nAccepted, repeated, tally.nIgnored, found,
                 m_pDiscoveryPort->LinkSummary().c_str());
}

bool CDeviceDiscovery::__IsDeviceInlist(std::vector<boost::shared_ptr<CDeviceInfo>>& list,
                                        const boost::shared_ptr<CDeviceInfo>& info)
{
    for (const boost::shared_ptr<CDeviceInfo>& entry : list) {
        if (info->IsMyID(entry->GetID())) {
            return true;
        }
    }
    return false;
}

std::string CDeviceDiscovery::__GetVendorMacFlag()
{
    char buffer[260];
    memset(buffer, 0, sizeof(buffer));
    CLinuxAPI* api = CInstanceFactory::CreateLinuxAPIIntstance();
    const int count = api->LoadString(kVendorMacResource, buffer, kVendorMacMax);
    CInstanceFactory::DestoryLinuxAPIIntstance(api);
    if (count <= 0) {
        APP_THROW(GC_ERR_ERROR, "LoadString Failed!");
    }
    if (count > static_cast<int>(kVendorMacMax)) {
        APP_THROW(GC_ERR_ERROR, "GetResourseString Size is too big!");
    }
    return buffer;
}

// Kept for builds whose resource names a vendor prefix; the collection does not filter.
bool CDeviceDiscovery::__CheckVendorMacFlag(const ZQ_DISCOVERY_ACK& ack)
{
    if (m_strVendorMacFlag.empty()) {
        return true;
    }
    const std::string mac = MacText(ack.aMAC);
    return mac.compare(0, m_strVendorMacFlag.size(), m_strVendorMacFlag) == 0;
}

CDeviceDiscovery* CInstanceFactory::CreateDeviceDiscoveryIntstance(unsigned int ip, std::string name)
{
    return new CDeviceDiscovery(ip, std::move(name));
}

void CInstanceFactory::DestoryDeviceDiscoveryIntstance(CDeviceDiscovery* discovery)
{
    delete discovery;
}

} // namespace Client
} // namespace GenICam
