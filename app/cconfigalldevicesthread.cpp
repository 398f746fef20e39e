#include "app/cconfigalldevicesthread.h"

#include "ipconfig/IPConfigFactory.h"

#include <vector>

// The configurators made before a failed classification are still run.
bool CConfigAllDevicesThread::ConfigAllDevicesThread()
{
    CIPConfigFactory factory;
    std::vector<CIPConfigAllDevices*> configurators;
    bool ok = factory.CreateObject(configurators);
    for (CIPConfigAllDevices*& configurator : configurators) {
        if (configurator == nullptr) {
            ok = false;
            continue;
        }
        if (!configurator->ConfigAllDevices()) {
            ok = false;
        }
        delete configurator;
        configurator = nullptr;
    }
    return ok;
}
