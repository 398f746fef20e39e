#pragma once

#include <string>

namespace aictest {

// Error texts carry the throw's source line ("line[123]"), which no test should pin: gives "line[]".
inline std::string WithoutLine(std::string text)
{
    for (size_t at = text.find("line["); at != std::string::npos; at = text.find("line[", at + 1)) {
        text.erase(at + 5, text.find(']', at) - at - 5);
    }
    return text;
}

} // namespace aictest
