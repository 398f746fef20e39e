#include "common/Exception.h"

namespace GenICam {
namespace Client {

std::string AppErrorText(const std::string& function, unsigned int line, int code, const std::string& message)
{
    return "{" + std::to_string(code) + "}{" + function + ":line[" + std::to_string(static_cast<int>(line)) + "]}{" +
           message + "}";
}

CAppException::CAppException(std::string function, unsigned int line, int code, std::string message)
    : m_code(code), m_text(AppErrorText(function, line, code, message))
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
