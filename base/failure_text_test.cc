#include "base/failure_text.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

TEST(FailureText, ShowsEightUpperCaseHexDigits) {
  EXPECT_EQ(FailureText("BitBlt", 0xab), "BitBlt failed (0x000000AB)");
}

}  // namespace
}  // namespace cvn::agent
