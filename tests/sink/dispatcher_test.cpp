// SPDX-License-Identifier: BSD-3-Clause
// The request dispatcher called in one process, as a pipeline would call it.
#include <omp.h>

#include "service/load_fun.h"
#include "sink/device.h"
#include "sink/threading.h"
#include "tests/sink/request_block.h"
#include "tests/support/failing_new.h"

namespace {

struct seen_call {
  int calls;
  void* record;
  uint32_t parameter, count;
  std::vector<uint64_t> table;
  void* result;
  uint32_t result_length;
} seen;

double busy_time() {
  request_block block;
  block.prepare("ueaa_prv_query_device_time_worker");
  block.send();
  double seconds;
  std::memcpy(&seconds, block.invoke().record, sizeof(seconds));
  return seconds;
}

}  // namespace

extern "C" {

void tev_sink_report(char* text, uint32_t length);

TEV_EXPORT int dispatcher_test_data = 7;

TEV_EXPORT void dispatcher_test_worker(void* record, uint32_t parameter, uint64_t* buffers, uint32_t count) {
  ++seen.calls;
  seen.record = record;
  seen.parameter = parameter;
  seen.count = count;
  seen.table.assign(buffers, buffers + TEV_REQUEST_BUFFERS);
}

TEV_EXPORT void dispatcher_test_sleep_20ms(void*, uint32_t, uint64_t*, uint32_t) { usleep(20000); }

TEV_EXPORT void dispatcher_test_function(void* result, uint32_t length) {
  ++seen.calls;
  seen.result = result;
  seen.result_length = length;
}
}

TEST(Dispatcher, WhatDoesNotMatchIsSkipped) {
  ueaa_prv_post_device_time(TEV_POST_REPLACE, 5.0);
  request_block block;
  for (uint32_t code : {2u, 3u, 5u, 8u, 0xffffffffu}) {
    block.prepare("dispatcher_test_worker").code = code;
    block.send();
  }
  const std::string names[] = {"no_such_worker", "", std::string(256, 'x'), "dispatcher_test_data", "environ", "_end"};
  for (const std::string& name : names) {
    block.prepare(name).post_mode = TEV_POST_REPLACE;
    block.send();
    std::memset(static_cast<void*>(&*block), 0, TEV_REQUEST_BYTES);
    (*block).call.code = TEV_REQUEST_CALL;
    name.copy((*block).call.name, sizeof((*block).call.name));
    block.send();
  }
  std::memset(static_cast<void*>(&*block), 'x', TEV_REQUEST_BYTES);  // a name that runs to the block's very end
  (*block).code = TEV_REQUEST_CALL;
  block.send();
  block.prepare("").code = TEV_REQUEST_FINALISE;  // no hooks in this program
  block.send();
  EXPECT_EQ(seen.calls, 0);
  EXPECT_EQ(busy_time(), 5.0);
}

TEST(Dispatcher, NamesOfDataAreNotFunctions) {
  EXPECT_NE(tev_serv_load_fun("dispatcher_test_worker"), nullptr);
  EXPECT_EQ(tev_serv_load_fun("dispatcher_test_data"), nullptr);
  EXPECT_EQ(tev_serv_load_fun("g_device_time"), nullptr);
}

TEST(Dispatcher, WorkerGetsRecordParameterAndRelocatedBuffers) {
  request_block block;
  const auto address = [](uint64_t a) { return reinterpret_cast<void*>(a); };
  tev_invoke_request& request = block.prepare("dispatcher_test_worker");
  request.parameter = 0xfedcba98u;
  request.relocation[0] = 16;
  request.relocation[1] = ~uint64_t{0};  // minus one
  request.relocation[2] = 0x8000000000000000u;
  block.send({address(0x1000), address(0x2000), address(0x8000000000000001u)});
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.record, request.record);
  EXPECT_EQ(seen.parameter, 0xfedcba98u);
  EXPECT_EQ(seen.count, 3u);
  EXPECT_EQ(seen.table[0], 0x1010u);
  EXPECT_EQ(seen.table[1], 0x1fffu);
  EXPECT_EQ(seen.table[2], 1u);
}

