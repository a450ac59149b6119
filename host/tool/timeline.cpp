// SPDX-License-Identifier: BSD-3-Clause
#include "host/tool/timeline.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <set>

#include "host/replacement_file.h"

namespace tev::host::tool {
namespace {

using json = nlohmann::ordered_json;

enum { kHost = 1, kSink = 2 };       // groups
enum { kPhases = 0, kThreads = 1 };  // the first tracks of a group

json name_of_track(const char* what, int group, int track, const std::string& name) {
  return {{"name", what}, {"ph", "M"}, {"pid", group}, {"tid", track}, {"args", {{"name", name}}}};
}

// Microseconds since `start`.
json event(const std::string& name, const char* category, int group, int track, double start, double begin,
           double end) {
  return {{"name", name},
          {"cat", category},
          {"ph", "X"},
          {"pid", group},
          {"tid", track},
          {"ts", (begin - start) * 1e6},
          {"dur", (end - begin) * 1e6}};
}

json event_of(const tev_offload_span& s, double start) {
  static constexpr const char* kCategories[] = {"panel", "update", "wait", "request"};
  const char* const category = kCategories[s.kind];
  const std::string name = s.kind == TEV_OFFLOAD_WAIT      ? "wait"
                           : s.kind == TEV_OFFLOAD_PANEL   ? fmt::format("panel {}", s.panel)
                           : s.kind == TEV_OFFLOAD_REQUEST ? fmt::format("request by {}", s.panel)
                                                           : fmt::format("update by {}", s.panel);
  const bool by_sink = s.thread < 0;
  json e =
      event(name, category, by_sink ? kSink : kHost, by_sink ? kThreads : kThreads + s.thread, start, s.begin, s.end);
  if (s.kind == TEV_OFFLOAD_UPDATE || s.kind == TEV_OFFLOAD_REQUEST)
    e["args"] = {{"panel", s.panel}, {"first_block", s.first_block}, {"last_block", s.end_block - 1}};
  return e;
}

std::string trace_text(const system_outcome& o) {
  const double start = o.phases.front().begin;
  json events = json::array({name_of_track("process_name", kHost, kPhases, "this process"),
                             name_of_track("thread_name", kHost, kPhases, "phases")});
  std::set<int32_t> threads;
  for (const tev_offload_span& s : o.spans) threads.insert(s.thread);
  for (const int32_t thread : threads)
    if (thread >= 0)
      events.push_back(name_of_track("thread_name", kHost, kThreads + thread, fmt::format("thread {}", thread)));
  if (threads.contains(-1)) {
    events.push_back(name_of_track("process_name", kSink, kThreads, "sink"));
    events.push_back(name_of_track("thread_name", kSink, kThreads, "team"));
  }
  for (const phase& p : o.phases) events.push_back(event(p.name, "phase", kHost, kPhases, start, p.begin, p.end));
  for (const tev_offload_span& s : o.spans) events.push_back(event_of(s, start));
  return json({{"traceEvents", events}, {"displayTimeUnit", "ms"}}).dump(0) + "\n";
}

}  // namespace

void write_timeline(const std::string& path, const system_outcome& o) { write_file(path, trace_text(o)); }

}  // namespace tev::host::tool
