#include "common/LinuxAPI.h"

namespace GenICam {
namespace Client {

int CLinuxAPI::LoadString(unsigned int, char*, size_t)
{
    return 1;
}

} // namespace Client
} // namespace GenICam
