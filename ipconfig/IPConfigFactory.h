#pragma once

#include "ipconfig/IPConfigAllDevices.h"

#include <vector>

// Classifies the interfaces of the transport layer and makes a configurator for each usable one.
class CIPConfigFactory {
public:
    explicit CIPConfigFactory(CConfigPass* pass);
    bool GetInterFaceList();
    bool CheckConfigType(GenICam::Client::CInterface* itf, IPCONFIG_ENVIRONMENT_TYPE* type);
    bool CreateObject(std::vector<CIPConfigAllDevices*>& out);

private:
    std::vector<GenICam::Client::CInterface*> m_vecInterface;
    CConfigPass* m_pPass;
};
