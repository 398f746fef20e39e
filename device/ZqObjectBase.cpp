#include "device/ZqObjectBase.h"

namespace GenICam {
namespace Client {

CZqObjectBase::CZqObjectBase() : m_bSameIP(false) {}

CZqObjectBase::~CZqObjectBase() = default;

void CZqObjectBase::SetSameIPFlag(bool same)
{
    m_bSameIP = same;
}

bool CZqObjectBase::GetSameFlag() const
{
    return m_bSameIP;
}

} // namespace Client
} // namespace GenICam
