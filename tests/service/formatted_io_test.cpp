// SPDX-License-Identifier: BSD-3-Clause
// Formatted output and input.
#include "service/formatted_io.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(FormattedIo, OutputStaysInTheBufferAndReportsTheWholeLength) {
  for (auto* print : {tev_serv_sprintf_s, tev_serv_snprintf_s}) {
    char buffer[] = "#######";
    EXPECT_EQ(print(buffer, 5, "%d", 123456), 6);
    EXPECT_EQ(memcmp(buffer, "1234\0##", 8), 0);
    EXPECT_EQ(print(buffer, 0, "%d", 7), -1);
    EXPECT_EQ(print(nullptr, 8, "%d", 7), -1);
    EXPECT_EQ(print(buffer, 7, "%d", 123456), 6);
    EXPECT_STREQ(buffer, "123456");
    EXPECT_EQ(print(buffer, 8, nullptr), -1);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(print(buffer, 8, "ab%lc", static_cast<wint_t>(0x110000)), -1);  // no such character
    EXPECT_STREQ(buffer, "");
  }
}

TEST(FormattedIo, GoesToAndComesFromItsStream) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(tev_serv_printf_s("%s ", "a"), 2);
  EXPECT_EQ(tev_serv_fprintf_stdout_s("%d ", 1), 2);
  EXPECT_EQ(tev_serv_fprintf_stderr_s("%.1f", 2.5), 3);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "a 1 ");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "2.5");
  EXPECT_EQ(tev_serv_fprintf_s(nullptr, "x"), -1);
  EXPECT_EQ(tev_serv_printf_s(nullptr), -1);

  int number = 0;
  char word[4] = "";
  FILE* file = tmpfile();
  EXPECT_EQ(tev_serv_fprintf_s(file, "%d x", 7), 3);
  rewind(file);
  EXPECT_EQ(tev_serv_fscanf_s(file, "%d %d", &number, &number), 1);
  EXPECT_EQ(number, 7);
  EXPECT_EQ(tev_serv_sscanf_s("42 abcdef", "%d %3s", &number, word), 2);
  EXPECT_EQ(number, 42);
  EXPECT_STREQ(word, "abc");
  for (const char* text : {"", static_cast<const char*>(nullptr)})
    EXPECT_EQ(tev_serv_sscanf_s(text, "%d", &number), EOF);
  fclose(file);
}

}  // namespace
