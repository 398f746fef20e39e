#pragma once

#include <string>

namespace GenICam {
namespace Client {

// An address label such as "eth3:1" belongs to the kernel link "eth3"; a plain name is its own link.
inline std::string DeviceNameOf(const std::string& label)
{
    return label.substr(0, label.find(':'));
}

} // namespace Client
} // namespace GenICam
