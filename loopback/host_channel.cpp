// SPDX-License-Identifier: BSD-3-Clause
// Requests out, replies in. A full channel never blocks a sender without replies being taken, so two full directions
// come free; a sink that ended is noticed by its socket or by its process descriptor, whichever speaks first (a child
// of the sink may keep the socket open).
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "loopback/host_internal.h"
#include "loopback/parse.h"

namespace vro {
namespace {

constexpr int kGraceMs = 200;       // from the close of the channel to the end of the process
constexpr int kOtherLeaderMs = 10;  // between a sender's looks while somebody else receives
constexpr int kCrowdedMs = 5;       // between a sender's tries while too many descriptors are under way

enum class happening { message, timeout, room, ended };

timespec until(steady::time_point deadline) {
  const auto left = std::max(deadline - steady::now(), steady::duration::zero());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
  return {seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
}

// The leader's wait, without the lock.
happening await(vro_process* p, bool want_room, steady::time_point deadline, datagram* got) {
  const auto spin_end = steady::now() + kSpinTime;
  bool asks = !want_room && spin_end < deadline && p->spinning.asks();
  pollfd watched[] = {{p->socket, static_cast<short>(want_room ? POLLIN | POLLOUT : POLLIN), 0}, {p->pidfd, POLLIN, 0}};
  for (;;) {
    const auto until_then = asks ? spin_end : steady::time_point::min();
    const receipt r = spin_for_datagram(p->socket, p->inbox.get(), kMaxReply + 1, got, until_then);
    if (asks) p->spinning.learn(r != receipt::nothing);
    asks = false;
    if (r == receipt::message) return happening::message;
    if (r == receipt::hung_up || watched[1].revents) return happening::ended;  // all that the sink sent is read
    if (watched[0].revents & POLLOUT) return happening::room;
    const timespec left = until(deadline);
    const int ready = ppoll(watched, 2, &left, nullptr);
    if (ready < 0 && errno != EINTR) pause_instead_of_poll();
    if (ready <= 0 && steady::now() >= deadline) return happening::timeout;
    if (ready < 0) watched[0].revents = watched[1].revents = 0;
  }
}

// Hands a reply to the call that it answers. False when it makes no sense.
bool take_reply(vro_process* p, const datagram& got) {
  reply_view reply;
  if (parse_reply(p->inbox.get(), std::min(got.length, kMaxReply + 1), &reply)) return false;
  if (!p->serving && reply.kind == kRefused) {
    std::snprintf(p->complaint, sizeof(p->complaint), ": %.*s", static_cast<int>(reply.text_length), reply.text);
    return true;
  }
  p->serving = true;
  const auto place = std::find_if(p->pending.begin(), p->pending.end(), [&](auto* c) { return c->id == reply.id; });
  if (place == p->pending.end()) return true;  // hello, or a word about a buffer: its runs will tell
  vro_completion* c = *place;
  if (reply.kind == kDone && (reply.misc_length != c->misc_length || reply.result_length != c->result_length))
    return false;
  p->pending.erase(place);
  std::memcpy(p->last_name, c->name, sizeof(c->name));
  if (c->released) {
    p->completions.erase(c);
    delete c;
  } else if (reply.kind == kDone) {
    std::memcpy(c->bytes.get(), reply.misc, c->misc_length + c->result_length);
    c->state = outcome::done;
  } else {
    std::snprintf(c->text, sizeof(c->text), "%.*s", static_cast<int>(reply.text_length), reply.text);
    c->state = outcome::refused;
  }
  return true;
}

// The sink has ended, or must by the deadline. Lets go of the lock meanwhile.
void end_process(vro_process* p, process_lock& lock, const char* if_alive, steady::time_point deadline) {
  char how[256];
  lock.unlock();
  await_end(p->pidfd, deadline);
  const bool well = conclude(p->pidfd, if_alive, how, sizeof(how));
  lock.lock();
  p->ended_well = well;
  mark_ended(p, how);
}

// Takes one reply, or notices what else happens. Nobody leads yet.
void lead(vro_process* p, process_lock& lock, bool want_room, steady::time_point deadline) {
  datagram got;
  p->leading = true;
  lock.unlock();
  const happening what = await(p, want_room, deadline, &got);
  for (int i = 0; what == happening::message && i < got.descriptor_count; ++i) close(got.descriptors[i]);
  lock.lock();
  if (what == happening::ended)
    end_process(p, lock, "closed its channel, did not end in time",
                std::max(p->end_deadline, deadline_after(kGraceMs)));  // from now on, however long the wait was
  if (what == happening::message && !take_reply(p, got))
    end_process(p, lock, "sent a message that makes no sense", steady::now());
  p->leading = false;
  p->changed.notify_all();
}

void wait_for_room(vro_process* p, process_lock& lock, steady::time_point deadline) {
  if (!p->leading) return lead(p, lock, true, deadline);
  lock.unlock();
  pollfd watched = {p->socket, POLLOUT, 0};
  poll(&watched, 1, kOtherLeaderMs);
  lock.lock();
}

}  // namespace

void pump(vro_process* p, process_lock& lock, steady::time_point deadline) {
  if (p->leading)
    p->changed.wait_until(lock, deadline);
  else
    lead(p, lock, false, deadline);
}

int post(vro_process* p, process_lock& lock, const iovec* pieces, size_t count, int descriptor, vro_completion* c,
         steady::time_point deadline) {
  for (;;) {
    if (p->ended) return fail(VRO_ENDED, "%s", p->end_text);
    if (c) p->pending.push_back(c);
    const int error = send_datagram(p->socket, pieces, count, descriptor, MSG_DONTWAIT);
    if (error == 0) return VRO_OK;
    if (c) p->pending.pop_back();
    if (error == EAGAIN)
      wait_for_room(p, lock, deadline);
    else if (error == ETOOMANYREFS)  // the socket itself has room, so nothing would tell
      pump(p, lock, std::min(deadline, deadline_after(kCrowdedMs)));
    else if (error == EPIPE || error == ECONNRESET)
      pump(p, lock, deadline);  // towards the end of the process
    else
      return fail(VRO_SYSTEM, "cannot send to the sink: %s", strerrordesc_np(error));
    if (!p->ended && steady::now() >= deadline) return fail(VRO_TIMEOUT, "the sink takes no more requests");
  }
}

}  // namespace vro
