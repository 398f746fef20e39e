#include "app/Driver.h"

#include "app/cconfigalldevicesthread.h"
#include "device/Device.h"
#include "device/DeviceManager.h"
#include "device/Interface.h"
#include "device/TL.h"
#include "ipconfig/ConfigPass.h"
#include "ipconfig/IPConfigAllDevices.h"

#include <string>
#include <vector>

using GenICam::Client::CDevice;
using GenICam::Client::CDeviceManager;
using GenICam::Client::CInterface;
using GenICam::Client::CTL;

bool InitDeviceModule()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    return manager != nullptr && manager->InitEnvironment() == 0;
}

void UnInitDeviceModule()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (manager != nullptr) {
        manager->UnInitEnvironment();
        CDeviceManager::ReleaseInstance();
    }
}

void ConfigAllDevices(CConfigPass& pass)
{
    CIPConfigAllDevices::Clear();
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (manager == nullptr) {
        return;
    }
    std::vector<CDevice*> devices;
    manager->GetAllDevice(&devices);
    if (devices.empty()) {
        return;
    }
    CConfigAllDevicesThread config(&pass);
    config.ConfigAllDevicesThread();
}

void SelectInterfaces(const std::vector<std::string>& names)
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    if (manager != nullptr && manager->GetTLObject() != nullptr) {
        manager->GetTLObject()->SetInterfaceFilter(names);
    }
}

SEEN_MODEL SeeDeviceModel()
{
    CDeviceManager* manager = CDeviceManager::GetInstanse();
    CTL* tl = manager == nullptr ? nullptr : manager->GetTLObject();
    return SeeInterfaces(tl == nullptr ? std::vector<CInterface*>() : *tl->GetCurInterfaceList());
}
