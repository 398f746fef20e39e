#pragma once

#include "gvcp/GvcpProtocol.h"

#include <cstddef>
#include <cstdint>
#include <string>

// Builds and reads GVCP packets: bytes in, fields or a rejection out. No I/O, no clock, no throw;
// the ports only move the bytes.
namespace GenICam {
namespace Client {

// Why an acknowledge is not the one awaited.
enum GVCP_REJECTION {
    GVCP_ACCEPTED = 0,
    GVCP_REJECT_LENGTH,
    GVCP_REJECT_ACK_CODE,
    GVCP_REJECT_ACK_ID,
};

// Host-order fields of an acknowledge header.
struct GVCP_ACK_FIELDS {
    uint16_t nStatus;
    uint16_t nAck;
    uint16_t nLength;
    uint16_t nAckID;
};

// The discovery record in host order; texts end at their first NUL or at the field's width.
struct DISCOVERY_RECORD {
    uint16_t nSpecVersionMajor;
    uint16_t nSpecVersionMinor;
    uint32_t nDeviceMode;
    uint8_t aMAC[6];
    uint32_t nIPConfigOptions;
    uint32_t nIPConfigCurrent;
    uint32_t nIP;
    uint32_t nSubnetMask;
    uint32_t nGateway;
    std::string strManufacturerName;
    std::string strModelName;
    std::string strDeviceVersion;
    std::string strManufacturerSpecificInfo;
    std::string strSerialNumber;
    std::string strUserDefinedName;
    uint8_t nRestartAndResetFeature;
};

// The custom command 0x9000 in host order; addresses are numbers, the text 16 raw bytes.
struct FORCEIP_EX_FIELDS {
    uint16_t nReqID;
    uint8_t aMAC[6];
    uint32_t nIPConfig;
    uint32_t nResetValue;
    uint32_t nIP;
    uint32_t nSubnetMask;
    uint32_t nGateway;
    char szText[16];
};

// Request ids. A port counts on from a seed and skips 0 and 1 after 0xFFFF; the force-IP
// commands take the tick count. Both reduce modulo 65535, not 65536.
uint16_t GvcpSeedReqID(int random);
uint16_t GvcpNextReqID(uint16_t current);
uint16_t GvcpTickReqID(uint64_t tickMs);

// Commands; each returns the packet length written to out (GVCP_PACKET_MAX bytes at most).
GVCP_CMD_HEADER EncodeDiscoveryCmd(uint16_t reqId);
size_t EncodeReadRegCmd(uint8_t* out, const uint32_t* addrs, size_t count, uint16_t reqId);
size_t EncodeWriteRegCmd(uint8_t* out, const uint32_t* addrs, const uint32_t* values, size_t count, uint16_t reqId);
size_t EncodeReadMemCmd(uint8_t* out, uint32_t addr, uint16_t count, uint16_t reqId);
size_t EncodeWriteMemCmd(uint8_t* out, uint32_t addr, const uint8_t* data, size_t count, uint16_t reqId);
FORCEIP_CMD EncodeForceIPCmd(const uint8_t* mac, uint16_t reqId);
// FORCEIP that carries an address: acknowledged, by broadcast while the device is elsewhere.
FORCEIP_CMD EncodeStaticForceIPCmd(const uint8_t* mac, uint32_t ip, uint32_t mask, uint32_t gateway, uint16_t reqId);
FORCEIP_EX_CMD_DEF EncodeForceIPExCmd(const FORCEIP_EX_FIELDS& fields);
FORCEIP_EX_FIELDS DecodeForceIPExCmd(const FORCEIP_EX_CMD_DEF& command);

// Acknowledges. DecodeAck accepts a header of the awaited code and id; the payload readers
// take only what arrived.
GVCP_REJECTION DecodeAck(const uint8_t* data, size_t size, uint16_t ack, uint16_t reqId, GVCP_ACK_FIELDS& out);
GVCP_REJECTION DecodeDiscoveryAck(const uint8_t* data, size_t size, uint16_t reqId);
DISCOVERY_RECORD DecodeDiscoveryRecord(const ZQ_DISCOVERY_ACK& ack);
size_t DecodeReadRegAck(const uint8_t* data, size_t size, uint32_t* networkOrderValues);
size_t DecodeReadMemAck(const uint8_t* data, size_t size, const uint8_t** payload);
uint16_t DecodeWriteAck(const uint8_t* data, size_t size);
GVCP_REJECTION DecodeForceIPExAck(const uint8_t* data, size_t size, uint16_t reqId, GVCP_ACK_FIELDS& out);
GVCP_REJECTION DecodeForceIPAck(const uint8_t* data, size_t size, uint16_t reqId, GVCP_ACK_FIELDS& out);

} // namespace Client
} // namespace GenICam
