#pragma once

#include <boost/thread/tss.hpp>
#include <cstddef>
#include <string>

namespace GenICam {
namespace Client {

// The last error of the calling thread; each thread sees only its own.
class CTLIError {
public:
    CTLIError();

    static CTLIError* GetInstance();

    void SetErrTxt(int code, const char* text);
    int GetErrTxt(int* piError, char* buffer, size_t* pSize);

private:
    std::string m_text;
    int m_code;
};

extern boost::thread_specific_ptr<CTLIError> g_ptrTLIError;

} // namespace Client
} // namespace GenICam
