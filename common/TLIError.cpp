#include "common/TLIError.h"

#include "common/ErrorCodes.h"

#include <cstring>

namespace GenICam {
namespace Client {

boost::thread_specific_ptr<CTLIError> g_ptrTLIError;

CTLIError::CTLIError() : m_text("[0]TLError{No error occurred}"), m_code(GC_ERR_SUCCESS) {}

CTLIError* CTLIError::GetInstance()
{
    if (g_ptrTLIError.get() == nullptr) {
        g_ptrTLIError.reset(new CTLIError());
    }
    return g_ptrTLIError.get();
}

void CTLIError::SetErrTxt(int code, const char* text)
{
    m_code = code;
    if (text != nullptr) {
        m_text = text;
    }
}

int CTLIError::GetErrTxt(int* piError, char* buffer, size_t* pSize)
{
    if (piError == nullptr || pSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    const size_t needed = m_text.size() + 1;
    if (buffer != nullptr) {
        if (*pSize < needed) {
            *pSize = needed;
            return GC_ERR_INVALID_PARAMETER;
        }
        strncpy(buffer, m_text.c_str(), *pSize);
        buffer[m_text.size()] = '\0';
    }
    *pSize = needed;
    *piError = m_code;
    return GC_ERR_SUCCESS;
}

} // namespace Client
} // namespace GenICam
