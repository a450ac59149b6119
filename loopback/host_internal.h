// SPDX-License-Identifier: BSD-3-Clause
// The host's side of the runtime: its records, and what its files offer each other.
//
//   host_spawn     starts the process           host_registry  every process; what a fork does to them
//   host_channel   requests out, replies in     host_end       how a sink ended, in words
//   host_leftovers what killed sinks left behind
//   host_process, host_buffer, host_run, host_error: the public functions
//
// There is no thread of ours in the host program. Whoever waits for a reply leads: it receives, for everybody, while
// the others sleep on `changed`; when it has what it wants, the next one leads.
//
// Locks: the registry's lock before a process's; neither is held while anything waits. A fork takes all of them.
#pragma once
#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <unordered_set>

#include "loopback/channel.h"
#include "loopback/protocol.h"
#include "vro/host.h"

#define VRO_EXPORT extern "C" __attribute__((visibility("default")))

namespace vro {
enum class outcome { pending, done, refused, ended };
}

// A call of a run function. It lives until its release, and at least until its reply.
struct vro_completion {
  vro_process* process;
  uint64_t id;
  vro::outcome state;
  bool released;                           // nobody waits: freed by whoever takes its reply
  size_t misc_length, result_length;       // bytes
  std::unique_ptr<unsigned char[]> bytes;  // misc, then result, once done
  char name[VRO_MAX_NAME + 1];
  char text[vro::kMaxText + 1];  // why it was refused
};

// Memory that both sides map.
struct vro_buffer {
  vro_process* process;
  uint64_t handle;  // its name in messages
  void* address;
  size_t bytes;
};

// A running sink, or what is left of it. Everything below `lock` is guarded by it, but for the inbox, which belongs to
// the leader, and what never changes after the start.
struct vro_process {
  vro_process* next;  // registry
  pid_t pid;
  vro::spin_habit spinning;                // of the leader
  std::unique_ptr<unsigned char[]> inbox;  // kMaxReply bytes and one

  std::mutex lock;
  std::condition_variable changed;       // a reply was taken, the leader left, the sink ended
  int socket;                            // our end; -1 in a forked child
  int pidfd;                             // readable when the process has ended; -1 in a forked child
  bool serving;                          // it said hello
  bool leading;                          // somebody receives
  bool ended;                            // nothing is sent or received any more
  bool ended_well;                       // with status 0
  vro::steady::time_point end_deadline;  // until then, a sink that closed its channel may take its time to end
  uint64_t next_id;
  std::deque<vro_completion*> pending;  // sent, not answered; the first one is what the sink works on
  std::unordered_set<vro_completion*> completions;
  std::unordered_set<vro_buffer*> buffers;
  char complaint[vro::kMaxText + 3];  // ": " and what it said instead of hello
  char last_name[VRO_MAX_NAME + 1];   // of the last call that was answered
  char end_text[1024];                // why it ended
};

namespace vro {

using process_lock = std::unique_lock<std::mutex>;

inline constexpr int kLongestMs = 0x7fffffff;

// milliseconds from now; negative: the longest possible.
steady::time_point deadline_after(int milliseconds);

// Sets the calling thread's last error and returns `code`.
__attribute__((format(printf, 2, 3))) int fail(int code, const char* format, ...);

// Runs the body of a public function: no exception leaves the library.
template <class Body>
int guarded(Body body) noexcept {
  try {
    return body();
  } catch (const std::exception& e) {
    return fail(VRO_SYSTEM, "out of memory (%s)", e.what());
  }
}

// host_spawn: starts options.executable. On success *p has pid, pidfd and socket. Caller holds the registry's lock.
int spawn(const vro_process_options& options, vro_process* p);

// host_registry. Adding happens under the lock, together with the making of the descriptors; removing closes them.
std::unique_lock<std::mutex> lock_registry();
void add_to_registry(vro_process* p);
void remove_from_registry(vro_process* p);
bool is_foreign_buffer(const vro_process* not_in, vro_buffer* buffer);

// host_channel. All are called, and return, with the lock held; they let go of it while they wait.
// post sends a request; one with a completion becomes pending. pump waits for a reply, the end, or the deadline.
int post(vro_process* p, process_lock& lock, const iovec* pieces, size_t count, int descriptor, vro_completion* c,
         steady::time_point deadline);
void pump(vro_process* p, process_lock& lock, steady::time_point deadline);

// host_end. await_end waits for the process itself. conclude kills one that is still alive, takes its status and says
// in *text how it ended ("exited with status 3"); true when that was status 0. mark_ended, under the lock, fails every
// pending and later call: the sink `how` ended, and during which call.
// pause_instead_of_poll: a program with fewer open files allowed than a poll() names has it refused.
void pause_instead_of_poll();
bool await_end(int pidfd, steady::time_point deadline);
bool conclude(int pidfd, const char* if_alive, char* text, size_t room);
void mark_ended(vro_process* p, const char* how);

// host_leftovers: what this user's processes that no longer exist left behind. Called when a sink has ended, and, for
// sinks whose hosts have died too, at every start.
void remove_leftovers();

}  // namespace vro
