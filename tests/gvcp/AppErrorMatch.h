#pragma once

#include "common/Exception.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace aictest {

// Runs action and checks that it raises a CAppException with this code, throwing operation and message.
inline ::testing::AssertionResult RaisesApp(const std::function<void()>& action, int code,
                                            const std::string& function, const std::string& message)
{
    try {
        action();
    } catch (GenICam::Client::CAppException& e) {
        const std::string text = e.what();
        const std::string head = "{" + std::to_string(code) + "}{" + function + ":line[";
        const std::string tail = "]}{" + message + "}";
        if (e.GetErrorCode() == code && text.rfind(head, 0) == 0 && text.size() > head.size() + tail.size() &&
            text.compare(text.size() - tail.size(), tail.size(), tail) == 0) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "raised " << text;
    } catch (std::exception& e) {
        return ::testing::AssertionFailure() << "raised std::exception " << e.what();
    }
    return ::testing::AssertionFailure() << "raised nothing";
}

} // namespace aictest
