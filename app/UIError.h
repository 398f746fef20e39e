#pragma once

#include <string>

// The tool's place for a last user-facing error.
class CGuiError {
public:
    static std::string& GetLastErrorInfo();
    static void SetSuccessStatus(bool success);
    static bool IsSuccess();
    static void Reset();

private:
    static std::string ms_strLastErrorInfo;
    static bool ms_bSuccess;
};
