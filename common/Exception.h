#pragma once

#include <exception>
#include <string>

namespace GenICam {
namespace Client {

// The one exception type of the system: a code and the text "{code}{function:line[n]}{message}".
class CAppException : public std::exception {
public:
    CAppException(std::string function, unsigned int line, int code, std::string message);
    CAppException(const CAppException& other);
    CAppException& operator=(const CAppException& other);
    ~CAppException() override;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
    // Deliberately non-const: a new virtual that hides std::exception::what(), so only holders
    // of the concrete type see the composed text.
    virtual const char* what();
#pragma GCC diagnostic pop
    virtual int GetErrorCode();

private:
    int m_code;
    std::string m_text;
};

// The text a CAppException carries, for the code that reports a failure without raising it.
std::string AppErrorText(const std::string& function, unsigned int line, int code, const std::string& message);

} // namespace Client
} // namespace GenICam

// Throws a CAppException named after the enclosing function (or the given name), at this line.
#define APP_THROW(code, message) \
    throw ::GenICam::Client::CAppException(__FUNCTION__, __LINE__, (code), (message))
#define APP_THROW_AS(function, code, message) \
    throw ::GenICam::Client::CAppException((function), __LINE__, (code), (message))
