#include "common/InstanceFactory.h"

#include "common/LinuxAPI.h"

namespace GenICam {
namespace Client {

CLinuxAPI* CInstanceFactory::CreateLinuxAPIIntstance()
{
    return new CLinuxAPI();
}

void CInstanceFactory::DestoryLinuxAPIIntstance(CLinuxAPI* api)
{
    delete api;
}

} // namespace Client
} // namespace GenICam
