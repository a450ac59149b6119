// SPDX-License-Identifier: BSD-3-Clause
// What the check refuses, in which words; and that what it lets through keeps the sink's own dispatcher, workers and
// kernels within their buffers, which here end at unmapped pages.
#include "tev/check.h"

#include <sys/mman.h>

#include "tests/request_check/attempt.h"
#include "tests/sink/request_block.h"
#include "tests/support/effort.h"
#include "tev/service.h"

namespace {

using namespace request_check_test;

int check(const attempt& a, std::string* text) {
  char room[TEV_CHECK_TEXT_BYTES] = "?";
  const int code = tev_check_request(&a.block, sizeof(a.block), a.lengths.data(),
                                     static_cast<uint32_t>(a.lengths.size()), room, sizeof(room));
  *text = room;
  return code;
}

// A dgemm of 7 x 5 and 6 in depth, A transposed.
attempt good() {
  attempt a = {&kForms[0], 'd', {}, {400, 400, 400}};
  a.block.invoke.code = TEV_REQUEST_INVOKE;
  std::strcpy(a.block.invoke.worker, "tev_blas_dgemm_ao_worker");
  std::memcpy(a.record(), "tn", 2);
  a.put(8, 7), a.put(16, 5), a.put(24, 6), a.put(40, 6), a.put(48, 6), a.put(64, 7);
  return a;
}

TEST(RequestCheck, SaysWhatIsWrongAndWhere) {
  const auto worker = [](attempt& a, const char* name) { std::strcpy(a.block.invoke.worker, name); };
  const auto lu_step = [=](attempt& a, tev_invoke_request& r) {  // interchanges of rows 1 to 7 in no columns
    worker(a, "tev_lapack_sgetrf_worker"), std::memset(r.record, 0, sizeof(r.record)), a.lengths.resize(4, 400);
    for (const size_t leading : {64, 72, 88, 104}) a.put(leading, 7);
    a.put(96, 1);
  };
  const auto all_sevens = [](attempt& a) { std::memset(&a.block, 7, sizeof(a.block)); };
  const struct {
    std::function<void(attempt&, tev_invoke_request&)> change;
    int code;
    const char* text;
  } rows[] = {
      {[](auto& a, auto&) { a.block.code = 3; }, 1, "byte 0, request code: found 3, expected 0, 1, 6 or 7"},
      {[](auto&, auto& r) { std::memset(r.worker, 'w', 256); }, 2,
       "byte 8, name of a worker: found no NUL, expected 1 to 255 bytes and a NUL"},
      {[](auto&, auto& r) { r.worker[0] = 0; }, 2,
       "byte 8, name of a worker: found nothing, expected 1 to 255 bytes and a NUL"},
      {[=](auto& a, auto&) { all_sevens(a), a.block.code = 7; }, 2,
       "byte 4, name of a function: found no NUL, expected 1 to 32315 bytes and a NUL"},
      {[=](auto& a, auto&) { all_sevens(a), a.block.code = 6; }, 2,
       "byte 12, library path: found no NUL, expected 0 to 32307 bytes and a NUL"},
      {[=](auto& a, auto& r) { worker(a, "configure_device_threading_worker"), std::memset(r.record, 'x', 1024); }, 2,
       "byte 264, OpenMP settings: found no NUL, expected 0 to 1023 bytes and a NUL"},
      {[](auto& a, auto&) { a.lengths.resize(128); }, 3, "buffers: found 128, expected at most 127"},
      {[](auto& a, auto&) { a.lengths.resize(2); }, 3, "buffers: found 2, expected at least 3"},
      {[](auto&, auto& r) { r.pin = 1, r.processor_count = 1025; }, 4,
       "byte 32308, processors: found 1025, expected 0 to 1024"},
      {[](auto&, auto& r) { r.pin = -1; }, 4, "byte 32312, threads: found 0, expected at least 1"},
      {[](auto&, auto& r) { r.record[1] = 'X'; }, 5, "byte 265, transb: found 0x58, expected one of the letters NTC"},
      {[](auto& a, auto&) { a.put(24, -5); }, 6, "byte 288, k: found -5, expected at least 0"},
      {[](auto& a, auto&) { a.put(48, 5); }, 7, "byte 312, ldb: found 5, expected at least 6"},
      {[](auto&, auto& r) { r.relocation[2] = 404; }, 8,
       "byte 30280, relocation of buffer 2: found 404, expected a multiple of 8 up to 400"},
      {[](auto&, auto& r) { r.relocation[0] = 72; }, 9,
       "buffer 0: found 328 bytes behind the relocation, expected 336 for A with 6 rows, 7 columns, leading dimension "
       "6"},
      {[](auto& a, auto&) { a.put(64, INT64_MAX); }, 9,
       "buffer 2: found 400 bytes behind the relocation, expected more than 18446744073709551615 for C with 7 rows, 5 "
       "columns, leading dimension 9223372036854775807"},
      {[=](auto& a, auto&) { worker(a, "tev_lapack_dsyrk_worker"); }, 10,
       "byte 4, parameter: found 0, expected the size of the record, 256"},
      {[=](auto& a, auto& r) { worker(a, "tev_lapack_zsyrk_worker"), r.parameter = 384; }, 3,
       "buffers: found 3, expected exactly 2"},
      {[=](auto& a, auto& r) { lu_step(a, r), a.put(80, 2), a.put(96, 0); }, 6,
       "byte 360, first row: found 0, expected at least 1"},
      {[=](auto& a, auto& r) { lu_step(a, r), a.put(80, 2), a.put(104, 8); }, 6,
       "byte 368, last row: found 8, expected at most the leading dimension, 7"},
      {[=](auto& a, auto& r) { lu_step(a, r), a.put(80, 2), r.relocation[1] = 352; }, 9,
       "buffer 1: found 48 bytes behind the relocation, expected 56 for the pivots with 7 rows, 1 columns, leading "
       "dimension 7"},
      // Nothing:
      {[=](auto& a, auto& r) { lu_step(a, r); }, 0, ""},
      {[](auto&, auto&) {}, 0, ""},
      {[](auto& a, auto&) { a.lengths.resize(127); }, 0, ""},
      {[](auto& a, auto&) { a.block.code = 0, a.lengths.clear(); }, 0, ""},
      {[](auto& a, auto&) { a.block = {}, a.block.code = 6; }, 0, ""},
      {[=](auto& a, auto& r) { worker(a, "another_worker"), std::memset(r.record, 0xee, sizeof(r.record)); }, 0, ""},
      {[=](auto& a, auto&) { worker(a, "ueaa_prv_query_device_time_worker"), a.lengths.clear(); }, 0, ""},
  };
  std::string text;
  for (const auto& row : rows) {
    attempt a = good();
    row.change(a, a.block.invoke);
    EXPECT_EQ(row.code, check(a, &text)) << row.text;
    EXPECT_EQ(row.text, text);
  }
  char short_text[8];
  const attempt a = good();
  EXPECT_EQ(TEV_CHECK_BLOCK, tev_check_request(&a.block, 32319, a.lengths.data(), 3, nullptr, 0));
  EXPECT_EQ(TEV_CHECK_COUNT, tev_check_request(&a.block, 32320, nullptr, 3, short_text, sizeof(short_text)));
  EXPECT_STREQ("buffers", short_text);
}

// Memory between unmapped pages. A block is its last bytes; the rest is a fence.
class arena {
 public:
  static constexpr int64_t kBytes = 1 << 19, kPage = 4096;
  arena() : base_(static_cast<char*>(mmap(nullptr, kBytes + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANON, -1, 0))) {
    base_ += kPage;
    mprotect(base_, kBytes, PROT_READ | PROT_WRITE);
  }
  ~arena() { munmap(base_ - kPage, kBytes + 2 * kPage); }
  arena(const arena&) = delete;
  arena& operator=(const arena&) = delete;

