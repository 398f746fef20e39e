#include "gvcp/DeviceInfo.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/ipcalc.h"
#include "gvcp/GvcpCodec.h"

#include <cstring>

namespace GenICam {
namespace Client {

namespace {

bool SameBytes(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace

CDeviceInfo::CDeviceInfo(ZQ_DISCOVERY_ACK& ack)
    : CDeviceInfo(DecodeDiscoveryRecord(ack))
{
}

CDeviceInfo::CDeviceInfo(const DISCOVERY_RECORD& record)
    : m_nSpecVersionMajor(record.nSpecVersionMajor),
      m_nSpecVersionMinor(record.nSpecVersionMinor),
      m_nDeviceMode(record.nDeviceMode),
      m_aMAC(),
      m_strMAC(MacText(record.aMAC)),
      m_nIPConfigOptions(record.nIPConfigOptions),
      m_nIPConfigCurrent(record.nIPConfigCurrent),
      m_nIP(record.nIP),
      m_nGateway(record.nGateway),
      m_nSubnetMask(record.nSubnetMask),
      m_strIP(DottedText(m_nIP)),
      m_strGateway(DottedText(m_nGateway)),
      m_strSubnetMask(DottedText(m_nSubnetMask)),
      m_strManufacturerName(record.strManufacturerName),
      m_strModelName(record.strModelName),
      m_strDeviceVersion(record.strDeviceVersion),
      m_strManufacturerSpecificInfo(record.strManufacturerSpecificInfo),
      m_strUserDefinedName(record.strUserDefinedName),
      m_strSerialNumber(record.strSerialNumber),
      m_strID(Helper::MsgComposer("%s(%s)", m_strModelName.c_str(), m_strMAC.c_str())),
      m_strDisplayName(Helper::MsgComposer("%s(%s[%s])", m_strModelName.c_str(), m_strIP.c_str(), m_strMAC.c_str())),
      m_nRestartAndResetFeature(record.nRestartAndResetFeature),
      m_nAccessStatus(DEVICE_ACCESS_STATUS_UNKNOWN)
{
    memcpy(m_aMAC, record.aMAC, sizeof(m_aMAC));
}

// The restart-and-reset byte stays out of copies: a copy starts at 0, an assignment keeps its own.
CDeviceInfo::CDeviceInfo(const CDeviceInfo& other) : m_nRestartAndResetFeature(0)
{
    *this = other;
}

CDeviceInfo& CDeviceInfo::operator=(const CDeviceInfo& other)
{
    if (this == &other) {
        return *this;
    }
    m_nSpecVersionMajor = other.m_nSpecVersionMajor;
    m_nSpecVersionMinor = other.m_nSpecVersionMinor;
    m_nDeviceMode = other.m_nDeviceMode;
    memcpy(m_aMAC, other.m_aMAC, sizeof(m_aMAC));
    m_strMAC = other.m_strMAC;
    m_nIPConfigOptions = other.m_nIPConfigOptions;
    m_nIPConfigCurrent = other.m_nIPConfigCurrent;
    m_nIP = other.m_nIP;
    m_nGateway = other.m_nGateway;
    m_nSubnetMask = other.m_nSubnetMask;
    m_strIP = other.m_strIP;
    m_strGateway = other.m_strGateway;
    m_strSubnetMask = other.m_strSubnetMask;
    m_strManufacturerName = other.m_strManufacturerName;
    m_strModelName = other.m_strModelName;
    m_strDeviceVersion = other.m_strDeviceVersion;
    m_strManufacturerSpecificInfo = other.m_strManufacturerSpecificInfo;
    m_strUserDefinedName = other.m_strUserDefinedName;
    m_strSerialNumber = other.m_strSerialNumber;
    m_strID = other.m_strID;
    m_strDisplayName = other.m_strDisplayName;
    m_nAccessStatus = other.m_nAccessStatus;
    return *this;
}

CDeviceInfo::~CDeviceInfo() = default;

const std::string& CDeviceInfo::GetID() const
{
    return m_strID;
}

bool CDeviceInfo::IsMyID(std::string const& id) const
{
    return SameBytes(id, m_strID);
}

bool CDeviceInfo::IsMyMAC(std::string const& mac) const
{
    return SameBytes(mac, m_strMAC);
}

int CDeviceInfo::GetAccessStatus() const
{
    return m_nAccessStatus;
}

bool CDeviceInfo::operator==(CDeviceInfo const& other) const
{
    return IsMyID(other.m_strID) && SameBytes(m_strUserDefinedName, other.m_strUserDefinedName) &&
           m_nIP == other.m_nIP && m_nGateway == other.m_nGateway && m_nSubnetMask == other.m_nSubnetMask &&
           m_nAccessStatus == other.m_nAccessStatus && m_nIPConfigOptions == other.m_nIPConfigOptions &&
           m_nIPConfigCurrent == other.m_nIPConfigCurrent;
}

void CDeviceInfo::GetInfo(int id, int* type, void* buffer, unsigned long* size)
{
    switch (id) {
    case 0:
        Helper::SetReturnParam(buffer, size, type, m_strID);
        break;
    case 1:
        Helper::SetReturnParam(buffer, size, type, m_strManufacturerName);
        break;
    case 2:
        Helper::SetReturnParam(buffer, size, type, m_strModelName);
        break;
    case 4:
        Helper::SetReturnParam(buffer, size, type, m_strDisplayName);
        break;
    case 5:
        Helper::SetReturnParam(buffer, size, type, static_cast<int>(m_nAccessStatus));
        break;
    default:
        APP_THROW(GC_ERR_NOT_IMPLEMENTED, Helper::MsgComposer("INFO ID %ld is out of range", static_cast<long>(id)));
    }
}

void CDeviceInfo::GetHexMAC(unsigned char* out)
{
    memcpy(out, m_aMAC, sizeof(m_aMAC));
}

uint64_t CDeviceInfo::GetInt64MAC()
{
    uint64_t mac = 0;
    for (unsigned char byte : m_aMAC) {
        mac = (mac << 8) | byte;
    }
    return mac;
}

std::string CDeviceInfo::GetStrMAC()
{
    return m_strMAC;
}

std::string CDeviceInfo::GetStrIP() const
{
    return m_strIP;
}

std::string CDeviceInfo::GetModelName() const
{
    return m_strModelName;
}

std::string CDeviceInfo::GetSN() const
{
    return m_strSerialNumber;
}

unsigned int CDeviceInfo::GetIntIP() const
{
    return m_nIP;
}

unsigned int CDeviceInfo::GetIntSubnetMask() const
{
    return m_nSubnetMask;
}

unsigned int CDeviceInfo::GetDevMode() const
{
    return m_nDeviceMode;
}

unsigned char CDeviceInfo::GetRestartAndresetFeature() const
{
    return m_nRestartAndResetFeature;
}

void CDeviceInfo::SetAccessStatus(int status)
{
    m_nAccessStatus = status;
}

} // namespace Client
} // namespace GenICam
