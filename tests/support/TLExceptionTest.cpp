// Exception reports: the logged line, the names given to exceptions, and
// the recognition of the Apple Events time-out.
#include "TLException.h"

#include "TLLog.h"

#include <gtest/gtest.h>

#include <stdexcept>

TEST(TLExceptionTest, LogExceptionWritesAndReturnsOneLine)
{
    TLLog::sharedController().setNoPrinting(false);
    testing::internal::CaptureStdout();
    const auto named = TLException::logException(
        TLNamedException("NSPortTimeoutException", "no answer in 600 s"), "TLAppleEvents::sendEvent");
    TLLog::finishWriting();
    const auto printed = testing::internal::GetCapturedStdout();
    TLLog::sharedController().setNoPrinting(true);

    EXPECT_EQ(named, "Exception in TLAppleEvents::sendEvent. NSPortTimeoutException - no answer in 600 s.");
    EXPECT_NE(printed.find(named), std::string::npos) << printed;

    EXPECT_EQ(TLException::logException(std::out_of_range("50% of %@"), "send"),
              "Exception in send. std::out_of_range - 50% of %@.");
    EXPECT_EQ(TLException::logException(std::make_exception_ptr(42), "load"),
              "Exception in load. UnknownException - no reason given.");
    EXPECT_EQ(TLException::logException(std::make_exception_ptr(std::logic_error("bad")), nullptr),
              "Exception in (null). std::logic_error - bad.");
}

TEST(TLExceptionTest, OnlyThePortTimeoutNameTimesOut)
{
    EXPECT_TRUE(TLException::didTimeout(TLNamedException("NSPortTimeoutException", "")));
    EXPECT_TRUE(TLException::didTimeout(
        std::make_exception_ptr(TLNamedException("NSPortTimeoutException", "late"))));

    EXPECT_FALSE(TLException::didTimeout(TLNamedException("NSInvalidArgumentException", "")));
    EXPECT_FALSE(TLException::didTimeout(TLNamedException("nsporttimeoutexception", "")));
    EXPECT_FALSE(TLException::didTimeout(std::runtime_error("NSPortTimeoutException")));
    EXPECT_FALSE(TLException::didTimeout(std::make_exception_ptr(42)));
    EXPECT_FALSE(TLException::didTimeout(std::exception_ptr()));
}
