#pragma once

#include <cstddef>

namespace GenICam {
namespace Client {

// Platform services. Final because its destructor is not virtual: it is destroyed by its own type.
class CLinuxAPI final {
public:
    // Linux has no string resources: loads nothing and reports one character.
    virtual int LoadString(unsigned int id, char* buffer, size_t size);
};

} // namespace Client
} // namespace GenICam
