// What a piece of the program says.
#pragma once

#include <gtest/gtest.h>

#include <string>

// All that `action` printed, stdout before stderr.
template <typename Action>
std::string printedBy(Action action) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    action();
    const std::string out = testing::internal::GetCapturedStdout();
    return out + testing::internal::GetCapturedStderr();
}
