#include "ipconfig/IPConfigNetCardIPValid.h"

#include "common/Exception.h"
#include "device/Device.h"
#include "device/Interface.h"

#include <cstdio>

using GenICam::Client::CAppException;
using GenICam::Client::CDevice;
using GenICam::Client::CInterface;

namespace {

const char kNoGateway[] = "0.0.0.0";
// The IP-configuration value every extended force-IP of the planner carries.
const unsigned int kForceIPExValue = 5;

} // namespace

CIPConfigNetCardIPValid::CIPConfigNetCardIPValid(CInterface* itf) : CIPConfigAllDevices(itf) {}

CIPConfigNetCardIPValid::~CIPConfigNetCardIPValid() = default;

bool CIPConfigNetCardIPValid::GetNetCardIPConfig()
{
    try {
        m_nNetCardIP = m_pInterface->GetInterfaceIP();
        m_nNetCardMask = m_pInterface->GetInterfaceSubnetMask();
        const std::string mask = m_pInterface->GetInterfaceStrSubNet();
        snprintf(m_stIPConfigSetting.szSubnetMask, sizeof(m_stIPConfigSetting.szSubnetMask), "%s", mask.c_str());
    } catch (CAppException&) {
        return false;
    }
    snprintf(m_stIPConfigSetting.szGateway, sizeof(m_stIPConfigSetting.szGateway), "%s", kNoGateway);
    m_stIPConfigSetting.nForceIPExValue = kForceIPExValue;
    return true;
}

// All or nothing: when the subnet has too few free addresses, no camera of it is touched.
bool CIPConfigNetCardIPValid::ConfigAllDevices()
{
    if (!GetNetCardIPConfig()) {
        return false;
    }
    MarkDev();
    std::vector<unsigned int> list;
    if (!GetIPList(&list)) {
        RecordNoAddress(m_vecConfigDevice);
        return false;
    }
    RecordIPAssignedToDev(list);
    const bool ok = ConfigDevIP(m_stIPConfigSetting, m_vecConfigDevice, list);
    for (CDevice* device : m_vecConfigDevice) {
        ms_vecConfigDevID.push_back(device->GetDevID());
    }
    return ok;
}
