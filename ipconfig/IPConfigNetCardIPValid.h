#pragma once

#include "ipconfig/IPConfigAllDevices.h"

// Configurator of an interface whose own address is usable.
class CIPConfigNetCardIPValid : public CIPConfigAllDevices {
public:
    CIPConfigNetCardIPValid(GenICam::Client::CInterface* itf, CConfigPass* pass);
    ~CIPConfigNetCardIPValid() override;

    bool ConfigAllDevices() override;
    virtual bool GetNetCardIPConfig();
    bool PlanAddresses() override;
};
