// SPDX-License-Identifier: BSD-3-Clause
#include "offload/connection.h"

#include <omp.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "service/affinity.h"

namespace tev::offload {
namespace {

constexpr char kEntry[] = "ueaa_prv_card_invoke";  // the sink's function that takes every request
constexpr char kTimeWorker[] = "ueaa_prv_query_device_time_worker";
constexpr char kThreadingWorker[] = "configure_device_threading_worker";
constexpr char kTrustFunction[] = "tev_sink_trust_features";
constexpr int kEndMs = 5000;

// The team has the size that it was given, however crowded the machine is: its size may decide the last bits.
constexpr char kFixedTeam[] = "TEV_DYNAMIC=FALSE";

std::vector<const char*> sink_environment() {
  const size_t name_length = std::strcspn(kFixedTeam, "=") + 1;
  std::vector<const char*> variables;
  for (char** variable = environ; *variable != nullptr; ++variable)
    if (std::strncmp(*variable, kFixedTeam, name_length) != 0) variables.push_back(*variable);
  variables.insert(variables.end(), {kFixedTeam, nullptr});
  return variables;
}

// While it lives this thread may run wherever its team may: a process has the affinity of the thread that starts it,
// which OpenMP may have bound to one place.
class unbound_thread {
 public:
  unbound_thread() : bytes_(omp_get_proc_bind() == omp_proc_bind_false ? 0 : service::get_affinity(&before_)) {
    if (bytes_ > 0) service::set_affinity(service::team_processors(), bytes_);
  }
  ~unbound_thread() {
    if (bytes_ > 0) service::set_affinity(before_, bytes_);
  }
  unbound_thread(const unbound_thread&) = delete;
  unbound_thread& operator=(const unbound_thread&) = delete;

