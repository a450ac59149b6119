// SPDX-License-Identifier: BSD-3-Clause
// The whole sink under random requests: products of every kind and shape, wrong arguments, requests of any code with
// any bytes, settings, pinning, functions and workers that do not exist. A host is trusted, so sizes fit their buffers
// and no name is guessed. Every product is judged, nothing but its result may change, and the sink serves to the end;
// built with the address sanitizer it also ends without a complaint.
#include <fcntl.h>

#include "host/check.h"
#include "host/records.h"
#include "tests/chaos/offload.h"
#include "tests/support/effort.h"
#include "tests/support/sample.h"

namespace tev::test {
namespace {

struct answer {
  int code;
  tev_card_request block;
  std::vector<unsigned char> result;
};

struct Requests : testing::Test {
  void SetUp() override {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);  // for its words about wrong arguments
    process_ = start_sink(nullptr, nowhere);
    ASSERT_NE(process_, nullptr) << vro_last_error();
    close(nowhere);
  }

  answer send(const tev_card_request& block, const std::vector<vro_buffer*>& buffers, size_t result_length = 0,
              const char* function = "ueaa_prv_card_invoke") {
    answer a = {};
    vro_completion* done = nullptr;
    a.code = vro_run(process_, function, buffers.data(), static_cast<uint32_t>(buffers.size()), &block, sizeof(block),
                     result_length, &done);
    if (a.code == VRO_OK) a.code = vro_completion_wait(done, kWaitMs);
    if (a.code == VRO_OK) {
      std::memcpy(static_cast<void*>(&a.block), vro_completion_misc(done), sizeof(a.block));
      const auto* bytes = static_cast<const unsigned char*>(vro_completion_result(done));
      a.result.assign(bytes, bytes + result_length);
    }
    vro_completion_release(done);
    return a;
  }

  // The block must come back as it was sent.
  void expect_served(sample& s, const tev_card_request& block, const std::vector<vro_buffer*>& buffers) {
    const answer a = send(block, buffers);
    ASSERT_EQ(a.code, VRO_OK) << s.words.str() << ": " << vro_last_error();
    EXPECT_EQ(std::memcmp(&a.block, &block, sizeof(block)), 0) << s.words.str();
  }

  template <class T>
  void product(sample& s);
  void noise(sample& s);
  void settings(sample& s);
  void questions(sample& s);

  vro_process* process_ = nullptr;
};

// An invoke request with the fields that do not belong to its worker drawn by chance.
std::unique_ptr<tev_card_request> invoke_request(sample& s, const std::string& worker) {
  auto block = std::make_unique<tev_card_request>();
  tev_invoke_request& invoke = block->invoke;
  invoke.code = TEV_REQUEST_INVOKE;
  invoke.parameter = static_cast<uint32_t>(s.random());
  worker.copy(invoke.worker, sizeof(invoke.worker));
  invoke.post_mode = static_cast<int32_t>(s.below(5)) - 1;
  invoke.pin = s.below(4) == 0;
  invoke.processor_count = static_cast<int32_t>(s.below(6));
  invoke.thread_count = static_cast<int32_t>(1 + s.below(4));
  for (int i = 0; i < 4; ++i) invoke.processor_mask[i] = static_cast<uint8_t>(s.below(2));
  return block;
}

// A buffer with a matrix somewhere in it and a pattern around.
template <class T>
struct placed {
  placed(vro_process* process, const matrix<T>& m, sample& s) : offset(64 * s.below(3)), content(m) {
    bytes = static_cast<size_t>(offset) + static_cast<size_t>(m.size()) * sizeof(T) + 64;
    if (vro_buffer_create(process, bytes, &buffer) != VRO_OK) throw std::bad_alloc();
    std::memset(vro_buffer_map(buffer), 0xa5, bytes);
    std::memcpy(at(), static_cast<const void*>(m.data()), static_cast<size_t>(m.size()) * sizeof(T));
  }
  placed(const placed&) = delete;
  ~placed() { vro_buffer_destroy(buffer); }
  unsigned char* at() const { return static_cast<unsigned char*>(vro_buffer_map(buffer)) + offset; }

  matrix<T> taken() const {
    matrix<T> result = content;
    std::memcpy(static_cast<void*>(result.data()), at(), static_cast<size_t>(result.size()) * sizeof(T));
    return result;
  }
  bool surroundings_are_intact() const {
    const auto* all = static_cast<const unsigned char*>(vro_buffer_map(buffer));
    const auto* end = at() + static_cast<size_t>(content.size()) * sizeof(T);
    const auto intact = [](unsigned char c) { return c == 0xa5; };
    return std::all_of(all, static_cast<const unsigned char*>(at()), intact) && std::all_of(end, all + bytes, intact);
  }

