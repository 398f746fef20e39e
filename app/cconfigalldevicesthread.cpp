#include "app/cconfigalldevicesthread.h"

#include "ipconfig/IPConfigFactory.h"

#include <memory>
#include <vector>

CConfigAllDevicesThread::CConfigAllDevicesThread(CConfigPass* pass) : m_pPass(pass) {}

// The configurators made before a failed classification are still run. Conflict probes take a
// second per round, so the searches run at once; the force-IPs still go out in interface order.
bool CConfigAllDevicesThread::ConfigAllDevicesThread()
{
    CIPConfigFactory factory(m_pPass);
    std::vector<CIPConfigAllDevices*> made;
    bool ok = factory.CreateObject(made);
    std::vector<std::unique_ptr<CIPConfigAllDevices>> owned;
    std::vector<CIPConfigAllDevices*> configurators;
    for (CIPConfigAllDevices* configurator : made) {
        ok = ok && configurator != nullptr;
        if (configurator != nullptr) {
            owned.emplace_back(configurator);
            configurators.push_back(configurator);
        }
    }
    if (!m_pPass->GetOptions().bCheckConflicts) {
        for (std::unique_ptr<CIPConfigAllDevices>& configurator : owned) {
            ok = configurator->ConfigAllDevices() && ok;
            configurator.reset();
        }
        return ok;
    }
    const std::vector<bool> planned = PlanBySubnet(configurators);
    for (size_t i = 0; i < owned.size(); ++i) {
        ok = planned[i] && owned[i]->SendPlanned() && ok;
        owned[i].reset();
    }
    return ok;
}
