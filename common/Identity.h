#pragma once

#include <array>
#include <cstdint>
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

inline int HexDigitOf(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Made once, where the device model hands the camera over (every pass, for every camera: no sscanf);
// unreadable text leaves the bytes zero.
inline CAMERA_ID CameraIdOf(const std::string& text)
{
    CAMERA_ID id;
    id.strText = text;
    std::array<uint8_t, 6> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) {
        const size_t at = 3 * i;
        const int high = at + 1 < text.size() ? HexDigitOf(text[at]) : -1;
        const int low = at + 1 < text.size() ? HexDigitOf(text[at + 1]) : -1;
        if (high < 0 || low < 0 || (i < 5 && (at + 2 >= text.size() || text[at + 2] != '-'))) {
            return id;
        }
        bytes[i] = static_cast<uint8_t>(high * 16 + low);
    }
    id.aMAC = bytes;
    return id;
}

} // namespace Client
} // namespace GenICam
