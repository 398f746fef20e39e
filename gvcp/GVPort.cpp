#include "gvcp/GVPort.h"

#include "common/InstanceFactory.h"
#include "gvcp/GvcpCodec.h"
#include "gvcp/UdpComm.h"

#include <cstdint>
#include <cstdlib>

namespace GenICam {
namespace Client {

CGVPort::CGVPort(unsigned int ip, bool broadcast, std::string)
    : m_pAnyComm(CInstanceFactory::CreateUdpCommIntstance()),
      m_pComm(CInstanceFactory::CreateUdpCommIntstance()),
      m_nReqID(1)
{
    try {
        // Address reuse lets both endpoints share the port: broadcasts reach the wildcard one only.
        m_pAnyComm->Open(ip, GVCP_DISCOVERY_PORT_LOCAL, broadcast, true);
        m_pComm->Open(ip, GVCP_DISCOVERY_PORT_LOCAL, broadcast, false);
    } catch (...) {
        __ReleaseEndpoints();
        throw;
    }
    _ResetReqID();
}

CGVPort::~CGVPort()
{
    __ReleaseEndpoints();
}

void CGVPort::__ReleaseEndpoints()
{
    m_pAnyComm->Close();
    m_pComm->Close();
    CInstanceFactory::DestoryUdpCommIntstance(m_pAnyComm);
    CInstanceFactory::DestoryUdpCommIntstance(m_pComm);
    m_pAnyComm = nullptr;
    m_pComm = nullptr;
}

void CGVPort::GetHostPort(unsigned short& port)
{
    m_pComm->GetHostPort(port);
}

unsigned short CGVPort::_GetReqID()
{
    m_nReqID = GvcpNextReqID(m_nReqID);
    return m_nReqID;
}

void CGVPort::_ResetReqID()
{
    srand(static_cast<unsigned int>(reinterpret_cast<uintptr_t>(this)));
    m_nReqID = GvcpSeedReqID(rand());
}

} // namespace Client
} // namespace GenICam