  vro_buffer* buffer = nullptr;
  int64_t offset;
  const matrix<T>& content;
  size_t bytes;
};

template <class T>
void Requests::product(sample& s) {
  constexpr operation kOperations[] = {operation::gemm, operation::symm, operation::trmm, operation::trsm};
  const operation op = s.one_of(kOperations);
  s.words << host::name_of(op) << ' ';
  const blas_case<T> x = s.level3<T>(op);
  const placed<T> a(process_, x.a, s), b(process_, x.b, s), c(process_, x.c, s);
  problem<T> p = x.p;
  const bool refused = op != operation::gemm && s.below(8) == 0;  // a product checks nothing
  if (refused) (s.below(2) == 0 ? p.side : p.uplo) = 'X';
  const host::worker_call call = host::make_worker_call(p);
  const auto block = invoke_request(s, call.worker);
  std::memcpy(block->invoke.record, call.record.data(), call.record.size());
  for (int i = 0; const placed<T>* matrix : {&a, &b, &c})
    block->invoke.relocation[i++] = static_cast<uint64_t>(matrix->offset);
  expect_served(s, *block, {a.buffer, b.buffer, c.buffer});

  const placed<T>& changed = in_place(op) ? b : c;
  for (const placed<T>* matrix : {&a, &b, &c}) {
    EXPECT_TRUE(matrix->surroundings_are_intact()) << s.words.str();
    if (matrix != &changed || refused) EXPECT_TRUE(matrix->taken().same_bits(matrix->content)) << s.words.str();
  }
  if (refused) return;
  const matrix<T> result = changed.taken();
  const host::verdict verdict = host::check(x.p, result.data(), 1);
  EXPECT_TRUE(verdict.passed && result.padding_is_intact()) << s.words.str() << x << ": " << verdict.text;
}

// Any bytes, but for the names, which are nobody's.
void Requests::noise(sample& s) {
  auto block = std::make_unique<tev_card_request>();
  std::generate_n(reinterpret_cast<unsigned char*>(block.get()), sizeof(*block),
                  [&] { return static_cast<unsigned char>(s.random()); });
  const uint32_t codes[] = {TEV_REQUEST_FINALISE,
                            TEV_REQUEST_INVOKE,
                            TEV_REQUEST_INITIALISE,
                            TEV_REQUEST_CALL,
                            2,
                            8,
                            static_cast<uint32_t>(s.random() | 8)};
  block->code = s.one_of(codes);
  if (block->code == TEV_REQUEST_INVOKE) block->invoke.worker[0] = '!';
  if (block->code == TEV_REQUEST_CALL) block->call.name[0] = '!';
  s.words << "code " << block->code;
  expect_served(s, *block, {});
  EXPECT_EQ(send(*block, {}, 0, "no_such_function").code, VRO_INVALID);
}

void Requests::settings(sample& s) {
  const std::string choices[] = {"", "KMP_BLOCKTIME=1", "OMP_SCHEDULE=static", std::string(1024, ' ')};
  const auto block = invoke_request(s, "configure_device_threading_worker");
  tev_threading_record record = {{}, static_cast<int32_t>(s.below(6)) - 1};
  const std::string& chosen = s.one_of(choices);
  chosen.copy(record.settings, sizeof(record.settings));
  std::memcpy(block->invoke.record, &record, sizeof(record));
  s.words << "settings '" << chosen.substr(0, 20) << "', " << record.thread_count << " threads";
  expect_served(s, *block, {});
}

void Requests::questions(sample& s) {
  const answer time = send(*invoke_request(s, "ueaa_prv_query_device_time_worker"), {});
  ASSERT_EQ(time.code, VRO_OK) << vro_last_error();
  tev_device_time_record record;
  std::memcpy(&record, time.block.invoke.record, sizeof(record));
  EXPECT_TRUE(std::isfinite(record.seconds) && record.seconds >= 0) << record.seconds;

  tev_card_request block = {};
  block.code = TEV_REQUEST_CALL;
  std::strcpy(block.call.name, "tev_sink_report");
  const answer report = send(block, {}, static_cast<size_t>(s.below(2000)));
  ASSERT_EQ(report.code, VRO_OK) << vro_last_error();
  if (report.result.size() > 100) EXPECT_EQ(std::count(report.result.begin(), report.result.end(), '=') > 0, true);
}

TEST_F(Requests, AreServedWhateverTheyAsk) {
  engine random(test_seed());
  void (Requests::*const kinds[])(sample&) = {&Requests::product<float>,
                                              &Requests::product<double>,
                                              &Requests::product<std::complex<float>>,
                                              &Requests::product<std::complex<double>>,
                                              &Requests::noise,
                                              &Requests::settings,
                                              &Requests::questions};
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(long_run() ? 120 : 3);
  int count = 0;
  for (; std::chrono::steady_clock::now() < end; ++count) {
    sample s = {random, random() % 2 ? values::whole : values::fractions, {}};
    (this->*s.one_of(kinds))(s);
    ASSERT_FALSE(HasFailure()) << "request " << count << ", " << repeat_with(test_seed());
  }
  EXPECT_EQ(vro_process_shutdown(process_, kWaitMs), VRO_OK) << vro_last_error();
  std::printf("%d requests\n", count);
}

}  // namespace
}  // namespace tev::test
