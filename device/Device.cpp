#include "device/Device.h"

#include "common/Diagnostics.h"
#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "common/StopToken.h"
#include "common/StopWatch.h"
#include "common/ipcalc.h"
#include "device/ARP.h"
#include "device/Interface.h"
#include "gvcp/GVCPCtrlPort.h"
#include "gvcp/GvcpCodec.h"
#include "gvcp/GvcpExchange.h"
#include "gvcp/LinkTap.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <vector>

namespace GenICam {
namespace Client {

namespace {

const unsigned int kBroadcast = 0xFFFFFFFF;
const int kSendAttempts = 3;
const int kReceiveAttempts = 3;
const unsigned int kForceAckWaitMs = 3000;
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

// The endpoints of one acknowledged force-IP on one local port. With the raw-network right the acknowledge is
// read at link level alone: a device still at a foreign address broadcasts it from there, and reverse-path
// filtering drops it before any UDP socket.
struct FORCE_ENDPOINTS {
    UdpEndpoint receiver; // wildcard: broadcasts
    UdpEndpoint sender;   // interface address: also unicasts to it
    UdpEndpoint tap;
};

FORCE_ENDPOINTS OpenForceEndpoints(CInterface& itf, int port)
{
    const unsigned int interfaceIP = itf.GetInterfaceIP();
    FORCE_ENDPOINTS endpoints;
    endpoints.receiver = OpenEndpoint(interfaceIP, port, true);
    endpoints.sender = OpenEndpoint(interfaceIP, port, false);
    endpoints.tap.reset(OpenLinkTap(itf.GetInterfaceDescription(), interfaceIP, port));
    return endpoints;
}

using AckDecoder = GVCP_REJECTION (*)(const uint8_t*, size_t, uint16_t, GVCP_ACK_FIELDS&);

// How a failed force-IP exchange reads as the endpoint or the send would have raised it; no function: the
// standard error of a refused datagram.
struct FORCE_FAILURE {
    const char* szFunction;
    int nCode;
    std::string strMessage;
};

FORCE_FAILURE ForceFailureOf(const GVCP_RESULT& result, const char* operation, const std::string& error)
{
    switch (result.nKind) {
    case GVCP_RESULT_NO_ANSWER:
        return {"Receive", GC_ERR_TIMEOUT, "The configuration could not be save !"};
    case GVCP_RESULT_STOPPED:
        return {"Receive", GC_ERR_STOPPED, "Stopped."};
    case GVCP_RESULT_SOCKET_FAILED:
        return {"Receive", GC_ERR_IO, "select() Error !"};
    case GVCP_RESULT_SEND_FAILED:
        if (result.nErrno != 0) {
            return {nullptr, 0, "send data failed"};
        }
        break;
    default:
        break;
    }
    return {operation, GC_ERR_ERROR, error};
}

// The extended force-IP raises its failures, as its callers expect.
[[noreturn]] void RaiseForceFailure(const GVCP_RESULT& result, const char* operation, const std::string& error)
{
    const FORCE_FAILURE failure = ForceFailureOf(result, operation, error);
    if (failure.szFunction == nullptr) {
        throw std::runtime_error(failure.strMessage);
    }
    throw CAppException(failure.szFunction, __LINE__, failure.nCode, failure.strMessage);
}

// The standard force-IP reports the same failure as a text.
std::string ForceFailureText(const GVCP_RESULT& result, const char* operation, const std::string& error)
{
    const FORCE_FAILURE failure = ForceFailureOf(result, operation, error);
    return failure.szFunction == nullptr ? failure.strMessage
                                         : AppErrorText(failure.szFunction, __LINE__, failure.nCode, failure.strMessage);
}

// Up to three reads, each with the whole wait; a refusal other than "forbidden" or an acknowledge that does
// not decode is followed by the next read. `last` is how the last read ended; the result keeps a refusal
// that a later silence followed, since the device did answer.
GVCP_RESULT AwaitForceAck(CGvcpExchange& exchange, AckDecoder decode, uint16_t reqID, const char* operation,
                          std::string& error, GVCP_RESULT& last)
{
    const GVCP_ACK_DECODER decoder = [&](const uint8_t* data, size_t size, GVCP_ACK_FIELDS& out) {
        return decode(data, size, reqID, out);
    };
    GVCP_RESULT refusal;
    for (int attempt = 0; attempt < kReceiveAttempts; ++attempt) {
        last = exchange.ReadOne(MonotonicMs() + kForceAckWaitMs, decoder);
        switch (last.nKind) {
        case GVCP_RESULT_OK:
            return last;
        case GVCP_RESULT_BAD_ACK:
            error = "ACK error!";
            continue;
        case GVCP_RESULT_REFUSED:
            refusal = last;
            if (last.nStatus == GVCP_STATUS_FORCEIP_FORBIDDEN) {
                error = "IP Configuration is forbidden to set to device!";
                return last;
            }
            error = Helper::MsgComposer("{App}{%s:line[%d]}{ACK Status = 0x%x!}", operation, __LINE__,
                                        static_cast<unsigned int>(last.nStatus));
            continue;
        default:
            return last.nKind == GVCP_RESULT_NO_ANSWER && refusal.nKind == GVCP_RESULT_REFUSED ? refusal : last;
        }
    }
    return last;
}

// Three sends at most; the first whole one is followed by the acknowledge wait, which decides. Without a tap,
// a device that took the new address may answer by unicast, which only the interface-bound endpoint gets, so
// both endpoints are read together for the whole wait.
GVCP_RESULT ForceExchange(FORCE_ENDPOINTS& endpoints, bool unicastToo, void* packet, unsigned int length,
                          AckDecoder decode, uint16_t reqID, const char* operation, std::string& error,
                          GVCP_RESULT& last)
{
    std::vector<CUdpComm*> listen{endpoints.receiver.get()};
    if (endpoints.tap) {
        listen = {endpoints.tap.get()};
    } else if (unicastToo) {
        listen.push_back(endpoints.sender.get());
    }
    unsigned char datagram[sizeof(GVCP_ACK_HEADER)];
    CGvcpExchange exchange(listen, datagram, sizeof(datagram));
    GVCP_RESULT sent;
    for (int attempt = 0; attempt < kSendAttempts; ++attempt) {
        sent = exchange.Send(*endpoints.sender, packet, length, kBroadcast, GVCP_PORT);
        last = sent;
        if (sent.IsOk()) {
            return AwaitForceAck(exchange, decode, reqID, operation, error, last);
        }
        if (sent.nErrno != 0) {
            return sent;
        }
        error = kSendLengthError;
    }
    return sent;
}

// The error boundary of the extended force-IP: whatever it raises becomes false and a text.
template <typename Command>
bool Guarded(Command command, std::string& error)
{
    try {
        command();
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

// The value a failure of the control port stands for.
GVCP_RESULT ResultOfFailure(int code)
{
    GVCP_RESULT result;
    switch (code) {
    case GC_ERR_TIMEOUT:
        return GvcpResultOf(GVCP_RESULT_NO_ANSWER);
    case GC_ERR_STOPPED:
        return GvcpResultOf(GVCP_RESULT_STOPPED);
    case GC_ERR_IO:
        return GvcpResultOf(GVCP_RESULT_SOCKET_FAILED);
    case GC_ERR_NOT_IMPLEMENTED:
        return GvcpResultOf(GVCP_RESULT_NOT_SUPPORTED);
    case GC_ERR_ACCESS_DENIED:
        result.nKind = GVCP_RESULT_REFUSED;
        result.nStatus = GVCP_STATUS_ACCESS_DENIED;
        return result;
    default:
        // Device statuses travel as positive codes; anything else is an answer that made no sense.
        if (code > 0 && code <= 0xFFFF) {
            result.nKind = GVCP_RESULT_REFUSED;
            result.nStatus = static_cast<uint16_t>(code);
            return result;
        }
        return GvcpResultOf(GVCP_RESULT_BAD_ACK);
    }
}

// The control port and the endpoints raise; the standard force-IP and the store carry values. This is
// where one call's failure becomes a value, with its text.
template <typename Call>
GVCP_RESULT ResultOfCall(Call call, std::string& error)
{
    try {
        call();
        return GvcpResultOf(GVCP_RESULT_OK);
    } catch (CAppException& e) {
        error = e.what();
        return ResultOfFailure(e.GetErrorCode());
    } catch (std::exception& e) {
        // The one standard error of the port: a datagram the kernel refused.
        error = e.what();
        return GvcpResultOf(GVCP_RESULT_SEND_FAILED);
    }
}

struct CtrlPortRelease {
    void operator()(CGVCPCtrlPort* port) const { CInstanceFactory::DestoryGVCPCtrlPortIntstance(port); }
};
using CtrlPort = std::unique_ptr<CGVCPCtrlPort, CtrlPortRelease>;

const unsigned long kPersistentRegs[] = {GVCP_REG_PERSISTENT_IP, GVCP_REG_PERSISTENT_MASK,
                                         GVCP_REG_PERSISTENT_GATEWAY, GVCP_REG_IP_CONFIG_CURRENT};
const unsigned long kPersistentCount = sizeof(kPersistentRegs) / sizeof(kPersistentRegs[0]);

// Register words in host order; the port carries them in network order.
GVCP_RESULT ReadRegisters(CGVCPCtrlPort& port, const unsigned long* addrs, uint32_t* values, unsigned long count,
                          std::string& error)
{
    unsigned int words[kPersistentCount] = {0};
    unsigned long got = count;
    const GVCP_RESULT result =
        ResultOfCall([&] { port.ReadRegList(const_cast<unsigned long*>(addrs), words, &got); }, error);
    if (!result.IsOk()) {
        return result;
    }
    if (got != count) {
        error = Helper::MsgComposer("%lu of %lu registers read", got, count);
        return GvcpResultOf(GVCP_RESULT_BAD_ACK);
    }
    for (unsigned long i = 0; i < count; ++i) {
        values[i] = ntohl(words[i]);
    }
    return result;
}

GVCP_RESULT WriteRegisters(CGVCPCtrlPort& port, const unsigned long* addrs, const uint32_t* values,
                           unsigned long count, std::string& error)
{
    unsigned int words[kPersistentCount] = {0};
    for (unsigned long i = 0; i < count; ++i) {
        words[i] = htonl(values[i]);
    }
    unsigned long written = count;
    return ResultOfCall([&] { port.WriteRegList(const_cast<unsigned long*>(addrs), words, &written); }, error);
}

// Address, mask and gateway, then the persistent-IP bit set in 0x0014 with every other bit kept, so a
// device with link-local on still boots reachable if it loses the address. Fills in the 0x0014 it wrote.
GVCP_RESULT WritePersistent(CGVCPCtrlPort& port, uint32_t* wanted, const std::string& name, std::string& error)
{
    GVCP_RESULT result = WriteRegisters(port, kPersistentRegs, wanted, 3, error);
    if (!result.IsOk()) {
        return result;
    }
    Helper::Diag("%s: WRITEREG 0x064C = %s, 0x065C = %s, 0x066C = %s", name.c_str(), DottedText(wanted[0]).c_str(),
                 DottedText(wanted[1]).c_str(), DottedText(wanted[2]).c_str());
    uint32_t config = 0;
    result = ReadRegisters(port, kPersistentRegs + 3, &config, 1, error);
    if (!result.IsOk()) {
        return result;
    }
    wanted[3] = config | GVCP_IP_CONFIG_PERSISTENT;
    result = WriteRegisters(port, kPersistentRegs + 3, wanted + 3, 1, error);
    if (result.IsOk()) {
        Helper::Diag("%s: READREG 0x0014 = 0x%08X, WRITEREG 0x0014 = 0x%08X", name.c_str(), config, wanted[3]);
    }
    return result;
}

bool ReadBackMatches(CGVCPCtrlPort& port, const uint32_t* wanted, const std::string& name)
{
    uint32_t got[kPersistentCount] = {0};
    std::string error;
    if (!ReadRegisters(port, kPersistentRegs, got, kPersistentCount, error).IsOk()) {
        Helper::Diag("%s: read-back failed: %s", name.c_str(), error.c_str());
        return false;
    }
    const bool same = std::equal(got, got + kPersistentCount, wanted);
    Helper::Diag("%s: read back 0x064C = %s, 0x065C = %s, 0x066C = %s, 0x0014 = 0x%08X: %s", name.c_str(),
                 DottedText(got[0]).c_str(), DottedText(got[1]).c_str(), DottedText(got[2]).c_str(), got[3],
                 same ? "as written" : "differs");
    return same;
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
    m_stForceIP = FORCEIP_OUTCOME();
    const bool ok = Guarded(
        [&] {
            __SendForceIPExCmd(ip, mask, gateway, text, ipConfig);
            Helper::Diag("%s: 0x9000 %s/%s acknowledged", __DiagName().c_str(), ip, mask);
            __SendForceIPCmd();
            Helper::Diag("%s: FORCEIP 0.0.0.0 sent (restarts its IP configuration)", __DiagName().c_str());
        },
        error);
    if (!ok) {
        __NoteUnsentMove();
        Helper::Diag("%s: 0x9000 %s/%s not taken: %s", __DiagName().c_str(), ip, mask,
                     ForceIPText(m_stForceIP.stMove).c_str());
    }
    return ok;
}

bool CDevice::SetStandardForceIP(unsigned int ip, unsigned int mask, unsigned int gateway, bool& persistent,
                                 std::string& error)
{
    persistent = false;
    m_stForceIP = FORCEIP_OUTCOME();
    const std::string name = __DiagName();
    m_stForceIP.stMove = __SendStaticForceIPCmd(ip, mask, gateway, error);
    if (!m_stForceIP.stMove.IsOk()) {
        Helper::Diag("%s: FORCEIP %s/%s not taken: %s", name.c_str(), DottedText(ip).c_str(),
                     DottedText(mask).c_str(), ForceIPText(m_stForceIP.stMove).c_str());
        return false;
    }
    Helper::Diag("%s: FORCEIP %s/%s acknowledged (valid until it restarts)", name.c_str(), DottedText(ip).c_str(),
                 DottedText(mask).c_str());
    persistent = _StorePersistentIP(ip, mask, gateway);
    Helper::Diag("%s: address %s", name.c_str(), persistent ? "stored" : "kept until restart");
    return true;
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

    // Devices answer by broadcast, so without a tap the acknowledge is read on the wildcard endpoint.
    FORCE_ENDPOINTS endpoints = OpenForceEndpoints(*m_pInterface, GVCP_FORCEIP_EX_PORT_LOCAL);
    std::string error;
    GVCP_RESULT last;
    m_stForceIP.stMove = ForceExchange(endpoints, false, &command, sizeof(command), DecodeForceIPExAck,
                                       fields.nReqID, "__SendForceIPExCmd", error, last);
    if (!m_stForceIP.stMove.IsOk()) {
        RaiseForceFailure(last, __FUNCTION__, error);
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

const FORCEIP_OUTCOME& CDevice::GetForceIPOutcome() const
{
    return m_stForceIP;
}

// A failure before the exchange ran (an endpoint that would not open) is a socket failure, not "not run".
void CDevice::__NoteUnsentMove()
{
    if (m_stForceIP.stMove.nKind == GVCP_RESULT_NOT_RUN) {
        m_stForceIP.stMove = GvcpResultOf(GVCP_RESULT_SOCKET_FAILED);
    }
}

// Endpoints that would not open are a socket failure: the exchange never ran.
GVCP_RESULT CDevice::__SendStaticForceIPCmd(unsigned int ip, unsigned int mask, unsigned int gateway,
                                            std::string& error) const
{
    unsigned char mac[6];
    m_pDeviceInfo->GetHexMAC(mac);
    const uint16_t reqID = TickReqID();
    FORCEIP_CMD command = EncodeStaticForceIPCmd(mac, ip, mask, gateway, reqID);
    FORCE_ENDPOINTS endpoints;
    if (!ResultOfCall([&] { endpoints = OpenForceEndpoints(*m_pInterface, GVCP_FORCEIP_PORT_LOCAL); }, error)
             .IsOk()) {
        return GvcpResultOf(GVCP_RESULT_SOCKET_FAILED);
    }
    std::string reason;
    GVCP_RESULT last;
    const GVCP_RESULT move = ForceExchange(endpoints, true, &command, sizeof(command), DecodeForceIPAck, reqID,
                                           __FUNCTION__, reason, last);
    if (!move.IsOk()) {
        error = ForceFailureText(last, __FUNCTION__, reason);
    }
    return move;
}

// Control privilege belongs to the address and port that took it, so the whole transaction goes through one
// port, and control is given back on every way out once taken. False leaves the address valid until restart.
bool CDevice::_StorePersistentIP(unsigned int ip, unsigned int mask, unsigned int gateway) const
{
    const std::string name = __DiagName();
    CtrlPort port;
    std::string error;
    GVCP_RESULT& store = m_stForceIP.stStore;
    store = ResultOfCall([&] { port.reset(_CreateCtrlPort(ip)); }, error);
    const unsigned long optionsReg = GVCP_REG_IP_CONFIG_OPTIONS;
    uint32_t options = 0;
    if (store.IsOk()) {
        store = ReadRegisters(*port, &optionsReg, &options, 1, error);
    }
    if (store.IsOk()) {
        Helper::Diag("%s: READREG 0x0010 = 0x%08X", name.c_str(), options);
        if ((options & GVCP_IP_CONFIG_PERSISTENT) == 0) {
            store = GvcpResultOf(GVCP_RESULT_NOT_SUPPORTED);
        }
    }
    const bool asked = store.IsOk();
    if (asked) {
        store = ResultOfCall([&] { port->SetPrivilege(DEVICE_ACCESS_CONTROL); }, error);
    }
    if (store.IsOk()) {
        Helper::Diag("%s: WRITEREG 0x0A00 = 0x2 (control taken)", name.c_str());
    }
    const bool refused = store.nKind == GVCP_RESULT_REFUSED && store.nStatus == GVCP_STATUS_ACCESS_DENIED;
    uint32_t wanted[kPersistentCount] = {ip, mask, gateway, 0};
    if (store.IsOk()) {
        store = WritePersistent(*port, wanted, name, error);
    }
    if (!store.IsOk()) {
        Helper::Diag("%s: not stored: %s", name.c_str(), GvcpResultText(store).c_str());
    }
    // A request that timed out may still have given us control; a refused one (0x8006) did not.
    if (asked && !refused) {
        m_stForceIP.stGiveBack = __GiveControlBack(*port, name);
    }
    if (store.IsOk() && !ReadBackMatches(*port, wanted, name)) {
        store = GvcpResultOf(GVCP_RESULT_BAD_ACK);
    }
    return store.IsOk();
}

GVCP_RESULT CDevice::__GiveControlBack(CGVCPCtrlPort& port, const std::string& name) const
{
    std::string error;
    const GVCP_RESULT result = ResultOfCall([&] { port.SetPrivilege(DEVICE_ACCESS_RELEASE); }, error);
    if (result.IsOk()) {
        Helper::Diag("%s: WRITEREG 0x0A00 = 0x0 (control given back)", name.c_str());
    } else {
        Helper::Diag("%s: control not given back: %s", name.c_str(), GvcpResultText(result).c_str());
    }
    return result;
}

CGVCPCtrlPort* CDevice::_CreateCtrlPort(unsigned int deviceIP) const
{
    return CInstanceFactory::CreateGVCPCtrlPortIntstance(m_pInterface->GetInterfaceIP(), deviceIP,
                                                         m_pInterface->GetInterfaceDescription());
}

std::string CDevice::__DiagName() const
{
    return m_pInterface->GetInterfaceDescription() + ": camera " + m_pDeviceInfo->GetStrMAC();
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
