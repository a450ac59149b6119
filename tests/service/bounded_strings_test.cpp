// SPDX-License-Identifier: BSD-3-Clause
// The checked string and memory functions, with handlers that write down what they are told.
//   Violations   every rule in order: message, code, and what the destination looks like when the handler runs
//   Limits       the largest capacities pass, one more does not
//   Overlap      each pair of positions in one buffer, against what the positions imply
//   Memory       operands end at an unmapped page: nothing is read behind slen or written behind dmax
#include "service/bounded_strings.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

struct record {
  int calls;
  std::string message, dest;  // dest: the whole fixture buffer at the time of the call
  int error;
};

record seen;
char buffer[16];

void write_down(const char* message, void* reserved, int error) {
  EXPECT_EQ(reserved, nullptr);
  seen = {seen.calls + 1, message, std::string(buffer, sizeof buffer), error};
}

class BoundedStrings : public testing::Test {
 protected:
  void SetUp() override {
    seen = {};
    tev_serv_set_str_constraint_handler_s(write_down);
    tev_serv_set_mem_constraint_handler_s(write_down);
  }
  void TearDown() override {
    tev_serv_set_str_constraint_handler_s(nullptr);
    tev_serv_set_mem_constraint_handler_s(nullptr);
  }
};

// `size` bytes, filled with '#', that end where an unmapped page begins.
class guarded {
 public:
  explicit guarded(size_t size) : mapped_((size + 4095) / 4096 * 4096 + 4096) {
    base_ = static_cast<char*>(mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(base_ + mapped_ - 4096, 4096, PROT_NONE);
    data = base_ + mapped_ - 4096 - size;
    memset(data, '#', size);
  }
  ~guarded() { munmap(base_, mapped_); }
  guarded(const guarded&) = delete;
  guarded& operator=(const guarded&) = delete;
  char* data;

 private:
  size_t mapped_;
  char* base_;
};

constexpr size_t kBig = 268435456;
char* const b = buffer;

TEST_F(BoundedStrings, ViolationsReportTheFirstBrokenRuleAndClearBeforeTheHandlerRuns) {
  const char* const kept = "ab\0cdefghijklmno";
  enum after { kUntouched, kFirstByte, kFirstEight };
  const struct {
    const char* message;
    int error;
    after dest;
    std::function<int()> call;
  } rows[] = {
      {"strncpy_s: dest is null", 400, kUntouched, [] { return tev_serv_strncpy_s(nullptr, 0, nullptr, 0); }},
      {"strncpy_s: dmax is 0", 401, kUntouched, [] { return tev_serv_strncpy_s(b, 0, nullptr, 0); }},
      {"strncpy_s: dmax exceeds max", 403, kUntouched, [] { return tev_serv_strncpy_s(b, 4097, nullptr, 0); }},
      {"strncpy_s: src is null", 400, kFirstByte, [] { return tev_serv_strncpy_s(b, 8, nullptr, 0); }},
      {"strncpy_s: slen is zero", 401, kFirstByte, [] { return tev_serv_strncpy_s(b, 8, b, 0); }},
      {"strncpy_s: slen exceeds max", 403, kFirstByte, [] { return tev_serv_strncpy_s(b, 8, b, 4097); }},
      {"strncpy_s: overlapping objects", 404, kFirstByte, [] { return tev_serv_strncpy_s(b, 8, b, 4); }},
      {"strncat_s: dest is null", 400, kUntouched, [] { return tev_serv_strncat_s(nullptr, 0, nullptr, 0); }},
      {"strncat_s: dmax is 0", 401, kUntouched, [] { return tev_serv_strncat_s(b, 0, nullptr, 0); }},
      {"strncat_s: dmax exceeds max", 403, kUntouched, [] { return tev_serv_strncat_s(b, 4097, nullptr, 0); }},
      {"strncat_s: src is null", 400, kFirstByte, [] { return tev_serv_strncat_s(b, 2, nullptr, 4097); }},
      {"strncat_s: slen exceeds max", 403, kFirstByte, [] { return tev_serv_strncat_s(b, 2, b, 4097); }},
      {"strncat_s: dest unterminated", 407, kFirstByte, [] { return tev_serv_strncat_s(b, 2, b, 3); }},
      {"strncat_s: overlapping objects", 404, kFirstByte, [] { return tev_serv_strncat_s(b, 8, b + 1, 3); }},
      {"memcpy_s: dest is NULL", 400, kUntouched, [] { return tev_serv_memcpy_s(nullptr, 0, nullptr, 0); }},
      {"memcpy_s: dmax is 0", 401, kUntouched, [] { return tev_serv_memcpy_s(b, 0, nullptr, 0); }},
      {"memcpy_s: dmax exceeds max", 403, kUntouched, [] { return tev_serv_memcpy_s(b, kBig + 1, nullptr, 0); }},
      {"memcpy_s: smax is 0", 401, kFirstEight, [] { return tev_serv_memcpy_s(b, 8, nullptr, 0); }},
      {"memcpy_s: smax exceeds dmax", 403, kFirstEight, [] { return tev_serv_memcpy_s(b, 8, nullptr, 9); }},
      {"memcpy_s: overlap undefined", 404, kFirstEight, [] { return tev_serv_memcpy_s(b, 8, b + 7, 1); }},
      {"memcpy_s: src is NULL", 400, kFirstEight, [] { return tev_serv_memcpy_s(b, 8, nullptr, 8); }},
      {"memmove_s: dest is null", 400, kUntouched, [] { return tev_serv_memmove_unbounded_s(nullptr, 0, nullptr, 0); }},
      {"memmove_s: dmax is 0", 401, kUntouched, [] { return tev_serv_memmove_unbounded_s(b, 0, nullptr, 0); }},
      {"memmove_s: smax is 0", 401, kUntouched, [] { return tev_serv_memmove_unbounded_s(b, kBig + 1, nullptr, 0); }},
      {"memmove_s: smax exceeds max", 403, kUntouched, [] { return tev_serv_memmove_unbounded_s(b, 8, b, kBig + 1); }},
      {"memmove_s: smax exceeds dmax", 403, kUntouched,
       [] { return tev_serv_memmove_unbounded_s(b, 8, nullptr, kBig); }},
      {"memmove_s: dmax exceeds max", 403, kUntouched, [] { return tev_serv_memmove_unbounded_s(b, kBig + 1, b, 1); }},
      {"memmove_s: src is null", 400, kUntouched, [] { return tev_serv_memmove_unbounded_s(b, 8, nullptr, 8); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    seen = {};
    memcpy(buffer, kept, sizeof buffer);
    EXPECT_EQ(row.call(), row.error);
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.message, row.message);
    EXPECT_EQ(seen.error, row.error);
    std::string expected(kept, sizeof buffer);
    for (size_t i = 0; i < (row.dest == kFirstEight ? 8u : row.dest == kFirstByte ? 1u : 0u); ++i) expected[i] = 0;
    EXPECT_EQ(seen.dest, expected);
    EXPECT_EQ(std::string(buffer, sizeof buffer), expected);
  }
}

TEST_F(BoundedStrings, CopyAndAppendFillTheCapacityExactly) {
  guarded dest(10);
  EXPECT_EQ(tev_serv_strncpy_s(dest.data, 10, "012345678", 4096), 0);
  EXPECT_STREQ(dest.data, "012345678");
  EXPECT_EQ(tev_serv_strncpy_s(dest.data, 10, "0123456789", 9), 0);
  EXPECT_STREQ(dest.data, "012345678");
  EXPECT_EQ(seen.calls, 0);
  EXPECT_EQ(tev_serv_strncpy_s(dest.data, 10, "0123456789", 10), 406);
  EXPECT_STREQ(dest.data, "");
  EXPECT_EQ(seen.message, "strncpy_s: not enough space for src");

  guarded unterminated(3);
  EXPECT_EQ(tev_serv_strncpy_s(dest.data, 10, unterminated.data, 3), 0);
  EXPECT_EQ(tev_serv_strncat_s(dest.data, 10, "", 0), 0);
  EXPECT_EQ(tev_serv_strncat_s(dest.data, 10, unterminated.data, 3), 0);
  EXPECT_EQ(tev_serv_strncat_s(dest.data, 10, unterminated.data, 3), 0);
  EXPECT_STREQ(dest.data, "#########");
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(tev_serv_strncat_s(dest.data, 10, "x", 1), 406);
  EXPECT_STREQ(dest.data, "");
  EXPECT_EQ(seen.message, "strncat_s: not enough space for src");
}

TEST_F(BoundedStrings, TheLargestCapacitiesAreAllowed) {
  guarded text(4096);
  EXPECT_EQ(tev_serv_strnlen_s(text.data, 4096), 4096u);
  EXPECT_EQ(tev_serv_strncpy_s(text.data, 4096, "x", 4096), 0);
  EXPECT_EQ(tev_serv_strnlen_s(text.data, 4096), 1u);
  EXPECT_EQ(tev_serv_strnlen_s(nullptr, 0), 0u);
  EXPECT_EQ(seen.calls, 0);
  EXPECT_EQ(tev_serv_strnlen_s(text.data, 4097), 0u);
  EXPECT_EQ(seen.message, "strnlen_s: dmax exceeds max");
  EXPECT_EQ(tev_serv_strnlen_s(text.data, 0), 0u);
  EXPECT_EQ(seen.message, "strnlen_s: dmax is 0");

  seen = {};
  guarded dest(kBig), src(1);  // the pages that nobody touches cost nothing
  EXPECT_EQ(tev_serv_memcpy_s(dest.data, kBig, src.data, 1), 0);
  EXPECT_EQ(tev_serv_memmove_unbounded_s(dest.data, kBig, dest.data + 1, kBig - 1), 0);
  EXPECT_EQ(seen.calls, 0);
}

// Source and destination at every pair of positions of one buffer that holds one text.
TEST_F(BoundedStrings, OverlapIsFoundInBothDirections) {
  const char text[] = "0123456789abcdefghijklmnopqrst";
  constexpr size_t kSlen = 4;
  for (size_t to = 0; to < 20; ++to) {
    for (size_t from = 0; from < 20; ++from) {
      SCOPED_TRACE("to " + std::to_string(to) + " from " + std::to_string(from));
      const size_t distance = to > from ? to - from : from - to;
      char work[sizeof text];
      memcpy(work, text, sizeof text);
      const bool apart = distance > kSlen;  // the terminator's place counts, too
      EXPECT_EQ(tev_serv_strncpy_s(work + to, 8, work + from, kSlen), apart ? 0 : 404);
      EXPECT_EQ(std::string(work + to), apart ? std::string(text + from, kSlen) : "");

      memcpy(work, text, sizeof text);
      work[to + 2] = 0;  // dest holds two characters, so the source may not lie in the first 2 + slen + 1
      const bool clear = from > to + 2 + kSlen || from + kSlen < to;
      EXPECT_EQ(tev_serv_strncat_s(work + to, 8, work + from, kSlen), clear ? 0 : 404);

      memcpy(work, text, sizeof text);
      const bool disjoint = from >= to + 6 || from + kSlen <= to;
      EXPECT_EQ(tev_serv_memcpy_s(work + to, 6, work + from, kSlen), disjoint ? 0 : 404);
      EXPECT_EQ(std::string(work + to, 6),
                disjoint ? std::string(text + from, kSlen) + std::string(text + to + kSlen, 2) : std::string(6, '\0'));

      memcpy(work, text, sizeof text);
      EXPECT_EQ(tev_serv_memmove_unbounded_s(work + to, 6, work + from, kSlen), 0);
      EXPECT_EQ(std::string(work + to, kSlen), std::string(text + from, kSlen));
    }
  }
}

TEST_F(BoundedStrings, InstallingAHandlerReturnsThePreviousOneOfItsKind) {
  EXPECT_EQ(tev_serv_set_str_constraint_handler_s(nullptr), write_down);
  EXPECT_EQ(tev_serv_strncpy_s(buffer, 4, nullptr, 1), 400);
  EXPECT_EQ(seen.calls, 0);
  EXPECT_EQ(tev_serv_memcpy_s(buffer, 4, nullptr, 1), 400);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(tev_serv_set_str_constraint_handler_s(write_down), tev_serv_ignore_handler_s);
}

TEST_F(BoundedStrings, ConcatenationMayReplaceEitherOperand) {
  for (int place = 0; place < 3; ++place) {
    char first[8] = "ab", second[8] = "cde", fresh[8];
    char* dest = place == 0 ? fresh : place == 1 ? first : second;
    EXPECT_EQ(tev_serv_strcat2(dest, first, second), dest);
    EXPECT_STREQ(dest, "abcde") << place;
  }
}

}  // namespace
