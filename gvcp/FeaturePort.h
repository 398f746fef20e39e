#pragma once

namespace GenICam {
namespace Client {

// Register and memory access to a device.
class IFeaturePort {
public:
    virtual ~IFeaturePort() = default;
    virtual void ReadRegList(unsigned long* addrs, unsigned int* values, unsigned long* count) = 0;
    virtual void WriteRegList(unsigned long* addrs, unsigned int* values, unsigned long* count) = 0;
    virtual void ReadMem(unsigned long addr, unsigned char* buffer, unsigned long* size) = 0;
    virtual void WriteMem(unsigned long addr, const unsigned char* buffer, unsigned long* size) = 0;
};

} // namespace Client
} // namespace GenICam
