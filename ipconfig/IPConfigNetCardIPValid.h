#pragma once

#include "ipconfig/IPConfigAllDevices.h"

// Configurator of an interface whose own address is usable.
class CIPConfigNetCardIPValid : public CIPConfigAllDevices {
public:
    explicit CIPConfigNetCardIPValid(GenICam::Client::CInterface* itf);
    ~CIPConfigNetCardIPValid() override;

    bool ConfigAllDevices() override;
    virtual bool GetNetCardIPConfig();
};
