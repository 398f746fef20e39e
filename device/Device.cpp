#include "device/Device.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "common/StopWatch.h"
#include "common/ipcalc.h"
#include "device/ARP.h"
#include "device/Interface.h"
#include "gvcp/GvcpCodec.h"
#include "gvcp/LinkTap.h"

#include <cstring>
#include <exception>
#include <memory>

namespace GenICam {
namespace Client {

namespace {

const unsigned int kBroadcast = 0xFFFFFFFF;
const int kSendAttempts = 3;
const int kReceiveAttempts = 3;
const unsigned int kForceIPExAckWaitMs = 3000;
const char kSendLengthError[] = "CUdpComm::Send length error!";

// Closes and releases a command's endpoint on every way out, exceptions included.
struct UdpCommRelease {
    void operator()(CUdpComm* comm) const
    {
        comm->Close();
        CInstanceFactory::DestoryUdpCommIntstance(comm);
    }
};
using UdpEndpoint = std::unique_ptr<CUdpComm, UdpCommRelease>;

UdpEndpoint OpenEndpoint(unsigned int ip, int port, bool bindAny)
{
    UdpEndpoint endpoint(CInstanceFactory::CreateUdpCommIntstance());
    endpoint->Open(ip, port, true, bindAny);
    return endpoint;
}

// These commands take their id from the monotonic tick count, not a port counter; 0 is possible.
uint16_t TickReqID()
{
    return GvcpTickReqID(CStopWatch().GetTickCount());
}

FORCEIP_EX_FIELDS CustomFields(CDeviceInfo& info)
{
    FORCEIP_EX_FIELDS fields;
    memset(&fields, 0, sizeof(fields));
    fields.nReqID = TickReqID();
    info.GetHexMAC(fields.aMAC);
    return fields;
}

// True as soon as one send goes out whole.
bool SendWhole(CUdpComm& endpoint, void* packet, unsigned int length)
{
    for (int attempt = 0; attempt < kSendAttempts; ++attempt) {
        unsigned int sent = 0;
        endpoint.Send(static_cast<unsigned char*>(packet), length, kBroadcast, GVCP_PORT, &sent);
        if (sent >= length) {
            return true;
        }
    }
    return false;
}

// Reads acknowledge headers until one accepts or refuses; a time-out raises from Receive.
bool AwaitForceIPExAck(CUdpComm& endpoint, uint16_t reqID, std::string& error, uint16_t& refusal)
{
    for (int attempt = 0; attempt < kReceiveAttempts; ++attempt) {
        unsigned char datagram[sizeof(GVCP_ACK_HEADER)];
        unsigned int sourceIp = 0;
        unsigned int sourcePort = 0;
        unsigned int received = 0;
        endpoint.Receive(datagram, sizeof(datagram), &sourceIp, &sourcePort, &received, kForceIPExAckWaitMs);
        GVCP_ACK_FIELDS ack;
        if (DecodeForceIPExAck(datagram, received, reqID, ack) != GVCP_ACCEPTED) {
            error = "ACK error!";
            continue;
        }
        const uint16_t status = ack.nStatus;
        if (status == GVCP_STATUS_SUCCESS) {
            return true;
        }
        refusal = status;
        if (status == GVCP_STATUS_FORCEIP_FORBIDDEN) {
            error = "IP Configuration is forbidden to set to device!";
            return false;
        }
        error = Helper::MsgComposer("{App}{%s:line[%d]}{ACK Status = 0x%x!}", "__SendForceIPExCmd", __LINE__,
                                    static_cast<unsigned int>(status));
    }
    return false;
}

} // namespace

CDevice::CDevice(CTL* tl, CInterface* itf, boost::shared_ptr<CDeviceInfo> info)
    : m_pTL(tl), m_pInterface(itf), m_pDeviceInfo(info)
{
}

CDevice::~CDevice() = default;

bool CDevice::IsMe(std::string const& id)
{
    return m_pDeviceInfo->IsMyID(id);
}

CInterface* CDevice::GetIF()
{
    return m_pInterface;
}

std::string CDevice::GetDevID() const
{
    return m_pDeviceInfo->GetID();
}

std::string CDevice::GetStrIP() const
{
    return m_pDeviceInfo->GetStrIP();
}

std::string CDevice::GetSN() const
{
    return m_pDeviceInfo->GetSN();
}

std::string CDevice::GetModelName() const
{
    return m_pDeviceInfo->GetModelName();
}

std::string CDevice::GetStrMac() const
{
    return m_pDeviceInfo->GetStrMAC();
}

unsigned int CDevice::GetIntIP() const
{
    return m_pDeviceInfo->GetIntIP();
}

unsigned int CDevice::GetIntSubNetMask()
{
    return m_pDeviceInfo->GetIntSubnetMask();
}

unsigned int CDevice::GetDevMode()
{
    return m_pDeviceInfo->GetDevMode();
}

unsigned int CDevice::GetHostSubnetMask()
{
    return m_pInterface->GetInterfaceSubnetMask();
}

// Swapping only on news keeps holders of the old record consistent.
void CDevice::SetDeviceInfo(boost::shared_ptr<CDeviceInfo> const& info)
{
    if (!(*info == *m_pDeviceInfo)) {
        m_pDeviceInfo = info;
    }
}

bool CDevice::IsMyIP(std::string const& ip) const
{
    return Cipcalc().iptolong(ip.c_str()) == m_pDeviceInfo->GetIntIP();
}

// A different mask does not fit, even with the right network part.
bool CDevice::IsSameSubnetWithIF(char* ip, char* mask, char* /*gateway*/) const
{
    Cipcalc calc;
    const unsigned int proposedMask = calc.iptolong(mask);
    const unsigned int interfaceMask = m_pInterface->GetInterfaceSubnetMask();
    return proposedMask == interfaceMask &&
           (m_pInterface->GetInterfaceIP() & interfaceMask) == (calc.iptolong(ip) & proposedMask);
}

bool CDevice::IsSameSubnetWithIF() const
{
    char ip[16] = {0};
    char mask[16] = {0};
    Cipcalc calc;
    calc.longtoip(m_pDeviceInfo->GetIntIP(), ip);
    calc.longtoip(m_pDeviceInfo->GetIntSubnetMask(), mask);
    return IsSameSubnetWithIF(ip, mask, nullptr);
}

bool CDevice::IsImplemented(MANUFACTURER_SPECIFIC_INFORMATION bits) const
{
    return (m_pDeviceInfo->GetRestartAndresetFeature() & bits) != 0;
}

bool CDevice::IsAnyoneHasTheIP(char* ip) const
{
    CARP arp;
    return arp.DetectIP(m_pInterface->GetInterfaceStrIP().c_str(), ip, m_pInterface->GetStrMAC().c_str(),
                        m_pInterface->GetInterfaceDescription().c_str());
}

void CDevice::ReleaseMeFromList()
{
    m_pInterface->ReleaseDevice(GetDevID());
}

void CDevice::__SetDeviceAccessStatus(int value)
{
    if (value >= 2 && value <= 4) {
        m_pDeviceInfo->SetAccessStatus(value - 1);
    }
}

bool CDevice::SetForceIPEx(char const* ip, char const* mask, char const* gateway, char const* text,
                           unsigned int ipConfig, std::string& error)
{
    if (ip == nullptr || mask == nullptr || gateway == nullptr || text == nullptr) {
        error = "{App}{Invalid parameter!}";
        return false;
    }
    m_nForceIPExStatus = 0;
    try {
        __SendForceIPExCmd(ip, mask, gateway, text, ipConfig);
        __SendForceIPCmd();
        return true;
    } catch (CAppException& e) {
        error = e.what();
    } catch (std::exception& e) {
        error = e.what();
    } catch (...) {
        error = "Unexpected error!";
    }
    return false;
}

void CDevice::__SendForceIPExCmd(char const* ip, char const* mask, char const* gateway, char const* text,
                                 unsigned int ipConfig) const
{
    FORCEIP_EX_FIELDS fields = CustomFields(*m_pDeviceInfo);
    Cipcalc calc;
    fields.nIPConfig = ipConfig;
    fields.nIP = calc.iptolong(ip);
    fields.nSubnetMask = calc.iptolong(mask);
    fields.nGateway = calc.iptolong(gateway);
    memcpy(fields.szText, text, strnlen(text, sizeof(fields.szText)));
    FORCEIP_EX_CMD_DEF command = EncodeForceIPExCmd(fields);

    const unsigned int interfaceIP = m_pInterface->GetInterfaceIP();
    // Devices answer by broadcast, so the acknowledge is read on the wildcard endpoint.
    UdpEndpoint receiver = OpenEndpoint(interfaceIP, GVCP_FORCEIP_EX_PORT_LOCAL, true);
    UdpEndpoint sender = OpenEndpoint(interfaceIP, GVCP_FORCEIP_EX_PORT_LOCAL, false);
    // With the raw-network right the acknowledge is read at link level alone: a device still at a foreign
    // address broadcasts it from there, and reverse-path filtering drops it before any UDP socket.
    UdpEndpoint tap(OpenLinkTap(m_pInterface->GetInterfaceDescription(), interfaceIP, GVCP_FORCEIP_EX_PORT_LOCAL));
    std::string error;
    bool accepted = false;
    for (int attempt = 0; attempt < kSendAttempts; ++attempt) {
        unsigned int sent = 0;
        sender->Send(reinterpret_cast<unsigned char*>(&command), sizeof(command), kBroadcast, GVCP_PORT, &sent);
        if (sent < sizeof(command)) {
            error = kSendLengthError;
            continue;
        }
        accepted = AwaitForceIPExAck(tap ? *tap : *receiver, fields.nReqID, error, m_nForceIPExStatus);
        break;
    }
    if (!accepted) {
        APP_THROW(GC_ERR_ERROR, error);
    }
}

// Address 0 restarts the device's IP configuration cycle; no acknowledge is awaited and a short
// send is not a failure.
void CDevice::__SendForceIPCmd() const
{
    unsigned char mac[6];
    m_pDeviceInfo->GetHexMAC(mac);
    FORCEIP_CMD command = EncodeForceIPCmd(mac, TickReqID());
    UdpEndpoint endpoint = OpenEndpoint(m_pInterface->GetInterfaceIP(), GVCP_FORCEIP_PORT_LOCAL, false);
    SendWhole(*endpoint, &command, sizeof(command));
}

uint16_t CDevice::GetForceIPExStatus() const
{
    return m_nForceIPExStatus;
}

bool CDevice::SendCustomControlCommand(FORCEIP_EX_CMD_DEF const& command) const
{
    FORCEIP_EX_CMD_DEF packet = command;
    UdpEndpoint endpoint = OpenEndpoint(m_pInterface->GetInterfaceIP(), GVCP_CUSTOM_PORT_LOCAL, false);
    return SendWhole(*endpoint, &packet, sizeof(packet));
}

bool CDevice::Reset(unsigned int value) const
{
    FORCEIP_EX_FIELDS fields = CustomFields(*m_pDeviceInfo);
    fields.nResetValue = value;
    return SendCustomControlCommand(EncodeForceIPExCmd(fields));
}

} // namespace Client
} // namespace GenICam
