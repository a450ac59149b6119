// SPDX-License-Identifier: BSD-3-Clause
// The checked string and memory functions, with handlers that write down what they are told.
//   Violations   every rule in order: message, code, and what the destination looks like when the handler runs
//   Limits       the largest capacities pass, one more does not
//   Overlap      each pair of positions in one buffer, against what the positions imply
//   Memory       operands end at an unmapped page: nothing is read behind slen or written behind dmax
// And formatted output and input.
#include "service/bounded_strings.h"

#include "service/formatted_io.h"
#include "tests/support/guarded.h"

namespace {

using guarded = tev::test::guarded_array<char>;

struct record {
  int calls, error;
  std::string message, dest;  // dest: the whole fixture buffer at the time of the call
} seen;
char b[16];

void write_down(const char* message, void* reserved, int error) {
  EXPECT_EQ(reserved, nullptr);
  seen = {seen.calls + 1, error, message, std::string(b, sizeof b)};
}

class BoundedStrings : public testing::Test {
 protected:
  BoundedStrings() { install(write_down), seen = {}; }
  ~BoundedStrings() override { install(nullptr); }
  static void install(tev_serv_constraint_handler handler) {
    tev_serv_set_str_constraint_handler_s(handler);
    tev_serv_set_mem_constraint_handler_s(handler);
  }
};

constexpr size_t kBig = 268435456;

TEST_F(BoundedStrings, ViolationsReportTheFirstBrokenRuleAndClearBeforeTheHandlerRuns) {
  using function = int (*)(char* dest, size_t dmax, const char* src, size_t slen);
  const function copy = tev_serv_strncpy_s, append = tev_serv_strncat_s;
  const function copy_bytes = [](char* d, size_t dmax, const char* s, size_t n) {
    return tev_serv_memcpy_s(d, dmax, s, n);
  };
  const function move_bytes = [](char* d, size_t dmax, const char* s, size_t n) {
    return tev_serv_memmove_unbounded_s(d, dmax, s, n);
  };
  const struct {
    function call;
    char* dest;
    size_t dmax;
    const char* src;
    size_t slen;
    int error;
    size_t cleared;  // bytes of dest
    const char* message;
  } rows[] = {{copy, nullptr, 0, nullptr, 0, 400, 0, "strncpy_s: dest is null"},
              {copy, b, 0, nullptr, 0, 401, 0, "strncpy_s: dmax is 0"},
              {copy, b, 4097, nullptr, 0, 403, 0, "strncpy_s: dmax exceeds max"},
              {copy, b, 8, nullptr, 0, 400, 1, "strncpy_s: src is null"},
              {copy, b, 8, b, 0, 401, 1, "strncpy_s: slen is zero"},
              {copy, b, 8, b, 4097, 403, 1, "strncpy_s: slen exceeds max"},
              {copy, b, 8, b, 4, 404, 1, "strncpy_s: overlapping objects"},
              {append, nullptr, 0, nullptr, 0, 400, 0, "strncat_s: dest is null"},
              {append, b, 0, nullptr, 0, 401, 0, "strncat_s: dmax is 0"},
              {append, b, 4097, nullptr, 0, 403, 0, "strncat_s: dmax exceeds max"},
              {append, b, 2, nullptr, 4097, 400, 1, "strncat_s: src is null"},
              {append, b, 2, b, 4097, 403, 1, "strncat_s: slen exceeds max"},
              {append, b, 2, b, 3, 407, 1, "strncat_s: dest unterminated"},
              {append, b, 8, b + 1, 3, 404, 1, "strncat_s: overlapping objects"},
              {copy_bytes, nullptr, 0, nullptr, 0, 400, 0, "memcpy_s: dest is NULL"},
              {copy_bytes, b, 0, nullptr, 0, 401, 0, "memcpy_s: dmax is 0"},
              {copy_bytes, b, kBig + 1, nullptr, 0, 403, 0, "memcpy_s: dmax exceeds max"},
              {copy_bytes, b, 8, nullptr, 0, 401, 8, "memcpy_s: smax is 0"},
              {copy_bytes, b, 8, nullptr, 9, 403, 8, "memcpy_s: smax exceeds dmax"},
              {copy_bytes, b, 8, b + 7, 1, 404, 8, "memcpy_s: overlap undefined"},
              {copy_bytes, b, 8, nullptr, 8, 400, 8, "memcpy_s: src is NULL"},
              {move_bytes, nullptr, 0, nullptr, 0, 400, 0, "memmove_s: dest is null"},
              {move_bytes, b, 0, nullptr, 0, 401, 0, "memmove_s: dmax is 0"},
              {move_bytes, b, kBig + 1, nullptr, 0, 401, 0, "memmove_s: smax is 0"},
              {move_bytes, b, 8, b, kBig + 1, 403, 0, "memmove_s: smax exceeds max"},
              {move_bytes, b, 8, nullptr, kBig, 403, 0, "memmove_s: smax exceeds dmax"},
              {move_bytes, b, kBig + 1, b, 1, 403, 0, "memmove_s: dmax exceeds max"},
              {move_bytes, b, 8, nullptr, 8, 400, 0, "memmove_s: src is null"}};
  for (const auto& row : rows) {
    std::string expected("ab\0cdefghijklmno", sizeof b);
    memcpy(b, expected.data(), sizeof b);
    std::fill_n(expected.begin(), row.cleared, '\0');
    seen = {};
    EXPECT_EQ(row.call(row.dest, row.dmax, row.src, row.slen), row.error);
    EXPECT_EQ(seen.message, row.message);
    EXPECT_TRUE(seen.calls == 1 && seen.error == row.error && seen.dest == expected) << row.message;
    EXPECT_EQ(std::string(b, sizeof b), expected) << row.message;
  }
}

TEST_F(BoundedStrings, CopyAndAppendFillTheCapacityExactly) {
  const guarded dest(10), unterminated(3);
  std::fill_n(unterminated.data(), 3, '#');
  for (const auto& [src, slen] : {std::pair("012345678", 4096), {"0123456789", 9}}) {
    EXPECT_EQ(tev_serv_strncpy_s(dest.data(), 10, src, slen), 0);
    EXPECT_STREQ(dest.data(), "012345678");
  }
  EXPECT_EQ(tev_serv_strncpy_s(dest.data(), 10, unterminated.data(), 3), 0);
  for (size_t slen : {0, 3, 3}) EXPECT_EQ(tev_serv_strncat_s(dest.data(), 10, unterminated.data(), slen), 0);
  EXPECT_STREQ(dest.data(), "#########");
  EXPECT_EQ(seen.calls, 0);
  EXPECT_EQ(tev_serv_strncat_s(dest.data(), 10, "x", 1), 406);
  EXPECT_EQ(seen.message + dest.data(), "strncat_s: not enough space for src");
  EXPECT_EQ(tev_serv_strncpy_s(dest.data(), 10, "0123456789", 10), 406);
  EXPECT_EQ(seen.message + dest.data(), "strncpy_s: not enough space for src");
}

TEST_F(BoundedStrings, TheLargestCapacitiesAreAllowed) {
  const guarded text(4096), dest(kBig), src(1);  // the pages that nobody touches cost nothing
  memset(text.data(), '#', 4096);
  EXPECT_EQ(tev_serv_strnlen_s(text.data(), 4096), 4096u);
  EXPECT_EQ(tev_serv_strncpy_s(text.data(), 4096, "x", 4096), 0);
  EXPECT_EQ(tev_serv_strnlen_s(text.data(), 4096), 1u);
  EXPECT_EQ(tev_serv_strnlen_s(nullptr, 0), 0u);
  EXPECT_EQ(tev_serv_memcpy_s(dest.data(), kBig, src.data(), 1), 0);
  EXPECT_EQ(tev_serv_memmove_unbounded_s(dest.data(), kBig, dest.data() + 1, kBig - 1), 0);
  EXPECT_EQ(seen.calls, 0);
  EXPECT_EQ(tev_serv_strnlen_s(text.data(), 4097), 0u);
  EXPECT_EQ(seen.message, "strnlen_s: dmax exceeds max");
  EXPECT_EQ(tev_serv_strnlen_s(text.data(), 0), 0u);
  EXPECT_EQ(seen.message, "strnlen_s: dmax is 0");
}

// Source and destination at every pair of positions of one buffer that holds one text.
TEST_F(BoundedStrings, OverlapIsFoundInBothDirections) {
  const std::string text = "0123456789abcdefghijklmnopqrst";
  constexpr size_t kSlen = 4;
  for (size_t to = 0; to < 20; ++to)
    for (size_t from = 0; from < 20; ++from) {
      SCOPED_TRACE("to " + std::to_string(to) + " from " + std::to_string(from));
      const std::string moved = text.substr(from, kSlen);
      std::string work = text;
      const bool apart = std::max(to, from) - std::min(to, from) > kSlen;  // the terminator's place counts, too
      EXPECT_EQ(tev_serv_strncpy_s(&work[to], 8, &work[from], kSlen), apart ? 0 : 404);
      EXPECT_STREQ(&work[to], apart ? moved.c_str() : "");

      work = text;
      work[to + 2] = 0;  // dest holds two characters, so the source may not lie in the first 2 + slen + 1
      const bool clear = from > to + 2 + kSlen || from + kSlen < to;
      EXPECT_EQ(tev_serv_strncat_s(&work[to], 8, &work[from], kSlen), clear ? 0 : 404);

      work = text;
      const bool disjoint = from >= to + 6 || from + kSlen <= to;
      EXPECT_EQ(tev_serv_memcpy_s(&work[to], 6, &work[from], kSlen), disjoint ? 0 : 404);
      EXPECT_EQ(work.substr(to, 6), disjoint ? moved + text.substr(to + kSlen, 2) : std::string(6, '\0'));

      work = text;
      EXPECT_EQ(tev_serv_memmove_unbounded_s(&work[to], 6, &work[from], kSlen), 0);
      EXPECT_EQ(work.substr(to, kSlen), moved);
    }
}

TEST_F(BoundedStrings, InstallingAHandlerReturnsThePreviousOneOfItsKind) {
  EXPECT_EQ(tev_serv_set_str_constraint_handler_s(nullptr), write_down);
  EXPECT_EQ(tev_serv_strncpy_s(b, 4, nullptr, 1), 400);
  EXPECT_EQ(seen.calls, 0);
  EXPECT_EQ(tev_serv_memcpy_s(b, 4, nullptr, 1), 400);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(tev_serv_set_str_constraint_handler_s(write_down), tev_serv_ignore_handler_s);
}

TEST_F(BoundedStrings, ConcatenationMayReplaceEitherOperand) {
  for (int place = 0; place < 3; ++place) {
    char texts[3][8] = {"", "ab", "cde"};
    EXPECT_EQ(tev_serv_strcat2(texts[place], texts[1], texts[2]), texts[place]);
    EXPECT_STREQ(texts[place], "abcde");
  }
}

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