 private:
  service::processor_set before_;
  size_t bytes_;  // of the kernel's masks; 0: nothing was changed
};

}  // namespace

void connection::process_deleter::operator()(vro_process* process) const { vro_process_shutdown(process, kEndMs); }

connection::connection(const connection_options& options)
    : block_(std::make_unique<tev_card_request>()), patience_ms_(options.patience_ms) {
  if (start(options)) set_up(options);
}

connection::~connection() {
  waiting_.clear();
  answer_.reset();
}

bool connection::start(const connection_options& options) {
  vro_process_options process_options = {};
  process_options.executable = options.sink.c_str();
  process_options.library_path = options.library_path.empty() ? nullptr : options.library_path.c_str();
  process_options.output = STDERR_FILENO;
  process_options.detached = options.detached ? 1 : 0;
  const std::vector<const char*> environment = sink_environment();
  process_options.environment = environment.data();
  vro_process* process = nullptr;
  const unbound_thread unbound;
  if (vro_process_create(&process_options, &process) != VRO_OK) fail(vro_last_error());
  process_.reset(process);
  return !has_ended();
}

// Trust comes first: any other request may decide which kernels run.
bool connection::set_up(const connection_options& options) {
  if (options.trust_features) {
    *block_ = {};
    block_->code = TEV_REQUEST_CALL;
    std::strcpy(block_->call.name, kTrustFunction);
    int32_t trusted = 0;
    wait_for(send_block({}, sizeof(trusted)));
    if (has_ended()) return false;
    std::memcpy(&trusted, vro_completion_result(answer_.get()), sizeof(trusted));
    if (trusted != 1) fail("the sink cannot be told to trust its processor");
  }
  *block_ = {};
  block_->initialise = {TEV_REQUEST_INITIALISE, 0, 1, {}};
  if (const char* path = std::getenv("LD_LIBRARY_PATH"))
    std::strncpy(block_->initialise.library_path, path, sizeof(block_->initialise.library_path) - 1);
  wait_for(send_block({}, 0));
  tev_threading_record record = {};
  record.thread_count = options.threads;
  ask(kThreadingWorker, &record);
  return !has_ended();
}

void connection::fail(const char* why) noexcept {
  waiting_.clear();
  if (!error_.empty()) return;
  try {
    error_ = *why != '\0' ? why : "the sink has ended";
  } catch (const std::bad_alloc&) {
    error_ = "no memory";  // needs none
  }
}

// ---- Memory

connection::buffer_map::const_iterator connection::buffer_of(const void* address) const {
  auto place = buffers_.upper_bound(static_cast<const char*>(address));
  if (place == buffers_.begin()) return buffers_.end();
  --place;
  const bool inside = static_cast<const char*>(address) < place->first + vro_buffer_size(place->second);
  return inside ? place : buffers_.end();
}

void* connection::allocate(size_t bytes) {
  vro_buffer* made = nullptr;
  const int code = vro_buffer_create(process_.get(), bytes > 0 ? bytes : 1, &made);
  if (code == VRO_ENDED) fail(vro_last_error());
  if (code != VRO_OK) return nullptr;
  std::unique_ptr<vro_buffer, int (*)(vro_buffer*)> buffer(made, vro_buffer_destroy);
  void* const address = vro_buffer_map(made);
  buffers_.emplace(static_cast<const char*>(address), made);
  buffer.release();
  return address;
}

void connection::release(void* memory) {
  const auto place = buffers_.find(static_cast<const char*>(memory));
  if (place == buffers_.end()) return;
  vro_buffer_destroy(place->second);
  buffers_.erase(place);
}

// ---- Requests

int64_t connection::send_block(const std::vector<vro_buffer*>& buffers, size_t result_bytes) {
  vro_completion* completion = nullptr;
  if (has_ended()) return sent_;
  if (vro_run(process_.get(), kEntry, buffers.data(), static_cast<uint32_t>(buffers.size()), block_.get(),
              sizeof(*block_), result_bytes, &completion) != VRO_OK) {
    fail(vro_last_error());
    return sent_;
  }
  decltype(answer_) sent(completion);
  waiting_.push_back({std::move(sent), {}});
  return ++sent_;
}

int64_t connection::send(const step_request& step) {
  *block_ = {};
  tev_invoke_request& invoke = block_->invoke;
  invoke.code = TEV_REQUEST_INVOKE;
  invoke.parameter = step.parameter;
  invoke.post_mode = TEV_POST_ADD;
  step.worker.copy(invoke.worker, TEV_WORKER_NAME_BYTES - 1);
  std::memcpy(invoke.record, step.record.data(), step.record.size());
  std::vector<vro_buffer*> buffers;
  for (const void* operand : step.operands) {
    const auto place = buffer_of(operand);
    invoke.relocation[buffers.size()] = static_cast<uint64_t>(static_cast<const char*>(operand) - place->first);
    buffers.push_back(place->second);
  }
  return send_block(buffers, 0);
}

// False: it is not done yet.
bool connection::take_oldest(int timeout_ms) {
  const int code = vro_completion_wait(waiting_.front().completion.get(), timeout_ms);
  if (code == VRO_TIMEOUT && timeout_ms == 0) return false;
  if (code == VRO_TIMEOUT) {
    vro_process_kill(process_.get(), "did not answer in time");
    return take_oldest(timeout_ms);
  }
  if (code != VRO_OK) {
    fail(vro_last_error());
    return true;
  }
  request oldest = std::move(waiting_.front());
  waiting_.pop_front();
  answer_ = std::move(oldest.completion);
  if (oldest.busy_told) oldest.busy_told(answer<tev_device_time_record>().seconds);
  return true;
}

int64_t connection::under_way() {
  while (!waiting_.empty() && take_oldest(0)) {
  }
  return static_cast<int64_t>(waiting_.size());
}

bool connection::is_done(int64_t number) { return sent_ - under_way() >= number; }

void connection::wait_for(int64_t number) {
  while (!waiting_.empty() && sent_ - static_cast<int64_t>(waiting_.size()) < number) take_oldest(patience_ms_);
}

void connection::wait_for_oldest() {
  if (!waiting_.empty()) take_oldest(patience_ms_);
}

void connection::wait_for_all() {
  while (!waiting_.empty()) take_oldest(patience_ms_);
}

int64_t connection::send_question(const char* worker, const void* record, size_t bytes) {
  *block_ = {};
  block_->invoke.code = TEV_REQUEST_INVOKE;
  std::strcpy(block_->invoke.worker, worker);
  std::memcpy(block_->invoke.record, record, bytes);
  return send_block({}, 0);
}

// Of the last request that was done.
template <class Record>
Record connection::answer() const {
  Record record;
  const auto* left = static_cast<const unsigned char*>(vro_completion_misc(answer_.get()));
  std::memcpy(&record, left + offsetof(tev_invoke_request, record), sizeof(record));
  return record;
}

template <class Record>
void connection::ask(const char* worker, Record* record) {
  wait_for(send_question(worker, record, sizeof(*record)));
  if (!has_ended()) *record = answer<Record>();
}

double connection::busy_seconds() {
  tev_device_time_record record = {0};
  ask(kTimeWorker, &record);
  return record.seconds;
}

void connection::ask_busy_seconds(std::function<void(double)> told) {
  const tev_device_time_record record = {0};
  send_question(kTimeWorker, &record, sizeof(record));
  if (!has_ended()) waiting_.back().busy_told = std::move(told);
}

}  // namespace tev::offload
