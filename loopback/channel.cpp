// SPDX-License-Identifier: BSD-3-Clause
// Datagrams on the channel. No call raises SIGPIPE, interrupted calls are restarted.
#include "loopback/channel.h"

#include <poll.h>
#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vro {
namespace {

union control_block {
  cmsghdr alignment;
  char bytes[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
};

void take_descriptors(msghdr* message, datagram* out) {
  for (cmsghdr* c = CMSG_FIRSTHDR(message); c; c = CMSG_NXTHDR(message, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
    const size_t bytes = c->cmsg_len - CMSG_LEN(0);
    std::memcpy(out->descriptors, CMSG_DATA(c), bytes);  // there is one such block, and it fits
    out->descriptor_count = static_cast<int>(bytes / sizeof(int));
  }
}

// An empty datagram and a closed end read alike; only the poll tells them apart.
bool is_hung_up(int socket) {
  pollfd p = {socket, 0, 0};
  return poll(&p, 1, 0) < 0 || p.revents != 0;
}

}  // namespace

spin_habit::spin_habit() {
  cpu_set_t allowed;
  possible_ = sched_getaffinity(0, sizeof(allowed), &allowed) != 0 || CPU_COUNT(&allowed) > 1;
}

bool spin_habit::asks() {
  if (!possible_) return false;
  if (sleeps_left_ == 0) return true;
  --sleeps_left_;
  return false;
}

void spin_habit::learn(bool paid) {
  constexpr int kMostSleeps = 15;
  sleeps_ = paid ? 0 : std::min(2 * sleeps_ + 1, kMostSleeps);
  sleeps_left_ = sleeps_;
}

int send_datagram(int socket, const iovec* pieces, size_t count, int descriptor, int flags) {
  msghdr message = {};
  message.msg_iov = const_cast<iovec*>(pieces);
  message.msg_iovlen = count;
  control_block control;
  if (descriptor >= 0) {
    message.msg_control = control.bytes;
    message.msg_controllen = CMSG_SPACE(sizeof(int));
    cmsghdr* c = CMSG_FIRSTHDR(&message);
    c->cmsg_level = SOL_SOCKET;
    c->cmsg_type = SCM_RIGHTS;
    c->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(c), &descriptor, sizeof(int));
  }
  for (;;) {
    if (sendmsg(socket, &message, flags | MSG_NOSIGNAL) >= 0) return 0;
    if (errno != EINTR) return errno;
  }
}

receipt receive_datagram(int socket, void* bytes, size_t room, datagram* out, int flags) {
  for (;;) {
    iovec piece = {bytes, room};
    control_block control;
    msghdr message = {};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof(control.bytes);
    const ssize_t got = recvmsg(socket, &message, flags | MSG_TRUNC | MSG_CMSG_CLOEXEC);
    if (got < 0 && (errno == EINTR || errno == ECONNRESET)) continue;  // a reset is told once, before what is unread
    if (got < 0) return errno == EAGAIN ? receipt::nothing : receipt::hung_up;
    out->length = static_cast<size_t>(got);
    out->descriptor_count = 0;
    take_descriptors(&message, out);
    return got == 0 && is_hung_up(socket) ? receipt::hung_up : receipt::message;
  }
}

receipt spin_for_datagram(int socket, void* bytes, size_t room, datagram* out, steady::time_point deadline) {
  for (;;) {
    const receipt r = receive_datagram(socket, bytes, room, out, MSG_DONTWAIT);
    if (r != receipt::nothing || steady::now() >= deadline) return r;
    relax();
  }
}

}  // namespace vro
