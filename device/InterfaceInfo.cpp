#include "device/InterfaceInfo.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"

#include <cstring>

namespace GenICam {
namespace Client {

namespace {

enum { INTERFACE_INFO_ID = 0, INTERFACE_INFO_DISPLAYNAME = 1, INTERFACE_INFO_TLTYPE = 2 };

} // namespace

// The getters name themselves in their exceptions; GetStrGateway keeps the subnet-mask text on purpose.
#define CHECK_INDEX(vec, code, getter)                                                     \
    if (index >= (vec).size()) {                                                           \
        APP_THROW((code), Helper::MsgComposer("Index : %d Invalid  when " getter, index)); \
    }

CInterfaceInfo::CInterfaceInfo(const NIC_INFO& nic)
    : m_vecIntIP(nic.vecIntIP),
      m_vecIntSubnetMask(nic.vecIntSubnetMask),
      m_vecIntGateway(nic.vecIntGateway),
      m_vecStrIP(nic.vecStrIP),
      m_vecStrSubnetMask(nic.vecStrSubnetMask),
      m_vecStrGateway(nic.vecStrGateway),
      m_strMAC(nic.strMAC),
      m_strDescription(nic.strDescription),
      m_strName(nic.strName)
{
    memcpy(m_aHexMAC, nic.aHexMAC, sizeof(m_aHexMAC));
    const std::string address = m_vecStrIP.empty() ? std::string("IP Error") : m_vecStrIP[0];
    m_strDisplayName = Helper::MsgComposer("%s[%s]", address.c_str(), m_strMAC.c_str());
    m_strID = m_strMAC;
}

CInterfaceInfo::CInterfaceInfo(CInterfaceInfo& other)
    : m_strID(other.m_strID),
      m_strDisplayName(other.m_strDisplayName),
      m_vecIntIP(other.m_vecIntIP),
      m_vecIntSubnetMask(other.m_vecIntSubnetMask),
      m_vecIntGateway(other.m_vecIntGateway),
      m_vecStrIP(other.m_vecStrIP),
      m_vecStrSubnetMask(other.m_vecStrSubnetMask),
      m_vecStrGateway(other.m_vecStrGateway),
      m_strMAC(other.m_strMAC),
      m_strDescription(other.m_strDescription),
      m_strName(other.m_strName)
{
    memcpy(m_aHexMAC, other.m_aHexMAC, sizeof(m_aHexMAC));
}

CInterfaceInfo& CInterfaceInfo::operator=(const CInterfaceInfo& other)
{
    if (this != &other) {
        m_strID = other.m_strID;
        m_strDisplayName = other.m_strDisplayName;
        m_vecIntIP = other.m_vecIntIP;
        m_vecIntSubnetMask = other.m_vecIntSubnetMask;
        m_vecIntGateway = other.m_vecIntGateway;
        m_vecStrIP = other.m_vecStrIP;
        m_vecStrSubnetMask = other.m_vecStrSubnetMask;
        m_vecStrGateway = other.m_vecStrGateway;
        m_strMAC = other.m_strMAC;
        m_strDescription = other.m_strDescription;
        m_strName = other.m_strName;
        memcpy(m_aHexMAC, other.m_aHexMAC, sizeof(m_aHexMAC));
    }
    return *this;
}

CInterfaceInfo::~CInterfaceInfo() = default;

void CInterfaceInfo::GetInfo(int id, int* type, void* buffer, unsigned long* size)
{
    switch (id) {
    case INTERFACE_INFO_ID:
        Helper::SetReturnParam(buffer, size, type, m_strID);
        break;
    case INTERFACE_INFO_DISPLAYNAME:
        Helper::SetReturnParam(buffer, size, type, m_strDisplayName);
        break;
    case INTERFACE_INFO_TLTYPE:
        Helper::SetReturnParam(buffer, size, type, std::string("GEV"));
        break;
    default:
        APP_THROW(GC_ERR_NOT_IMPLEMENTED, Helper::MsgComposer("Information %d not implemented", id));
    }
}

bool CInterfaceInfo::IsMyID(const std::string& id) const
{
    return id.size() == m_strID.size() && memcmp(id.data(), m_strID.data(), id.size()) == 0;
}

bool CInterfaceInfo::IsSameInterface(const CInterfaceInfo& other) const
{
    return memcmp(m_aHexMAC, other.m_aHexMAC, sizeof(m_aHexMAC)) == 0;
}

bool CInterfaceInfo::operator==(const CInterfaceInfo& other) const
{
    return IsSameInterface(other) && m_vecIntIP == other.m_vecIntIP &&
           m_vecIntSubnetMask == other.m_vecIntSubnetMask && m_vecIntGateway == other.m_vecIntGateway;
}

void CInterfaceInfo::GetHexMAC(unsigned char* mac)
{
    memcpy(mac, m_aHexMAC, sizeof(m_aHexMAC));
}

uint64_t CInterfaceInfo::GetInt64MAC()
{
    uint64_t value = 0;
    for (int i = 0; i < 6; ++i) {
        value |= static_cast<uint64_t>(m_aHexMAC[i]) << (8 * (5 - i));
    }
    return value;
}

uint32_t CInterfaceInfo::GetIntIP(unsigned int index)
{
    CHECK_INDEX(m_vecIntIP, GC_ERR_INVALID_PARAMETER, "GetIntIP");
    return m_vecIntIP[index];
}

std::string CInterfaceInfo::GetStrIP(unsigned int index)
{
    CHECK_INDEX(m_vecStrIP, GC_ERR_ERROR, "GetStrIP");
    return m_vecStrIP[index];
}

uint32_t CInterfaceInfo::GetIntSubnetMask(unsigned int index)
{
    CHECK_INDEX(m_vecIntSubnetMask, GC_ERR_ERROR, "GetIntSubnetMask");
    return m_vecIntSubnetMask[index];
}

std::string CInterfaceInfo::GetStrSubnetMask(unsigned int index)
{
    CHECK_INDEX(m_vecStrSubnetMask, GC_ERR_ERROR, "GetStrSubnetMask");
    return m_vecStrSubnetMask[index];
}

uint32_t CInterfaceInfo::GetIntGateway(unsigned int index)
{
    CHECK_INDEX(m_vecIntGateway, GC_ERR_ERROR, "GetIntGateway");
    return m_vecIntGateway[index];
}

std::string CInterfaceInfo::GetStrGateway(unsigned int index)
{
    CHECK_INDEX(m_vecStrGateway, GC_ERR_ERROR, "GetStrSubnetMask");
    return m_vecStrGateway[index];
}

size_t CInterfaceInfo::GetNumGateways()
{
    return m_vecStrGateway.size();
}

size_t CInterfaceInfo::GetNumSubnets()
{
    return m_vecStrIP.size();
}

std::string CInterfaceInfo::GetDisplayName() const
{
    return m_strDisplayName;
}

std::string CInterfaceInfo::GetStrMAC() const
{
    return m_strMAC;
}

std::string CInterfaceInfo::GetStrDescription() const
{
    return m_strDescription;
}

} // namespace Client
} // namespace GenICam
