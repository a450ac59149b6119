// SPDX-License-Identifier: BSD-3-Clause
// A host that shares no struct with the sink: it starts the real one and writes its request blocks byte by byte.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/sink/real_sink.h"

using request_bytes = std::vector<unsigned char>;

constexpr size_t kRecordAt = 264;

template <class V>
void put(request_bytes& block, size_t offset, const V& value) {
  std::memcpy(block.data() + offset, &value, sizeof(value));
}

// All of the record is still to be written: whatever a worker must not read is not zero.
inline request_bytes invoke_request(const std::string& worker) {
  request_bytes block(32320, 0xee);
  std::memset(block.data() + 30264, 0, 1016);
  put(block, 0, uint32_t{1});
  std::memcpy(block.data() + 8, worker.c_str(), worker.size() + 1);
  put(block, 31280, int32_t{1});
  put(block, 32316, int32_t{0});
  return block;
}

template <class T>
T random_value(std::mt19937_64& source) {
  std::uniform_real_distribution<double> range(-1.0, 1.0);
  if constexpr (std::is_floating_point_v<T>)
    return static_cast<T>(range(source));
  else
    return T(static_cast<typename T::value_type>(range(source)), static_cast<typename T::value_type>(range(source)));
}

template <class T>
constexpr char kLetter = std::is_floating_point_v<T> ? (sizeof(T) == 4 ? 's' : 'd') : (sizeof(T) == 8 ? 'c' : 'z');

// A sink with so many buffers of elements of T.
template <class T, int kBuffers, size_t kBytes>
class foreign_host : public testing::Test {
 protected:
  void SetUp() override {
    process_ = start_sink();
    ASSERT_NE(process_, nullptr);
    for (vro_buffer*& buffer : buffers_)
      ASSERT_EQ(vro_buffer_create(process_, kBytes, &buffer), VRO_OK) << vro_last_error();
  }
  void TearDown() override { EXPECT_EQ(vro_process_shutdown(process_, 10000), VRO_OK) << vro_last_error(); }

  T* matrix(int i) { return static_cast<T*>(vro_buffer_map(buffers_[i])); }
  std::vector<T> contents(int i, size_t elements) { return {matrix(i), matrix(i) + elements}; }
  void fill(int i, size_t elements) {
    for (size_t e = 0; e < elements; ++e) matrix(i)[e] = random_value<T>(random_);
  }

  void send(const request_bytes& block, uint32_t buffers) {
    vro_completion* done = nullptr;
    ASSERT_EQ(vro_run(process_, "ueaa_prv_card_invoke", buffers_, buffers, block.data(), block.size(), 0, &done),
              VRO_OK);
    ASSERT_EQ(vro_completion_wait(done, 60000), VRO_OK) << vro_last_error();
    vro_completion_release(done);
  }

  static constexpr size_t kElements = kBytes / sizeof(T);
  vro_process* process_ = nullptr;
  vro_buffer* buffers_[kBuffers] = {};
  std::mt19937_64 random_{20260407};
};

using precisions = testing::Types<float, double, std::complex<float>, std::complex<double>>;
