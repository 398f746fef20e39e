#include "app/UIError.h"

std::string CGuiError::ms_strLastErrorInfo;
bool CGuiError::ms_bSuccess = true;

std::string& CGuiError::GetLastErrorInfo()
{
    return ms_strLastErrorInfo;
}

void CGuiError::SetSuccessStatus(bool success)
{
    ms_bSuccess = success;
}

bool CGuiError::IsSuccess()
{
    return ms_bSuccess;
}

void CGuiError::Reset()
{
    ms_bSuccess = true;
    ms_strLastErrorInfo.clear();
}