TEST(Dispatcher, BufferCountsFromNoneToTooMany) {
  request_block block;
  for (uint32_t count : {127u, 128u, 200u, 1u, 0u}) {
    tev_invoke_request& request = block.prepare("dispatcher_test_worker");
    for (uint64_t& offset : request.relocation) offset = 0x100;
    block.send(std::vector<void*>(count, reinterpret_cast<void*>(0x7000)));
    EXPECT_EQ(seen.count, count);
    for (uint32_t i = 0; i < TEV_REQUEST_BUFFERS; ++i)
      EXPECT_EQ(seen.table[i], i < count ? 0x7100u : 0u) << "entry " << i << " of " << count << " buffers";
  }
}

TEST(Dispatcher, BusyTimeIsPostedByMode) {
  request_block block;
  const auto run = [&](int32_t mode) {
    block.prepare("dispatcher_test_sleep_20ms").post_mode = mode;
    block.send();
    return busy_time();
  };
  const double first = run(TEV_POST_ADD);
  EXPECT_GE(first, 0.0195);
  EXPECT_LT(first, 2.0);
  EXPECT_EQ(run(TEV_POST_NONE), first);
  const double second = run(TEV_POST_ADD);
  EXPECT_GE(second, first + 0.0195);
  const double third = run(-7);
  EXPECT_GE(third, second + 0.0195);
  const double replaced = run(TEV_POST_REPLACE);
  EXPECT_LT(replaced, third);
  EXPECT_GE(replaced, 0.0195);

  // A query that posts its own time still reports the total from before.
  block.prepare("ueaa_prv_query_device_time_worker").post_mode = TEV_POST_REPLACE;
  block.send();
  double seconds;
  std::memcpy(&seconds, block.invoke().record, sizeof(seconds));
  EXPECT_EQ(seconds, replaced);
  EXPECT_LT(busy_time(), replaced);
}

TEST(Dispatcher, InitialiseTellsTheDeviceAndOutlivesFinalise) {
  uint32_t device = 77;
  EXPECT_EQ(tev_ueaa_current_device(&device), -1);
  EXPECT_EQ(device, 77u);

  request_block block;
  const auto initialise = [&](uint32_t number, const std::string& path) {
    std::memset(static_cast<void*>(&*block), 0, TEV_REQUEST_BYTES);
    tev_initialise_request& request = (*block).initialise;
    request.code = TEV_REQUEST_INITIALISE;
    request.device = number;
    request.devices = 9;
    path.copy(request.library_path, sizeof(request.library_path));
    block.send();
  };
  initialise(3, "/opt/one:/opt/two");
  EXPECT_EQ(tev_ueaa_current_device(&device), 0);
  EXPECT_EQ(device, 3u);
  EXPECT_EQ(device_count(), 9u);
  EXPECT_STREQ(getenv("ZEL_LD_LIBRARY_PATH"), "/opt/one:/opt/two");
  EXPECT_EQ(tev_ueaa_current_device(nullptr), -1);

  initialise(4, std::string(32308, 'p'));  // no NUL before the block's end
  EXPECT_EQ(std::strlen(getenv("ZEL_LD_LIBRARY_PATH")), 32308u);
  block.prepare("").code = TEV_REQUEST_FINALISE;
  block.send();
  EXPECT_EQ(tev_ueaa_current_device(&device), 0);
  EXPECT_EQ(device, 4u);
}

TEST(Dispatcher, CalledFunctionGetsTheResultBuffer) {
  request_block block;
  char result[16];
  std::memset(static_cast<void*>(&*block), 0, TEV_REQUEST_BYTES);
  (*block).call = {TEV_REQUEST_CALL, "dispatcher_test_function"};
  block.send({}, result, 65535);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.result, result);
  EXPECT_EQ(seen.result_length, 65535u);
}

TEST(Report, NeedsNoMemoryAndIsCutToItsRoom) {
  std::string whole(4096, '#');
  tev_sink_report(whole.data(), 4096);
  ASSERT_NE(whole.find("\nseconds="), std::string::npos);
  for (uint32_t length : {0u, 1u, 2u, 40u, 300u}) {
    std::string text(4096, '#');
    tev::test::new_fails = true;
    tev_sink_report(text.data(), length);
    tev::test::new_fails = false;
    const std::string end = length == 0 ? "" : std::string(1, '\0');
    EXPECT_EQ(text.substr(0, length + 1), whole.substr(0, length - end.size()) + end + "#") << length;
  }
}
