#pragma once

#include "gvcp/GvcpCodec.h"

#include <cstdint>
#include <string>

namespace GenICam {
namespace Client {

// Bit masks over the restart-and-reset feature byte; the values are the vendor's.
enum MANUFACTURER_SPECIFIC_INFORMATION {
    MSI_RESTART_SUPPORTED = 0x01,
    MSI_RESET_SUPPORTED = 0x02,
};

// A device's access status, numbered as GenTL numbers it; 1000 is the tool's own.
enum DEVICE_ACCESS_STATUS {
    DEVICE_ACCESS_STATUS_UNKNOWN = 0,
    DEVICE_ACCESS_STATUS_READWRITE = 1,
    DEVICE_ACCESS_STATUS_READONLY = 2,
    DEVICE_ACCESS_STATUS_NOACCESS = 3,
    // another host holds control and the device says so with status 0xC000
    DEVICE_ACCESS_STATUS_BUSY = 1000,
};

// The decoded discovery acknowledge of one device. Its ID is "model(MAC)".
class CDeviceInfo {
public:
    explicit CDeviceInfo(ZQ_DISCOVERY_ACK& ack);
    CDeviceInfo(const CDeviceInfo& other);
    CDeviceInfo& operator=(const CDeviceInfo& other);
    virtual ~CDeviceInfo();

    const std::string& GetID() const;
    bool IsMyID(std::string const& id) const;
    bool IsMyMAC(std::string const& mac) const;
    bool operator==(CDeviceInfo const& other) const;

    void GetInfo(int id, int* type, void* buffer, unsigned long* size);

    void GetHexMAC(unsigned char* out);
    uint64_t GetInt64MAC();
    std::string GetStrMAC();
    std::string GetStrIP() const;
    std::string GetModelName() const;
    std::string GetSN() const;
    unsigned int GetIntIP() const;
    unsigned int GetIntSubnetMask() const;
    unsigned int GetDevMode() const;
    unsigned char GetRestartAndresetFeature() const;
    void SetAccessStatus(int status);
    int GetAccessStatus() const;

private:
    explicit CDeviceInfo(const DISCOVERY_RECORD& record);

    uint16_t m_nSpecVersionMajor;
    uint16_t m_nSpecVersionMinor;
    uint32_t m_nDeviceMode;
    unsigned char m_aMAC[6];
    std::string m_strMAC;
    uint32_t m_nIPConfigOptions;
    uint32_t m_nIPConfigCurrent;
    uint32_t m_nIP;
    uint32_t m_nGateway;
    uint32_t m_nSubnetMask;
    std::string m_strIP;
    std::string m_strGateway;
    std::string m_strSubnetMask;
    std::string m_strManufacturerName;
    std::string m_strModelName;
    std::string m_strDeviceVersion;
    std::string m_strManufacturerSpecificInfo;
    std::string m_strUserDefinedName;
    std::string m_strSerialNumber;
    std::string m_strID;
    std::string m_strDisplayName;
    uint8_t m_nRestartAndResetFeature;
    int32_t m_nAccessStatus;
};

} // namespace Client
} // namespace GenICam
