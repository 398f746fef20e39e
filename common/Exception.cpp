#include "common/Exception.h"

#include "common/Helper.h"

namespace GenICam {
namespace Client {

CAppException::CAppException(std::string function, unsigned int line, int code, std::string message)
    : m_code(code),
      m_text(Helper::MsgComposer("{%d}{%s:line[%d]}{%s}", code, function.c_str(), static_cast<int>(line),
                                 message.c_str()))
{
}

CAppException::CAppException(const CAppException& other)
    : std::exception(other), m_code(other.m_code), m_text(other.m_text)
{
}

CAppException& CAppException::operator=(const CAppException& other)
{
    if (this != &other) {
        m_code = other.m_code;
        m_text = other.m_text;
    }
    return *this;
}

CAppException::~CAppException() = default;

const char* CAppException::what()
{
    return m_text.c_str();
}

int CAppException::GetErrorCode()
{
    return m_code;
}

} // namespace Client
} // namespace GenICam
