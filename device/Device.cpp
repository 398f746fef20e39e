#include "device/Device.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "common/StopWatch.h"
#include "device/Interface.h"
#include "gvcp/UdpComm.h"
#include "device/ARP.h"
#include "common/ipcalc.h"

#include <arpa/inet.h>
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
GVCP_CMD_HEADER CommandHeader(uint8_t flags, uint16_t command, size_t packetSize)
{
    return MakeCmdHeader(flags, command, static_cast<uint16_t>(packetSize - sizeof(GVCP_CMD_HEADER)),
                         static_cast<uint16_t>(CStopWatch().GetTickCount() % 65535));
}

FORCEIP_EX_CMD_DEF CustomCommand(const unsigned char* mac)
{
    FORCEIP_EX_CMD_DEF command;
    memset(&command, 0, sizeof(command));
    command.stHeader = CommandHeader(GVCP_FLAG_ACK_REQUIRED | GVCP_FLAG_BROADCAST_ACK, GVCP_FORCEIP_EX_CMD,
                                     sizeof(command));
    memcpy(command.aMAC, mac, sizeof(command.aMAC));
    return command;
}

uint32_t WireAddress(const char* dotted)
{
    return htonl(Cipcalc().iptolong(dotted));
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
bool AwaitForceIPExAck(CUdpComm& endpoint, uint16_t wireReqID, std::string& error)
{
    for (int attempt = 0; attempt < kReceiveAttempts; ++attempt) {
        GVCP_ACK_HEADER ack;
        memset(&ack, 0, sizeof(ack));
        unsigned int sourceIp = 0;
        unsigned int sourcePort = 0;
        unsigned int received = 0;
        endpoint.Receive(reinterpret_cast<unsigned char*>(&ack), sizeof(ack), &sourceIp, &sourcePort, &received,
                         kForceIPExAckWaitMs);
        if (ntohs(ack.wAck) != GVCP_FORCEIP_EX_ACK || ack.wAckID != wireReqID) {
            error = "ACK error!";
            continue;
        }
        const uint16_t status = ntohs(ack.wStatus);
        if (status == GVCP_STATUS_SUCCESS) {
            return true;
        }
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
    unsigned char mac[6];
    m_pDeviceInfo->GetHexMAC(mac);
    FORCEIP_EX_CMD_DEF command = CustomCommand(mac);
    command.dwIPConfig = htonl(ipConfig);
    command.dwIP = WireAddress(ip);
    command.dwSubnetMask = WireAddress(mask);
    command.dwGateway = WireAddress(gateway);
    memcpy(command.szText, text, strnlen(text, sizeof(command.szText)));

    const unsigned int interfaceIP = m_pInterface->GetInterfaceIP();
    // Devices answer by broadcast, so the acknowledge is read on the wildcard endpoint.
    UdpEndpoint receiver = OpenEndpoint(interfaceIP, GVCP_FORCEIP_EX_PORT_LOCAL, true);
    UdpEndpoint sender = OpenEndpoint(interfaceIP, GVCP_FORCEIP_EX_PORT_LOCAL, false);
    std::string error;
    bool accepted = false;
    for (int attempt = 0; attempt < kSendAttempts; ++attempt) {
        unsigned int sent = 0;
        sender->Send(reinterpret_cast<unsigned char*>(&command), sizeof(command), kBroadcast, GVCP_PORT, &sent);
        if (sent < sizeof(command)) {
            error = kSendLengthError;
            continue;
        }
        accepted = AwaitForceIPExAck(*receiver, command.stHeader.wReqID, error);
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
    FORCEIP_CMD command;
    memset(&command, 0, sizeof(command));
    command.stHeader = CommandHeader(GVCP_FLAG_ACK_REQUIRED, GVCP_FORCEIP_CMD, sizeof(command));
    m_pDeviceInfo->GetHexMAC(command.aMAC);
    UdpEndpoint endpoint = OpenEndpoint(m_pInterface->GetInterfaceIP(), GVCP_FORCEIP_PORT_LOCAL, false);
    SendWhole(*endpoint, &command, sizeof(command));
}

bool CDevice::SendCustomControlCommand(FORCEIP_EX_CMD_DEF const& command) const
{
    FORCEIP_EX_CMD_DEF packet = command;
    UdpEndpoint endpoint = OpenEndpoint(m_pInterface->GetInterfaceIP(), GVCP_CUSTOM_PORT_LOCAL, false);
    return SendWhole(*endpoint, &packet, sizeof(packet));
}

bool CDevice::Reset(unsigned int value) const
{
    unsigned char mac[6];
    m_pDeviceInfo->GetHexMAC(mac);
    FORCEIP_EX_CMD_DEF command = CustomCommand(mac);
    command.dwResetValue = htonl(value);
    return SendCustomControlCommand(command);
}

} // namespace Client
} // namespace GenICam
