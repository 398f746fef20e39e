#include "gvcp/GvcpCodec.h"

#include <cstring>

namespace GenICam {
namespace Client {

namespace {

const unsigned int kReqIDModulus = 65535;

// A full field has no NUL, so it ends at its width.
template <size_t N>
std::string WireText(const char (&field)[N])
{
    return std::string(field, strnlen(field, N));
}

template <typename Packet>
size_t WithHeader(Packet& packet, uint8_t flags, uint16_t command, size_t length, uint16_t reqId)
{
    packet.stHeader = MakeCmdHeader(flags, command, static_cast<uint16_t>(length - sizeof(GVCP_CMD_HEADER)), reqId);
    return length;
}

// Only the header is read, and a short one is judged with zeros in place of the missing bytes.
GVCP_REJECTION DecodeHeaderOnlyAck(const uint8_t* data, size_t size, uint16_t ack, uint16_t reqId,
                                   GVCP_ACK_FIELDS& out)
{
    uint8_t header[sizeof(GVCP_ACK_HEADER)] = {0};
    memcpy(header, data, size < sizeof(header) ? size : sizeof(header));
    return DecodeAck(header, sizeof(header), ack, reqId, out);
}

} // namespace

uint16_t GvcpSeedReqID(int random)
{
    const uint16_t id = static_cast<uint16_t>(static_cast<unsigned int>(random) % kReqIDModulus);
    return id == 0 ? 1 : id;
}

uint16_t GvcpNextReqID(uint16_t current)
{
    return static_cast<uint16_t>((current == 0xFFFF ? 1 : current) + 1);
}

uint16_t GvcpTickReqID(uint64_t tickMs)
{
    return static_cast<uint16_t>(tickMs % kReqIDModulus);
}

GVCP_CMD_HEADER EncodeDiscoveryCmd(uint16_t reqId)
{
    return MakeCmdHeader(GVCP_FLAG_ACK_REQUIRED | GVCP_FLAG_BROADCAST_ACK, GVCP_DISCOVERY_CMD, 0, reqId);
}

size_t EncodeReadRegCmd(uint8_t* out, const uint32_t* addrs, size_t count, uint16_t reqId)
{
    READREG_CMD& command = *reinterpret_cast<READREG_CMD*>(out);
    for (size_t i = 0; i < count; ++i) {
        command.adwAddress[i] = htonl(addrs[i]);
    }
    return WithHeader(command, GVCP_FLAG_ACK_REQUIRED, GVCP_READREG_CMD,
                      offsetof(READREG_CMD, adwAddress) + count * sizeof(uint32_t), reqId);
}

// Values go out as the caller holds them: register words stay in network order.
size_t EncodeWriteRegCmd(uint8_t* out, const uint32_t* addrs, const uint32_t* values, size_t count, uint16_t reqId)
{
    WRITEREG_CMD& command = *reinterpret_cast<WRITEREG_CMD*>(out);
    for (size_t i = 0; i < count; ++i) {
        command.astEntry[i].dwAddress = htonl(addrs[i]);
        command.astEntry[i].dwValue = values[i];
    }
    return WithHeader(command, GVCP_FLAG_ACK_REQUIRED, GVCP_WRITEREG_CMD,
                      offsetof(WRITEREG_CMD, astEntry) + count * sizeof(WRITEREG_ENTRY), reqId);
}

size_t EncodeReadMemCmd(uint8_t* out, uint32_t addr, uint16_t count, uint16_t reqId)
{
    READMEM_CMD& command = *reinterpret_cast<READMEM_CMD*>(out);
    command.dwAddress = htonl(addr);
    command.wReserved = 0;
    command.wCount = htons(count);
    return WithHeader(command, GVCP_FLAG_ACK_REQUIRED, GVCP_READMEM_CMD, sizeof(command), reqId);
}

size_t EncodeWriteMemCmd(uint8_t* out, uint32_t addr, const uint8_t* data, size_t count, uint16_t reqId)
{
    WRITEMEM_CMD_HEADER& command = *reinterpret_cast<WRITEMEM_CMD_HEADER*>(out);
    command.dwAddress = htonl(addr);
    memcpy(out + sizeof(command), data, count);
    return WithHeader(command, GVCP_FLAG_ACK_REQUIRED, GVCP_WRITEMEM_CMD, sizeof(command) + count, reqId);
}

FORCEIP_CMD EncodeForceIPCmd(const uint8_t* mac, uint16_t reqId)
{
    FORCEIP_CMD command;
    memset(&command, 0, sizeof(command));
    WithHeader(command, GVCP_FLAG_ACK_REQUIRED, GVCP_FORCEIP_CMD, sizeof(command), reqId);
    memcpy(command.aMAC, mac, sizeof(command.aMAC));
    return command;
}

FORCEIP_CMD EncodeStaticForceIPCmd(const uint8_t* mac, uint32_t ip, uint32_t mask, uint32_t gateway, uint16_t reqId)
{
    FORCEIP_CMD command = EncodeForceIPCmd(mac, reqId);
    command.stHeader.cFlag = GVCP_FLAG_ACK_REQUIRED | GVCP_FLAG_BROADCAST_ACK;
    command.dwStaticIP = htonl(ip);
    command.dwStaticSubnetMask = htonl(mask);
    command.dwStaticGateway = htonl(gateway);
    return command;
}

FORCEIP_EX_CMD_DEF EncodeForceIPExCmd(const FORCEIP_EX_FIELDS& fields)
{
    FORCEIP_EX_CMD_DEF command;
    memset(&command, 0, sizeof(command));
    WithHeader(command, GVCP_FLAG_ACK_REQUIRED | GVCP_FLAG_BROADCAST_ACK, GVCP_FORCEIP_EX_CMD, sizeof(command),
               fields.nReqID);
    memcpy(command.aMAC, fields.aMAC, sizeof(command.aMAC));
    command.dwIPConfig = htonl(fields.nIPConfig);
    command.dwResetValue = htonl(fields.nResetValue);
    command.dwIP = htonl(fields.nIP);
    command.dwSubnetMask = htonl(fields.nSubnetMask);
    command.dwGateway = htonl(fields.nGateway);
    memcpy(command.szText, fields.szText, sizeof(command.szText));
    return command;
}

FORCEIP_EX_FIELDS DecodeForceIPExCmd(const FORCEIP_EX_CMD_DEF& command)
{
    FORCEIP_EX_FIELDS fields;
    fields.nReqID = ntohs(command.stHeader.wReqID);
    memcpy(fields.aMAC, command.aMAC, sizeof(fields.aMAC));
    fields.nIPConfig = ntohl(command.dwIPConfig);
    fields.nResetValue = ntohl(command.dwResetValue);
    fields.nIP = ntohl(command.dwIP);
    fields.nSubnetMask = ntohl(command.dwSubnetMask);
    fields.nGateway = ntohl(command.dwGateway);
    memcpy(fields.szText, command.szText, sizeof(fields.szText));
    return fields;
}

GVCP_REJECTION DecodeAck(const uint8_t* data, size_t size, uint16_t ack, uint16_t reqId, GVCP_ACK_FIELDS& out)
{
    if (size < sizeof(GVCP_ACK_HEADER)) {
        return GVCP_REJECT_LENGTH;
    }
    GVCP_ACK_HEADER header;
    memcpy(&header, data, sizeof(header));
    out = GVCP_ACK_FIELDS{ntohs(header.wStatus), ntohs(header.wAck), ntohs(header.wLength), ntohs(header.wAckID)};
    if (out.nAck != ack) {
        return GVCP_REJECT_ACK_CODE;
    }
    return out.nAckID == reqId ? GVCP_ACCEPTED : GVCP_REJECT_ACK_ID;
}

// A longer datagram is judged by its first 256 bytes; the status is not examined.
GVCP_REJECTION DecodeDiscoveryAck(const uint8_t* data, size_t size, uint16_t reqId)
{
    if (size < sizeof(ZQ_DISCOVERY_ACK)) {
        return GVCP_REJECT_LENGTH;
    }
    GVCP_ACK_FIELDS header;
    return DecodeAck(data, size, GVCP_DISCOVERY_ACK, reqId, header);
}

DISCOVERY_RECORD DecodeDiscoveryRecord(const ZQ_DISCOVERY_ACK& ack)
{
    DISCOVERY_RECORD record;
    record.nSpecVersionMajor = ntohs(ack.wSpecVersionMajor);
    record.nSpecVersionMinor = ntohs(ack.wSpecVersionMinor);
    record.nDeviceMode = ntohl(ack.dwDeviceMode);
    memcpy(record.aMAC, ack.aMAC, sizeof(record.aMAC));
    record.nIPConfigOptions = ntohl(ack.dwIPConfigOptions);
    record.nIPConfigCurrent = ntohl(ack.dwIPConfigCurrent);
    record.nIP = ntohl(ack.dwCurrentIP);
    record.nSubnetMask = ntohl(ack.dwCurrentSubnetMask);
    record.nGateway = ntohl(ack.dwDefaultGateway);
    record.strManufacturerName = WireText(ack.szManufacturerName);
    record.strModelName = WireText(ack.szModelName);
    record.strDeviceVersion = WireText(ack.szDeviceVersion);
    record.strManufacturerSpecificInfo = WireText(ack.szManufacturerSpecificInfo);
    record.strSerialNumber = WireText(ack.szSerialNumber);
    record.strUserDefinedName = WireText(ack.szUserDefinedName);
    record.nRestartAndResetFeature = static_cast<uint8_t>(ack.szManufacturerSpecificInfo[0]);
    return record;
}

// At most GVCP_READREG_MAX values, however long the datagram.
size_t DecodeReadRegAck(const uint8_t* data, size_t size, uint32_t* networkOrderValues)
{
    const size_t limit = size < sizeof(READREG_ACK) ? size : sizeof(READREG_ACK);
    const size_t count = limit < sizeof(GVCP_ACK_HEADER) ? 0 : (limit - sizeof(GVCP_ACK_HEADER)) / sizeof(uint32_t);
    memcpy(networkOrderValues, data + offsetof(READREG_ACK, adwValue), count * sizeof(uint32_t));
    return count;
}

size_t DecodeReadMemAck(const uint8_t* data, size_t size, const uint8_t** payload)
{
    *payload = data + sizeof(READMEM_ACK_HEADER);
    return size > sizeof(READMEM_ACK_HEADER) ? size - sizeof(READMEM_ACK_HEADER) : 0;
}

// Bytes a short acknowledge lacks read as 0.
uint16_t DecodeWriteAck(const uint8_t* data, size_t size)
{
    WRITE_ACK ack;
    memset(&ack, 0, sizeof(ack));
    memcpy(&ack, data, size < sizeof(ack) ? size : sizeof(ack));
    return ntohs(ack.wIndex);
}

GVCP_REJECTION DecodeForceIPExAck(const uint8_t* data, size_t size, uint16_t reqId, GVCP_ACK_FIELDS& out)
{
    return DecodeHeaderOnlyAck(data, size, GVCP_FORCEIP_EX_ACK, reqId, out);
}

GVCP_REJECTION DecodeForceIPAck(const uint8_t* data, size_t size, uint16_t reqId, GVCP_ACK_FIELDS& out)
{
    return DecodeHeaderOnlyAck(data, size, GVCP_FORCEIP_ACK, reqId, out);
}

} // namespace Client
} // namespace GenICam
