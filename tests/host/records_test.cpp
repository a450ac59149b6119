// SPDX-License-Identifier: BSD-3-Clause
// What goes over the wire for each of the sixteen workers, byte by byte against offsets written down here: for alpha,
// beta, lda, ldb and ldc, by precision. Everything else lies alike in all of them, and what is not a field is zero.

#include "host/records.h"
#include "host/failure.h"
#include "host/sink_client.h"
#include "tests/support/prelude.h"

namespace tev::host {
namespace {

struct layout {
  size_t alpha, beta, lda, ldb, ldc;
};
constexpr layout kGemm[] = {{32, 56, 40, 48, 64}, {32, 56, 40, 48, 64}, {32, 56, 40, 48, 64}, {32, 64, 48, 56, 80}};
constexpr layout kLevel3[] = {{32, 36, 40, 48, 56}, {32, 40, 48, 56, 64}, {32, 40, 48, 56, 64}, {32, 48, 64, 72, 80}};

template <class V>
void put(std::vector<unsigned char>* bytes, size_t at, V value) {
  ASSERT_LE(at + sizeof(V), bytes->size());
  std::memcpy(bytes->data() + at, &value, sizeof(V));
}

template <class T>
void expect_records(T alpha, T beta) {
  constexpr precision kType = wire<T>::kPrecision;
  for (const operation op : {operation::gemm, operation::symm, operation::trmm, operation::trsm}) {
    const bool gemm = op == operation::gemm;
    const problem<T> p = {op, 'T', 'C', 'R', 'L', 'U', 11, 22, 33, alpha, beta, nullptr, 44, nullptr, 55, nullptr, 66};
    const worker_call call = make_worker_call(p);
    const std::string name = std::string("tev_blas_") + "sdcz"[static_cast<int>(kType)] + name_of(op) + "_ao_worker";
    EXPECT_EQ(call.worker, name);

    const layout& at = (gemm ? kGemm : kLevel3)[static_cast<int>(kType)];
    std::vector<unsigned char> expected(at.ldc + 8, 0);
    const char* letters = gemm ? "TC" : "RTLU";
    std::copy(letters, letters + (gemm ? 2 : 4), expected.begin());
    put<int64_t>(&expected, 8, 11);
    put<int64_t>(&expected, 16, 22);
    if (gemm) put<int64_t>(&expected, 24, 33);
    put(&expected, at.alpha, alpha);
    put(&expected, at.beta, beta);
    put<int64_t>(&expected, at.lda, 44);
    put<int64_t>(&expected, at.ldb, 55);
    put<int64_t>(&expected, at.ldc, 66);
    EXPECT_EQ(call.record, expected) << name;
  }
}

TEST(Records, EachFieldAtItsOffset) {
  expect_records<float>(1.5f, -2.5f);
  expect_records<double>(1.5, -2.5);
  expect_records<std::complex<float>>({1.5f, 2}, {-2.5f, 3});
  expect_records<std::complex<double>>({1.5, 2}, {-2.5, 3});
}

// What the host refuses to send.
TEST(SinkClient, KeepsARequestThatWouldLeaveItsBuffers) {
  sink_client sink({.executable = TEV_SINK_PATH});
  tev_dgemm_record record = {'N', 'N', 2, 2, 2, 1, 2, 2, 0, 3};
  const auto send = [&](int64_t bytes) {
    const shared_buffer b = sink.make_buffer(bytes);
    sink.invoke("tev_blas_dgemm_ao_worker", &record, sizeof(record), {b.get(), b.get(), b.get()}, TEV_POST_NONE);
  };
  EXPECT_THROW(send(32), failure);
  EXPECT_NO_THROW(send(40));
  sink.shut_down();
}

}  // namespace
}  // namespace tev::host
