// SPDX-License-Identifier: BSD-3-Clause
// The sink's requests, built and sent one at a time.
#include "host/sink_client.h"

#include <fmt/format.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "host/failure.h"
#include "tev/check.h"

namespace tev::host {
namespace {

constexpr char kEntry[] = "ueaa_prv_card_invoke";  // the sink's function that takes every request
constexpr char kTimeWorker[] = "ueaa_prv_query_device_time_worker";
constexpr char kThreadingWorker[] = "configure_device_threading_worker";
constexpr char kReportFunction[] = "tev_sink_report";
constexpr char kTrustFunction[] = "tev_sink_trust_features";
constexpr std::string_view kProcessorType = "TEV_DEBUG_CPU_TYPE=";
constexpr size_t kReportBytes = 4096;
constexpr int kTickMs = 100;
constexpr int kEndMs = 5000;

template <size_t N>
void copy_name(char (&to)[N], const std::string& name, const char* what) {
  if (name.size() >= N) throw bad_input(fmt::format("{}: longer than {} bytes", what, N - 1));
  std::memcpy(to, name.c_str(), name.size() + 1);
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void check_pinning(const sink_settings& settings) {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0) return;
  for (const int processor : settings.pin)
    if (processor >= CPU_SETSIZE || !CPU_ISSET(processor, &allowed))
      throw bad_input(fmt::format("--pin: there is no processor {} for this program", processor));
  if (!settings.pin.empty() && settings.threads > static_cast<int>(settings.pin.size()))
    throw bad_input(
        fmt::format("--threads {}: --pin gives only {} of them a processor", settings.threads, settings.pin.size()));
}

}  // namespace

void sink_client::process_deleter::operator()(vro_process* process) const { vro_process_shutdown(process, kEndMs); }

sink_client::sink_client(const sink_settings& settings)
    : settings_(settings), request_(std::make_unique<tev_card_request>()) {
  check_pinning(settings);
  start();
  if (settings.trust_features) trust_features();
  initialise();
  apply_threads();
  busy_seconds();  // the sink's timer calibrates on first use, which takes up to a second: not in anybody's measurement
}

sink_client::~sink_client() = default;

void sink_client::start() {
  struct stat file = {};
  if (stat(settings_.executable.c_str(), &file) != 0 || access(settings_.executable.c_str(), X_OK) != 0)
    throw bad_input(fmt::format("{}: cannot be started as sink: {}", settings_.executable, std::strerror(errno)));
  if (!S_ISREG(file.st_mode)) throw bad_input(settings_.executable + ": cannot be started as sink: is not a file");
  vro_process_options options = {};
  options.executable = settings_.executable.c_str();
  options.library_path = settings_.library_path.empty() ? nullptr : settings_.library_path.c_str();
  const std::string processor_type = std::string(kProcessorType) + settings_.processor_type;
  std::vector<const char*> environment;
  if (!settings_.processor_type.empty()) {
    for (char** entry = environ; *entry; ++entry)
      if (!std::string_view(*entry).starts_with(kProcessorType)) environment.push_back(*entry);
    environment.insert(environment.end(), {processor_type.c_str(), nullptr});
    options.environment = environment.data();
  }
  options.output = STDERR_FILENO;  // our own output may be read by a program
  vro_process* process = nullptr;
  if (vro_process_create(&options, &process) != VRO_OK) throw failed(vro_last_error());
  process_.reset(process);
}

// The first request of all: any other may decide which kernels run.
void sink_client::trust_features() {
  int32_t trusted = 0;
  call(kTrustFunction, sizeof(trusted));
  std::memcpy(&trusted, vro_completion_result(answer_.get()), sizeof(trusted));
  if (trusted != 1)
    throw failed(fmt::format("{}: cannot be told to trust its processor (code {}); --tier detect does not ask it to",
                             settings_.executable, trusted));
}

void sink_client::initialise() {
  const char* path = std::getenv("ZEL_LD_LIBRARY_PATH");
  if (!path) path = std::getenv("LD_LIBRARY_PATH");
  *request_ = {};
  request_->initialise = {TEV_REQUEST_INITIALISE, 0, 1, {}};
  copy_name(request_->initialise.library_path, path ? path : "", "the library path in the environment");
  send({}, 0, {});
}

void sink_client::apply_threads() {
  if (settings_.threads == 0) return;
  tev_threading_record record = {};
  record.thread_count = settings_.threads;
  invoke(kThreadingWorker, &record, sizeof(record), {}, TEV_POST_NONE);
}

void sink_client::apply_pinning(tev_invoke_request* request) const {
  if (settings_.pin.empty()) return;
  for (const int processor : settings_.pin) request->processor_mask[processor - 1] = 1;
  request->processor_count = settings_.pin.back();
  request->thread_count = settings_.threads > 0 ? settings_.threads : static_cast<int32_t>(settings_.pin.size());
  request->pin = 1;
}

void sink_client::check(const std::vector<vro_buffer*>& buffers) const {
  std::vector<uint64_t> lengths;
  for (const vro_buffer* buffer : buffers) lengths.push_back(vro_buffer_size(buffer));
  char text[TEV_CHECK_TEXT_BYTES];
  if (tev_check_request(request_.get(), sizeof(*request_), lengths.data(), static_cast<uint32_t>(lengths.size()), text,
                        sizeof(text)) != TEV_CHECK_OK)
    throw failed(fmt::format("a wrong request, which was not sent: {}", text));
}

double sink_client::send(const std::vector<vro_buffer*>& buffers, size_t result_length, const tick& on_tick) {
  check(buffers);
  const auto start = std::chrono::steady_clock::now();
  vro_completion* completion = nullptr;
  if (vro_run(process_.get(), kEntry, buffers.data(), static_cast<uint32_t>(buffers.size()), request_.get(),
              sizeof(*request_), result_length, &completion) != VRO_OK)
    throw failed(vro_last_error());
  answer_.reset(completion);
  for (;;) {
    const int code = vro_completion_wait(completion, kTickMs);
    if (code == VRO_OK) return seconds_since(start);
    if (code != VRO_TIMEOUT) throw failed(vro_last_error());
    if (on_tick) on_tick(seconds_since(start));
  }
}

shared_buffer sink_client::make_buffer(int64_t bytes) {
  vro_buffer* buffer = nullptr;
  if (vro_buffer_create(process_.get(), static_cast<size_t>(std::max<int64_t>(bytes, 1)), &buffer) != VRO_OK)
    throw failed(vro_last_error());
  return shared_buffer(buffer);
}

void sink_client::prepare_invoke(const std::string& worker, const void* record, size_t record_bytes, int post_mode) {
  *request_ = {};
  tev_invoke_request& invoke = request_->invoke;
  invoke.code = TEV_REQUEST_INVOKE;
  copy_name(invoke.worker, worker, "name of a worker");
  std::memcpy(invoke.record, record, record_bytes);
  invoke.post_mode = post_mode;
  apply_pinning(&invoke);
}

double sink_client::invoke(const worker_call& call, const std::vector<buffer_part>& parts, int post_mode,
                           const tick& on_tick) {
  prepare_invoke(call.worker, call.record.data(), call.record.size(), post_mode);
  request_->invoke.parameter = call.parameter;
  std::vector<vro_buffer*> buffers;
  for (const buffer_part& part : parts) {
    request_->invoke.relocation[buffers.size()] = static_cast<uint64_t>(part.offset);
    buffers.push_back(part.buffer);
  }
  return send(buffers, 0, on_tick);
}

double sink_client::invoke(const std::string& worker, void* record, size_t record_bytes,
                           const std::vector<vro_buffer*>& buffers, int post_mode, const tick& on_tick) {
  prepare_invoke(worker, record, record_bytes, post_mode);
  const double seconds = send(buffers, 0, on_tick);
  const auto* left = static_cast<const unsigned char*>(vro_completion_misc(answer_.get()));
  std::memcpy(record, left + offsetof(tev_invoke_request, record), record_bytes);
  return seconds;
}

double sink_client::busy_seconds() {
  tev_device_time_record record = {-1};
  invoke(kTimeWorker, &record, sizeof(record), {}, TEV_POST_NONE);
  if (record.seconds < 0) throw failed(settings_.executable + ": does not answer as a sink: it has no busy time");
  return record.seconds;
}

void sink_client::call(const char* function, size_t result_length) {
  *request_ = {};
  request_->code = TEV_REQUEST_CALL;
  copy_name(request_->call.name, function, "name of a function");
  send({}, result_length, {});
}

std::vector<std::pair<std::string, std::string>> sink_client::report() {
  call(kReportFunction, kReportBytes);
  const auto* text = static_cast<const char*>(vro_completion_result(answer_.get()));
  std::string_view rest(text, strnlen(text, kReportBytes));
  std::vector<std::pair<std::string, std::string>> facts;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    if (const size_t equals = line.find('='); equals != line.npos)
      facts.emplace_back(line.substr(0, equals), line.substr(equals + 1));
  }
  return facts;
}

void sink_client::shut_down() {
  *request_ = {};
  request_->code = TEV_REQUEST_FINALISE;
  send({}, 0, {});
  answer_.reset();
  if (vro_process_shutdown(process_.release(), kEndMs) != VRO_OK) throw failed(vro_last_error());
}

}  // namespace tev::host
