// SPDX-License-Identifier: BSD-3-Clause
// One end of the channel: how a datagram is sent and received, the same on both sides.
//
// A receiver first asks the socket again and again for kSpinTime: an answer within that time costs no sleep and no
// wake-up, which are most of a short round trip. Then it sleeps, so an idle side costs nothing. When asking did not
// pay, the next waits sleep at once: the other side may need the very processor that asks.
#pragma once
#include <sys/socket.h>
#include <sys/uio.h>

#include <chrono>
#include <cstddef>

namespace vro {

using steady = std::chrono::steady_clock;

inline constexpr auto kSpinTime = std::chrono::microseconds(50);
inline constexpr int kMaxDescriptors = 253;  // the kernel attaches no more to one datagram

// What came with one datagram.
struct datagram {
  size_t length;                     // of the datagram, which may exceed the room: then its end is lost
  int descriptor_count;              // attached descriptors; the receiver owns them
  int descriptors[kMaxDescriptors];  // close-on-exec
};

enum class receipt { message, nothing, hung_up };

// Whether the waits of one receiver ask before they sleep.
class spin_habit {
 public:
  spin_habit();  // never when the process has a single processor to run on

  bool asks();            // in the wait that begins now?
  void learn(bool paid);  // an answer came while it asked, or did not

 private:
  bool possible_;
  int sleeps_left_ = 0, sleeps_ = 0;  // waits that sleep at once: still to come, after the last failure
};

// Tells the processor that this is a spin loop.
inline void relax() { __builtin_ia32_pause(); }

// Sends the pieces as one datagram, with `descriptor` attached unless it is -1. Returns 0 or the error number.
int send_datagram(int socket, const iovec* pieces, size_t count, int descriptor, int flags);

// Receives one datagram; never blocks under MSG_DONTWAIT. hung_up: the other end is closed and all it sent is read.
receipt receive_datagram(int socket, void* bytes, size_t room, datagram* out, int flags);

// Asks for a datagram until `deadline`, without sleeping.
receipt spin_for_datagram(int socket, void* bytes, size_t room, datagram* out, steady::time_point deadline);

}  // namespace vro
