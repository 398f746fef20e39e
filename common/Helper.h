#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace GenICam {
namespace Client {
namespace Helper {

// Information data types written through the type pointer of every GetInfo.
enum : int {
    INFO_DATATYPE_STRING = 1,
    INFO_DATATYPE_INT32 = 5,
};

// printf-style formatting; results longer than 1023 characters are cut.
std::string MsgComposer(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The information-query convention: a null buffer asks for type and size only.
void SetReturnParam(void* buffer, size_t* pSize, int* pType, int type, const void* data, size_t dataSize);
void SetReturnParam(void* buffer, size_t* pSize, int* pType, const std::string& value);
void SetReturnParam(void* buffer, size_t* pSize, int* pType, int value);

std::string CheckStrLen(const char* s, size_t maxLen, bool truncate);
size_t charTowchar(const char* src, wchar_t* dst, int dstBytes);

// Wall-clock milliseconds; every time-out loop measures with it.
uint64_t GetSystemCounterMs();

std::string tolower(const std::string& s);
std::string toupper(const std::string& s);

} // namespace Helper
} // namespace Client
} // namespace GenICam
