#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// Packets written out by hand, offset by offset, so a layout slip in the product cannot hide here.
namespace aictest {

inline void PutBe16(std::vector<uint8_t>& bytes, size_t offset, uint16_t value)
{
    bytes.at(offset) = static_cast<uint8_t>(value >> 8);
    bytes.at(offset + 1) = static_cast<uint8_t>(value);
}

inline void PutBe32(std::vector<uint8_t>& bytes, size_t offset, uint32_t value)
{
    PutBe16(bytes, offset, static_cast<uint16_t>(value >> 16));
    PutBe16(bytes, offset + 2, static_cast<uint16_t>(value));
}

// A GVCP acknowledge: status, ack code, length field = payload size, ack id, then the payload.
inline std::vector<uint8_t> MakeAck(uint16_t status, uint16_t ack, uint16_t ackId, const std::vector<uint8_t>& payload)
{
    std::vector<uint8_t> bytes(8 + payload.size());
    PutBe16(bytes, 0, status);
    PutBe16(bytes, 2, ack);
    PutBe16(bytes, 4, static_cast<uint16_t>(payload.size()));
    PutBe16(bytes, 6, ackId);
    for (size_t i = 0; i < payload.size(); ++i) {
        bytes[8 + i] = payload[i];
    }
    return bytes;
}

// A GVCP command: its header differs from an acknowledge's only in the first word (0x42, flags).
inline std::vector<uint8_t> MakeCommand(uint8_t flags, uint16_t command, uint16_t reqId,
                                        const std::vector<uint8_t>& payload)
{
    return MakeAck(static_cast<uint16_t>(0x4200 | flags), command, reqId, payload);
}

// What a camera reports in its discovery acknowledge.
struct CameraModel {
    std::string manufacturer = "AIC Test";
    std::string model = "AIC-CAM";
    std::string serial = "SN0001";
    std::string version = "1.0";
    std::string userName;
    std::array<uint8_t, 6> mac{{0x00, 0x11, 0x1C, 0x01, 0x02, 0x03}};
    uint32_t ip = 0x0A4D0002; // host order
    uint32_t mask = 0xFFFFFF00;
    uint32_t gateway = 0;
    uint8_t featureByte = 0; // first manufacturer-specific byte
};

// The 256-byte discovery acknowledge of model answering request id ackId.
inline std::vector<uint8_t> MakeDiscoveryAck(const CameraModel& model, uint16_t ackId)
{
    std::vector<uint8_t> payload(248);
    const auto text = [&payload](size_t offset, size_t width, const std::string& value) {
        memcpy(payload.data() + offset, value.data(), value.size() < width ? value.size() : width);
    };
    PutBe16(payload, 0, 2); // version 2.0
    PutBe32(payload, 4, 0x80000001);
    memcpy(payload.data() + 10, model.mac.data(), 6);
    PutBe32(payload, 16, 0x80000007);
    PutBe32(payload, 20, 0x80000005);
    PutBe32(payload, 36, model.ip);
    PutBe32(payload, 52, model.mask);
    PutBe32(payload, 68, model.gateway);
    text(72, 32, model.manufacturer);
    text(104, 32, model.model);
    text(136, 32, model.version);
    payload[168] = model.featureByte;
    text(216, 16, model.serial);
    text(232, 16, model.userName);
    return MakeAck(0, 0x0003, ackId, payload);
}

} // namespace aictest
