// SPDX-License-Identifier: BSD-3-Clause
// Pinning and threading settings, with the OpenMP runtime's affinity calls replaced by ones that take notes; and a
// program's optional hooks.
#include <omp.h>

#include "sink/device.h"
#include "sink/threading.h"
#include "tests/sink/request_block.h"

namespace {

std::mutex notes;
int max_processor;
int masks_alive;
std::map<int, std::set<int>> bound;  // team thread -> processors it was bound to
std::string settings, hooks;

}  // namespace

extern "C" {

int kmp_get_affinity_max_proc() { return max_processor; }
void kmp_set_defaults(char const* text) { settings = text; }

void kmp_create_affinity_mask(kmp_affinity_mask_t* mask) {
  std::lock_guard lock(notes);
  ++masks_alive;
  *mask = new std::set<int>;
}
void kmp_destroy_affinity_mask(kmp_affinity_mask_t* mask) {
  std::lock_guard lock(notes);
  --masks_alive;
  delete static_cast<std::set<int>*>(*mask);
}
int kmp_set_affinity_mask_proc(int processor, kmp_affinity_mask_t* mask) {
  static_cast<std::set<int>*>(*mask)->insert(processor);
  return 0;
}
int kmp_set_affinity(kmp_affinity_mask_t* mask) {
  std::lock_guard lock(notes);
  bound[omp_get_thread_num()] = *static_cast<std::set<int>*>(*mask);
  return -1;  // refused: nobody may care
}

TEV_EXPORT void pinning_test_worker(void*, uint32_t, uint64_t*, uint32_t) {}

TEV_EXPORT void ueaa_user_task_manager_init() {
  uint32_t device;
  hooks += tev_ueaa_current_device(&device) == 0 ? "init " : "early ";  // the device is known by now
}
TEV_EXPORT void ueaa_user_task_manager_finalize() { hooks += "finalize "; }
}

namespace {

using bindings = std::map<int, std::set<int>>;

// What each thread of a team is bound to by a request with these processors allowed.
bindings pin(int threads, int count, std::set<int> allowed, int maximum = 1024) {
  max_processor = maximum;
  bound.clear();
  request_block block;
  tev_invoke_request& request = block.prepare("pinning_test_worker");
  request.pin = 1;
  request.thread_count = threads;
  request.processor_count = count;
  for (int processor : allowed) request.processor_mask[processor - 1] = 0x80;
  block.send();
  EXPECT_EQ(masks_alive, 0);
  return bound;
}

TEST(Pinning, ThreadTakesTheAllowedProcessorOfItsNumber) {
  omp_set_dynamic(0);
  EXPECT_EQ(pin(3, 8, {2, 5, 8}), (bindings{{0, {2}}, {1, {5}}, {2, {8}}}));
  EXPECT_EQ(omp_get_max_threads(), 3);
  EXPECT_EQ(pin(2, 8, {1, 2, 3}, 8), (bindings{{0, {1}}, {1, {2}}}));       // count equal to the maximum
  EXPECT_EQ(pin(3, 4, {2, 5, 8}), (bindings{{0, {2}}, {1, {}}, {2, {}}}));  // 5 and 8 lie beyond the count
  EXPECT_EQ(pin(2, 1024, {1023, 1024}), (bindings{{0, {1023}}, {1, {1024}}}));
}

TEST(Pinning, SurplusThreadsAreBoundToNothing) {
  omp_set_dynamic(0);
  EXPECT_EQ(pin(2, 8, {}), (bindings{{0, {}}, {1, {}}}));
  EXPECT_EQ(pin(2, 0, {1, 2}), (bindings{{0, {}}, {1, {}}}));
  EXPECT_EQ(pin(2, -5, {1, 2}), (bindings{{0, {}}, {1, {}}}));
}

TEST(Pinning, CountBeyondTheMaskReadsNothingBeyondIt) {
  omp_set_dynamic(0);
  // The fields after the mask are not zero here; they must not be taken for processors 1025 and above.
  EXPECT_EQ(pin(2, 1 << 30, {7}, 1 << 30), (bindings{{0, {7}}, {1, {}}}));
}

TEST(Pinning, SkippedAboveTheRuntimesMaximumOrWhenOff) {
  omp_set_num_threads(4);
  EXPECT_EQ(pin(2, 9, {1, 2}, 8), bindings{});
  EXPECT_EQ(omp_get_max_threads(), 4);

  request_block block;
  block.prepare("pinning_test_worker").thread_count = 2;
  block.send();
  EXPECT_EQ(omp_get_max_threads(), 4);
  EXPECT_EQ(bound, bindings{});
}

TEST(DeviceThreading, SettingsAndTeamSizeAreLoaded) {
  setenv("KMP_AFFINITY", "compact", 1);
  omp_set_num_threads(4);
  request_block block;
  const auto configure = [&](const std::string& text, int32_t threads) {
    auto* record = reinterpret_cast<tev_threading_record*>(block.prepare("configure_device_threading_worker").record);
    text.copy(record->settings, sizeof(record->settings));
    record->thread_count = threads;
    block.send();
  };
  configure("KMP_BLOCKTIME=0", 0);
  EXPECT_EQ(getenv("KMP_AFFINITY"), nullptr);
  EXPECT_EQ(settings, "KMP_BLOCKTIME=0");
  EXPECT_EQ(omp_get_max_threads(), 4);
  configure("", -3);
  EXPECT_EQ(omp_get_max_threads(), 4);
  configure(std::string(1024, 'k'), 3);  // no NUL: the thread count's bytes follow
  EXPECT_EQ(settings, std::string(1024, 'k'));
  EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST(Hooks, AreCalledEachTime) {
  request_block block;
  for (uint32_t code : {TEV_REQUEST_INITIALISE, TEV_REQUEST_FINALISE, TEV_REQUEST_INITIALISE, TEV_REQUEST_FINALISE}) {
    block.prepare("").code = code;
    block.send();
  }
  EXPECT_EQ(hooks, "init finalize init finalize ");
}

}  // namespace
