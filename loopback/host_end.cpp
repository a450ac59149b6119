// SPDX-License-Identifier: BSD-3-Clause
// How a sink ended. Its process descriptor tells that it did; the status may have been taken by the host program, which
// is free to reap every child, or to ignore SIGCHLD, and of a sink that is no child there is none.
#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

extern "C" {  // some versions of this header do not say so themselves
#include <sys/pidfd.h>
}

#include "loopback/host_internal.h"

namespace vro {
namespace {

constexpr int kKillMs = 5000;  // a killed process that the system keeps longer is left to it

// False when there is none to take: it is gone, or (si_pid 0) the process still lives.
bool take_status(int pidfd, siginfo_t* info) {
  *info = {};
  int result;
  do result = waitid(P_PIDFD, static_cast<id_t>(pidfd), info, WEXITED | WNOHANG);
  while (result < 0 && errno == EINTR);
  return result == 0 && info->si_pid != 0;
}

void describe_status(const siginfo_t& status, char* text, size_t room) {
  if (status.si_code == CLD_EXITED)
    std::snprintf(text, room, "exited with status %d", status.si_status);
  else
    std::snprintf(text, room, "was killed by signal %d (%s)", status.si_status,
                  sigdescr_np(status.si_status) ? sigdescr_np(status.si_status) : "real-time");
}

// Without poll(), which looks at nothing in a program that has lowered its limit of open files to zero.
bool has_ended(int pidfd) {
  siginfo_t info = {};
  const int result = waitid(P_PIDFD, static_cast<id_t>(pidfd), &info, WEXITED | WNOHANG | WNOWAIT);
  if (result == 0) return info.si_pid != 0;
  return errno == ECHILD && pidfd_send_signal(pidfd, 0, nullptr, 0) != 0;  // a child no more, or never one
}

}  // namespace

void pause_instead_of_poll() {
  const timespec millisecond = {0, 1000000};
  nanosleep(&millisecond, nullptr);
}

steady::time_point deadline_after(int milliseconds) {
  return steady::now() + std::chrono::milliseconds(milliseconds < 0 ? kLongestMs : milliseconds);
}

bool await_end(int pidfd, steady::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady::now()).count();
    pollfd p = {pidfd, POLLIN, 0};
    const int ready = poll(&p, 1, static_cast<int>(std::clamp<int64_t>(left, 0, kLongestMs)));
    const bool unable = ready < 0 && errno != EINTR;
    if (ready > 0 || (unable && has_ended(pidfd))) return true;
    if (ready <= 0 && left <= 0) return false;
    if (unable) pause_instead_of_poll();
  }
}

bool conclude(int pidfd, const char* if_alive, char* text, size_t room) {
  const bool alive = !await_end(pidfd, steady::now());
  if (alive) {
    pidfd_send_signal(pidfd, SIGKILL, nullptr, 0);
    await_end(pidfd, deadline_after(kKillMs));
  }
  siginfo_t status;
  const bool known = take_status(pidfd, &status);
  remove_leftovers();
  const bool exited = known && status.si_code == CLD_EXITED;
  if (alive && !exited && (!known || status.si_status == SIGKILL))
    std::snprintf(text, room, "%s and was killed", if_alive);
  else if (known)
    describe_status(status, text, room);  // of a death of its own, even one that was only just faster than ours
  else
    std::snprintf(text, room, "ended (nobody knows its status)");
  return exited && status.si_status == 0;
}

void mark_ended(vro_process* p, const char* how) {
  char when[VRO_MAX_NAME + sizeof(p->complaint)] = "before its first call";
  if (!p->pending.empty())
    std::snprintf(when, sizeof(when), "while it ran '%s'", p->pending.front()->name);
  else if (*p->last_name)
    std::snprintf(when, sizeof(when), "after its last call, '%s'", p->last_name);
  else if (!p->serving)
    std::snprintf(when, sizeof(when), "before it served%s", p->complaint);
  std::snprintf(p->end_text, sizeof(p->end_text), "the sink (process %d) %s %s", static_cast<int>(p->pid), how, when);
  p->ended = true;
  for (vro_completion* c : p->pending) {
    c->state = outcome::ended;
    if (!c->released) continue;
    p->completions.erase(c);
    delete c;
  }
  p->pending.clear();
  p->changed.notify_all();
}

}  // namespace vro
