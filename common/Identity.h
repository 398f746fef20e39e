#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <net/if.h>
#include <string>

namespace GenICam {
namespace Client {

// An address label such as "eth3:1" belongs to the kernel link "eth3"; a plain name is its own link.
inline std::string DeviceNameOf(const std::string& label)
{
    return label.substr(0, label.find(':'));
}

// An interface as every layer names it: the label the reports show, the kernel link it belongs to
// and that link's index.
struct INTERFACE_ID {
    std::string strLabel;     // kernel name or address label: eth3, eth3:1
    std::string strLink;      // eth3
    unsigned int nIndex = 0;  // 0: no such link (any more)
};

inline INTERFACE_ID InterfaceIdOf(const std::string& label)
{
    INTERFACE_ID id;
    id.strLabel = label;
    id.strLink = DeviceNameOf(label);
    id.nIndex = if_nametoindex(id.strLink.c_str());
    return id;
}

// A camera's key: its MAC as the link layer sees it and as the reports spell it.
struct CAMERA_ID {
    std::array<uint8_t, 6> aMAC{};
    std::string strText;  // 00-0F-31-AA-00-02
};

// Made once, where the device model hands the camera over; unreadable text leaves the bytes zero.
inline CAMERA_ID CameraIdOf(const std::string& text)
{
    CAMERA_ID id;
    id.strText = text;
    unsigned int bytes[6] = {0};
    if (sscanf(text.c_str(), "%2x-%2x-%2x-%2x-%2x-%2x", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
               &bytes[5]) == 6) {
        for (size_t i = 0; i < id.aMAC.size(); ++i) {
            id.aMAC[i] = static_cast<uint8_t>(bytes[i]);
        }
    }
    return id;
}

} // namespace Client
} // namespace GenICam
