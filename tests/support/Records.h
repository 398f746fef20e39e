#pragma once

#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/Interface.h"
#include "device/InterfaceInfo.h"
#include "gvcp/DeviceInfo.h"
#include "support/Packets.h"

#include <boost/shared_ptr.hpp>
#include <cstdio>
#include <cstring>
#include <string>

namespace aictest {

// A host interface record as the enumerator makes it, MAC 02-00-00-00-00-<macLast>.
inline GenICam::Client::NIC_INFO MakeNic(const std::string& name, uint32_t ip, uint32_t mask, uint8_t macLast = 0x01)
{
    GenICam::Client::NIC_INFO nic;
    nic.vecIntIP = {ip};
    nic.vecIntSubnetMask = {mask};
    nic.vecIntGateway = {0};
    nic.vecStrIP = {DottedText(ip)};
    nic.vecStrSubnetMask = {DottedText(mask)};
    nic.vecStrGateway = {"0.0.0.0"};
    nic.aHexMAC[0] = 0x02;
    nic.aHexMAC[5] = macLast;
    char mac[18];
    snprintf(mac, sizeof(mac), "02-00-00-00-00-%02X", macLast);
    nic.strMAC = mac;
    nic.strName = nic.strDescription = name;
    return nic;
}

inline boost::shared_ptr<GenICam::Client::CInterfaceInfo> MakeSnapshot(const std::string& name, uint32_t ip,
                                                                        uint32_t mask)
{
    return boost::shared_ptr<GenICam::Client::CInterfaceInfo>(
        new GenICam::Client::CInterfaceInfo(MakeNic(name, ip, mask)));
}

// A camera of the given model name, last MAC byte and address.
inline CameraModel CameraAt(const std::string& name, uint8_t macLast, uint32_t ip, uint32_t mask = 0xFFFFFF00)
{
    CameraModel model;
    model.model = name;
    model.mac[5] = macLast;
    model.ip = ip;
    model.mask = mask;
    return model;
}

// The device record discovery makes of model's acknowledge.
inline boost::shared_ptr<GenICam::Client::CDeviceInfo> MakeRecord(const CameraModel& model)
{
    const std::vector<uint8_t> bytes = MakeDiscoveryAck(model, 1);
    GenICam::Client::ZQ_DISCOVERY_ACK ack;
    memcpy(&ack, bytes.data(), sizeof(ack));
    return boost::shared_ptr<GenICam::Client::CDeviceInfo>(new GenICam::Client::CDeviceInfo(ack));
}

// Hands the interface a camera as discovery would have; the interface owns it.
inline void AddCamera(GenICam::Client::CInterface* itf, const CameraModel& model)
{
    itf->GetDeviceList()->push_back(new GenICam::Client::CDevice(nullptr, itf, MakeRecord(model)));
}

} // namespace aictest
