#pragma once

#include <arpa/inet.h>
#include <cstdint>

// GVCP wire layouts. Every multi-byte field holds network byte order; convert at the edge.
namespace GenICam {
namespace Client {

enum : uint16_t {
    GVCP_PORT = 3956,
    GVCP_DISCOVERY_PORT_LOCAL = 59001,
    GVCP_FORCEIP_PORT_LOCAL = 59002,
    GVCP_FORCEIP_EX_PORT_LOCAL = 59003,
    GVCP_CUSTOM_PORT_LOCAL = 59004,
};

enum : uint8_t {
    GVCP_KEY = 0x42,
    GVCP_FLAG_ACK_REQUIRED = 0x01,
    GVCP_FLAG_BROADCAST_ACK = 0x10,
};

enum : uint16_t {
    GVCP_DISCOVERY_CMD = 0x0002,
    GVCP_DISCOVERY_ACK = 0x0003,
    GVCP_FORCEIP_CMD = 0x0004,
    GVCP_FORCEIP_ACK = 0x0005,
    GVCP_READREG_CMD = 0x0080,
    GVCP_READREG_ACK = 0x0081,
    GVCP_WRITEREG_CMD = 0x0082,
    GVCP_WRITEREG_ACK = 0x0083,
    GVCP_READMEM_CMD = 0x0084,
    GVCP_READMEM_ACK = 0x0085,
    GVCP_WRITEMEM_CMD = 0x0086,
    GVCP_WRITEMEM_ACK = 0x0087,
    GVCP_FORCEIP_EX_CMD = 0x9000,
    GVCP_FORCEIP_EX_ACK = 0x9001,
};

// Control-channel limits: the largest packet either way and what fits in it.
enum : unsigned int {
    GVCP_PACKET_MAX = 576,
    GVCP_READREG_MAX = 135,
    GVCP_WRITEREG_MAX = 67,
    GVCP_MEM_BLOCK_MAX = 512,
    GVCP_REG_CCP = 0x0A00,
};

// Bootstrap registers and bits of the standard way to keep an address across restarts.
enum : uint32_t {
    GVCP_REG_IP_CONFIG_OPTIONS = 0x0010,
    GVCP_REG_IP_CONFIG_CURRENT = 0x0014,
    GVCP_REG_PERSISTENT_IP = 0x064C,
    GVCP_REG_PERSISTENT_MASK = 0x065C,
    GVCP_REG_PERSISTENT_GATEWAY = 0x066C,
    GVCP_IP_CONFIG_PERSISTENT = 0x1,
};

enum : uint16_t {
    GVCP_STATUS_SUCCESS = 0x0000,
    GVCP_STATUS_NOT_IMPLEMENTED = 0x8001,
    GVCP_STATUS_ACCESS_DENIED = 0x8006,
    GVCP_STATUS_FORCEIP_FORBIDDEN = 0x8002,
};

#pragma pack(push, 1)

struct GVCP_CMD_HEADER {
    uint8_t cKey;
    uint8_t cFlag;
    uint16_t wCommand;
    uint16_t wLength;
    uint16_t wReqID;
};
static_assert(sizeof(GVCP_CMD_HEADER) == 8, "GVCP command header");

struct GVCP_ACK_HEADER {
    uint16_t wStatus;
    uint16_t wAck;
    uint16_t wLength;
    uint16_t wAckID;
};
static_assert(sizeof(GVCP_ACK_HEADER) == 8, "GVCP acknowledge header");

// The whole discovery acknowledge; texts are NUL-padded and need not end in a NUL when full.
struct ZQ_DISCOVERY_ACK {
    GVCP_ACK_HEADER stHeader;
    uint16_t wSpecVersionMajor;
    uint16_t wSpecVersionMinor;
    uint32_t dwDeviceMode;
    uint16_t wReserved1;
    uint8_t aMAC[6];
    uint32_t dwIPConfigOptions;
    uint32_t dwIPConfigCurrent;
    uint8_t aReserved2[12];
    uint32_t dwCurrentIP;
    uint8_t aReserved3[12];
    uint32_t dwCurrentSubnetMask;
    uint8_t aReserved4[12];
    uint32_t dwDefaultGateway;
    char szManufacturerName[32];
    char szModelName[32];
    char szDeviceVersion[32];
    char szManufacturerSpecificInfo[48];
    char szSerialNumber[16];
    char szUserDefinedName[16];
};
static_assert(sizeof(ZQ_DISCOVERY_ACK) == 256, "discovery acknowledge");

struct FORCEIP_CMD {
    GVCP_CMD_HEADER stHeader;
    uint16_t wReserved1;
    uint8_t aMAC[6];
    uint8_t aReserved2[12];
    uint32_t dwStaticIP;
    uint8_t aReserved3[12];
    uint32_t dwStaticSubnetMask;
    uint8_t aReserved4[12];
    uint32_t dwStaticGateway;
};
static_assert(sizeof(FORCEIP_CMD) == 64, "FORCEIP command");

// The vendor's custom command 0x9000: extended force-IP and reset share this layout.
struct FORCEIP_EX_CMD_DEF {
    GVCP_CMD_HEADER stHeader;
    uint16_t wReserved1;
    uint8_t aMAC[6];
    uint32_t dwIPConfig;
    uint32_t dwResetValue;
    uint8_t aReserved2[8];
    uint32_t dwIP;
    uint8_t aReserved3[12];
    uint32_t dwSubnetMask;
    uint8_t aReserved4[12];
    uint32_t dwGateway;
    char szText[16];
};
static_assert(sizeof(FORCEIP_EX_CMD_DEF) == 84, "custom command");

// Register commands and the READREG acknowledge carry a variable count; the arrays hold the most.
struct READREG_CMD {
    GVCP_CMD_HEADER stHeader;
    uint32_t adwAddress[GVCP_READREG_MAX];
};
static_assert(sizeof(READREG_CMD) == 8 + 4 * 135, "READREG command");

struct READREG_ACK {
    GVCP_ACK_HEADER stHeader;
    uint32_t adwValue[GVCP_READREG_MAX];
};
static_assert(sizeof(READREG_ACK) == 8 + 4 * 135, "READREG acknowledge");

struct WRITEREG_ENTRY {
    uint32_t dwAddress;
    uint32_t dwValue;
};
static_assert(sizeof(WRITEREG_ENTRY) == 8, "WRITEREG entry");

struct WRITEREG_CMD {
    GVCP_CMD_HEADER stHeader;
    WRITEREG_ENTRY astEntry[GVCP_WRITEREG_MAX];
};
static_assert(sizeof(WRITEREG_CMD) == 8 + 8 * 67, "WRITEREG command");

struct READMEM_CMD {
    GVCP_CMD_HEADER stHeader;
    uint32_t dwAddress;
    uint16_t wReserved;
    uint16_t wCount;
};
static_assert(sizeof(READMEM_CMD) == 16, "READMEM command");

// WRITEMEM command and READMEM acknowledge: a header, an address, then the data.
struct WRITEMEM_CMD_HEADER {
    GVCP_CMD_HEADER stHeader;
    uint32_t dwAddress;
};
static_assert(sizeof(WRITEMEM_CMD_HEADER) == 12, "WRITEMEM command header");

struct READMEM_ACK_HEADER {
    GVCP_ACK_HEADER stHeader;
    uint32_t dwAddress;
};
static_assert(sizeof(READMEM_ACK_HEADER) == 12, "READMEM acknowledge header");

// WRITEREG and WRITEMEM acknowledges.
struct WRITE_ACK {
    GVCP_ACK_HEADER stHeader;
    uint16_t wReserved;
    uint16_t wIndex;
};
static_assert(sizeof(WRITE_ACK) == 12, "write acknowledge");

#pragma pack(pop)

static_assert(sizeof(WRITEREG_CMD) <= GVCP_PACKET_MAX && sizeof(READREG_ACK) <= GVCP_PACKET_MAX &&
                  sizeof(READMEM_ACK_HEADER) + GVCP_MEM_BLOCK_MAX <= GVCP_PACKET_MAX,
              "control packets fit the port's buffers");

// A command header from host-order values.
inline GVCP_CMD_HEADER MakeCmdHeader(uint8_t flags, uint16_t command, uint16_t length, uint16_t reqId)
{
    return GVCP_CMD_HEADER{GVCP_KEY, flags, htons(command), htons(length), htons(reqId)};
}

} // namespace Client
} // namespace GenICam