  char* place(uint64_t bytes) {
    begin_ = base_ + kBytes - bytes;
    std::fill(std::max(base_, begin_ - kPage), begin_, kFence);
    return begin_;
  }
  bool is_fence_whole() const {
    return std::all_of(std::max(base_, begin_ - kPage), begin_, [](char byte) { return byte == kFence; });
  }

 private:
  static constexpr char kFence = 0x7e;
  char* base_;
  char* begin_ = nullptr;
};

int g_argument_errors;

// The pivots are what happens to lie there.
void note_error(const char* name, const int32_t*, int32_t length) {
  if (std::string(name, static_cast<size_t>(length)).substr(1) != "LASWP") ++g_argument_errors;
}

TEST(RequestCheck, AcceptedRequestsStayInTheirBuffers) {
  tev_serv_set_xerbla(note_error);
  std::mt19937_64 random(tev::test::test_seed());
  SCOPED_TRACE(tev::test::repeat_with(tev::test::test_seed()));
  arena memory[8];
  request_block sent;
  int accepted = 0;
  const int requests = tev::test::long_run() ? 200000 : 8000;
  for (int i = 0; i < requests; ++i) {
    uint8_t bytes[64];
    std::generate(std::begin(bytes), std::end(bytes), [&] { return static_cast<uint8_t>(random()); });
    byte_source source = {bytes, sizeof(bytes)};
    const attempt a = make_attempt(source, arena::kBytes);
    std::string text;
    ASSERT_EQ(a.is_sound(), check(a, &text) == TEV_CHECK_OK)
        << a.block.invoke.worker << ", request " << i << ": " << text;
    if (!a.is_sound()) continue;
    ++accepted;
    std::vector<void*> buffers;
    for (size_t b = 0; b < a.lengths.size(); ++b) buffers.push_back(memory[b].place(a.lengths[b]));
    *sent = a.block;
    sent.send(buffers);
    for (size_t b = 0; b < buffers.size(); ++b) ASSERT_TRUE(memory[b].is_fence_whole()) << "request " << i;
    ASSERT_EQ(0, g_argument_errors) << "request " << i;
  }
  EXPECT_GT(accepted, requests / 4);
  EXPECT_LT(accepted, requests * 9 / 10);
}

}  // namespace
