#include "common/Helper.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/StopToken.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

namespace GenICam {
namespace Client {
namespace Helper {

namespace {

// "User" + a double-byte quotation mark (A1 AE) + "s Buffer is too small."
const char kSetReturnParam[] = "SetReturnParam";
const char kBufferTooSmall[] = "User\xA1\xAEs Buffer is too small.";

void CheckPointers(const int* pType, const size_t* pSize, const char* sizeMessage)
{
    if (pType == nullptr) {
        APP_THROW_AS(kSetReturnParam, GC_ERR_INVALID_PARAMETER, "Invalid Point of pType.");
    }
    if (pSize == nullptr) {
        APP_THROW_AS(kSetReturnParam, GC_ERR_INVALID_PARAMETER, sizeMessage);
    }
}

void Deliver(void* buffer, size_t* pSize, const void* data, size_t needed)
{
    if (buffer != nullptr) {
        if (*pSize < needed) {
            APP_THROW_AS(kSetReturnParam, GC_ERR_INVALID_PARAMETER, kBufferTooSmall);
        }
        memcpy(buffer, data, needed);
    }
    *pSize = needed;
}

} // namespace

std::string MsgComposer(const char* format, ...)
{
    char buffer[1024] = {0};
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    return buffer;
}

void SetReturnParam(void* buffer, size_t* pSize, int* pType, int type, const void* data, size_t dataSize)
{
    if (data == nullptr) {
        APP_THROW_AS(kSetReturnParam, GC_ERR_ERROR, "unexpected Error.");
    }
    CheckPointers(pType, pSize, "Invalid Point of Size.");
    *pType = type;
    Deliver(buffer, pSize, data, dataSize);
}

void SetReturnParam(void* buffer, size_t* pSize, int* pType, const std::string& value)
{
    CheckPointers(pType, pSize, "Invalid Point of pSize.");
    *pType = INFO_DATATYPE_STRING;
    Deliver(buffer, pSize, value.c_str(), value.size() + 1);
}

void SetReturnParam(void* buffer, size_t* pSize, int* pType, int value)
{
    CheckPointers(pType, pSize, "Invalid Point of Size.");
    *pType = INFO_DATATYPE_INT32;
    Deliver(buffer, pSize, &value, sizeof(value));
}

std::string CheckStrLen(const char* s, size_t maxLen, bool truncate)
{
    size_t n = 0;
    while (n < maxLen && s[n] != '\0') {
        ++n;
    }
    // Looks one byte past the limit on purpose: a terminator there lets the whole text pass.
    if (s[n] == '\0') {
        return s;
    }
    if (!truncate) {
        return std::string();
    }
    std::vector<char> copy(maxLen + 5, '\0');
    memcpy(copy.data(), s, maxLen);
    copy[maxLen] = '\0';
    return copy.data();
}

size_t charTowchar(const char* src, wchar_t* dst, int dstBytes)
{
    return mbstowcs(dst, src, dstBytes / 4);
}

// Reads CLOCK_MONOTONIC, not the wall clock: a clock stepped by time sync must not cut a time-out.
uint64_t GetSystemCounterMs()
{
    return MonotonicMs();
}

std::string tolower(const std::string& s)
{
    std::ostringstream out;
    for (unsigned char c : s) {
        out << static_cast<char>(std::tolower(c));
    }
    return out.str();
}

std::string toupper(const std::string& s)
{
    std::ostringstream out;
    for (unsigned char c : s) {
        out << static_cast<char>(std::toupper(c));
    }
    return out.str();
}

} // namespace Helper
} // namespace Client
} // namespace GenICam
