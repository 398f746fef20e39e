#include "ipconfig/IPConfigNetCardIPValid.h"

#include "common/Exception.h"
#include "device/Interface.h"

#include <cstdio>

using GenICam::Client::CAppException;
using GenICam::Client::CInterface;

namespace {

const char kNoGateway[] = "0.0.0.0";
// The IP-configuration value every extended force-IP of the planner carries.
const unsigned int kForceIPExValue = 5;

} // namespace

CIPConfigNetCardIPValid::CIPConfigNetCardIPValid(CInterface* itf, CConfigPass* pass) : CIPConfigAllDevices(itf, pass) {}

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

bool CIPConfigNetCardIPValid::ConfigAllDevices()
{
    return PlanAddresses() && SendPlanned();
}

// All or nothing: when the subnet has too few free addresses, no camera of it is touched.
bool CIPConfigNetCardIPValid::PlanAddresses()
{
    if (!GetNetCardIPConfig()) {
        return false;
    }
    MarkDev();
    m_vecPlannedIP.clear();
    if (!GetIPList(&m_vecPlannedIP)) {
        RecordNoAddress(m_vecConfigDevice);
        return false;
    }
    RecordIPAssignedToDev(m_vecPlannedIP);
    return true;
}
