#pragma once

#include "common/Exception.h"
#include "support/AppText.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace aictest {

// Runs action and checks that it raises a CAppException with this code, throwing operation and message.
inline ::testing::AssertionResult RaisesApp(const std::function<void()>& action, int code,
                                            const std::string& function, const std::string& message)
{
    const std::string expected = "{" + std::to_string(code) + "}{" + function + ":line[]}{" + message + "}";
    try {
        action();
    } catch (GenICam::Client::CAppException& e) {
        if (e.GetErrorCode() == code && WithoutLine(e.what()) == expected) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "raised " << e.what();
    }
    return ::testing::AssertionFailure() << "raised nothing";
}

} // namespace aictest
