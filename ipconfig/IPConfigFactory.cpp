#include "ipconfig/IPConfigFactory.h"

#include "common/Diagnostics.h"
#include "common/Exception.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/TL.h"
#include "ipconfig/IPConfigNetCardIPValid.h"
#include "ipconfig/IPConfigPlanned.h"

#include <new>

using GenICam::Client::CAppException;
using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::CInterface;
using GenICam::Client::CTL;

CIPConfigFactory::CIPConfigFactory(CConfigPass* pass) : m_pPass(pass) {}

bool CIPConfigFactory::GetInterFaceList()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (manager == nullptr) {
        return false;
    }
    CTL* tl = manager->GetTLObject();
    if (tl == nullptr) {
        return false;
    }
    m_vecInterface = *tl->GetCurInterfaceList();
    return true;
}

bool CIPConfigFactory::CheckConfigType(CInterface* itf, IPCONFIG_ENVIRONMENT_TYPE* type)
{
    unsigned int ip = 0;
    try {
        ip = itf->GetInterfaceIP();
        itf->GetInterfaceSubnetMask();
        const std::vector<CDevice*> devices = *itf->GetDeviceList();
    } catch (CAppException&) {
        return false;
    }
    *type = IsIPValid(ip) ? IPCONFIG_NETCARD_IP_VALID : IPCONFIG_NETCARD_IP_INVALID;
    return true;
}

// Every interface is classified before any configurator runs, so all addresses that must stay
// (interfaces, cameras behind unusable interfaces) are recorded before the first one is chosen.
bool CIPConfigFactory::CreateObject(std::vector<CIPConfigAllDevices*>& out)
{
    if (!GetInterFaceList()) {
        return false;
    }
    CIPConfigAllDevices::RecordUsedNetCardIP(m_vecInterface, *m_pPass);
    CIPConfigAllDevices::RecordUsedAddresses(m_pPass->GetOptions().vecAlsoTaken, *m_pPass);
    bool ok = true;
    for (CInterface* itf : m_vecInterface) {
        if (itf->GetDeviceList()->empty()) {
            continue;
        }
        IPCONFIG_ENVIRONMENT_TYPE type;
        if (!CheckConfigType(itf, &type)) {
            ok = false;
            continue;
        }
        if (type == IPCONFIG_NETCARD_IP_VALID) {
            const PASS_OPTIONS& options = m_pPass->GetOptions();
            if (options.pPlan || !options.vecRemembered.empty()) {
                out.push_back(new (std::nothrow) CIPConfigPlanned(itf, m_pPass));
            } else {
                out.push_back(new (std::nothrow) CIPConfigNetCardIPValid(itf, m_pPass));
            }
        } else {
            CIPConfigAllDevices::RecordUsedDeviceIP(*itf->GetDeviceList(), *m_pPass);
            for (CDevice* device : *itf->GetDeviceList()) {
                GenICam::Client::Helper::Diag("%s: camera %s: not selected: the interface's address is link-local",
                                              itf->GetInterfaceDescription().c_str(), device->GetStrMac().c_str());
            }
        }
    }
    return ok;
}
