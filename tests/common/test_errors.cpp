#include "common/Exception.h"
#include "common/Helper.h"
#include "common/TLIError.h"

#include <gtest/gtest.h>
#include <thread>

using namespace GenICam::Client;

TEST(AppException, ComposesCodeFunctionLineAndMessage)
{
    CAppException e("__CheckAddr", 133, -1015, "ui64Addr = 0x3,is not multiple of 4.");
    EXPECT_EQ(e.GetErrorCode(), -1015);
    EXPECT_STREQ(e.what(), "{-1015}{__CheckAddr:line[133]}{ui64Addr = 0x3,is not multiple of 4.}");
    // Held as a std::exception the composed text is not visible: what() does not override.
    std::exception& base = e;
    EXPECT_STRNE(base.what(), e.what());
}

TEST(TLIError, SizeQueryExactAndShortBuffers)
{
    CTLIError* error = CTLIError::GetInstance();
    int code = 99;
    size_t size = 0;
    ASSERT_EQ(error->GetErrTxt(&code, nullptr, &size), 0);
    EXPECT_EQ(size, 30u);
    EXPECT_EQ(code, 0);

    char exact[30];
    EXPECT_EQ(error->GetErrTxt(&code, exact, &size), 0);
    EXPECT_STREQ(exact, "[0]TLError{No error occurred}");

    size = 29;
    EXPECT_EQ(error->GetErrTxt(&code, exact, &size), -1009);
    EXPECT_EQ(size, 30u);
    EXPECT_EQ(error->GetErrTxt(nullptr, exact, &size), -1009);
    EXPECT_EQ(error->GetErrTxt(&code, exact, nullptr), -1009);
}

TEST(TLIError, NullTextKeepsTextAndEachThreadHasItsOwn)
{
    CTLIError::GetInstance()->SetErrTxt(-1011, "Timeout!");
    CTLIError::GetInstance()->SetErrTxt(-1010, nullptr);
    char text[64];
    size_t size = sizeof(text);
    int code = 0;
    CTLIError::GetInstance()->GetErrTxt(&code, text, &size);
    EXPECT_EQ(code, -1010);
    EXPECT_STREQ(text, "Timeout!");

    std::thread([] {
        char other[64];
        size_t otherSize = sizeof(other);
        int otherCode = 5;
        CTLIError::GetInstance()->GetErrTxt(&otherCode, other, &otherSize);
        EXPECT_EQ(otherCode, 0);
        EXPECT_STREQ(other, "[0]TLError{No error occurred}");
    }).join();
}

// Runs a SetReturnParam call and returns the exception text, or "" when it did not throw.
template <typename Call>
std::string ThrownText(Call call)
{
    try {
        call();
    } catch (CAppException& e) {
        return e.what();
    }
    return "";
}

TEST(SetReturnParam, RejectsBadArgumentsWithTheirTexts)
{
    int type = 0;
    size_t three = 3;
    int buffer = 0;
    const struct {
        std::string thrown;
        const char* expected;
    } cases[] = {
        {ThrownText([&] { Helper::SetReturnParam(&buffer, &three, &type, 5); }),
         "User\xA1\xAEs Buffer is too small."},
        {ThrownText([&] { Helper::SetReturnParam(&buffer, &three, &type, std::string("abcd")); }),
         "User\xA1\xAEs Buffer is too small."},
        {ThrownText([&] { Helper::SetReturnParam(&buffer, &three, nullptr, 5); }), "Invalid Point of pType."},
        {ThrownText([&] { Helper::SetReturnParam(&buffer, nullptr, &type, 5); }), "Invalid Point of Size."},
        {ThrownText([&] { Helper::SetReturnParam(&buffer, nullptr, &type, std::string()); }),
         "Invalid Point of pSize."},
        {ThrownText([&] { Helper::SetReturnParam(&buffer, &three, &type, 1, nullptr, 1); }), "unexpected Error."},
    };
    for (const auto& c : cases) {
        EXPECT_NE(c.thrown.find(c.expected), std::string::npos) << c.thrown;
        EXPECT_EQ(c.thrown.find("{SetReturnParam:line["), c.thrown.find('}') + 1) << c.thrown;
    }
}

TEST(Helpers, FormattingAndTruncation)
{
    EXPECT_EQ(Helper::MsgComposer("%s", std::string(2000, 'x').c_str()).size(), 1023u);
    EXPECT_EQ(Helper::MsgComposer("{%d}{%s}", -1, "a"), "{-1}{a}");

    // CheckStrLen peeks one byte past the limit: a terminator there passes the whole text.
    EXPECT_EQ(Helper::CheckStrLen("abcd", 4, false), "abcd");
    const char five[6] = {'a', 'b', 'c', 'd', 'e', '\0'};
    EXPECT_EQ(Helper::CheckStrLen(five, 4, false), "");
    EXPECT_EQ(Helper::CheckStrLen(five, 4, true), "abcd");
}
