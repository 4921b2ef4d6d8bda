#include "capture/linux/touch_watch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace cvn::agent {

TouchWatch::TouchWatch(int descriptor, std::function<void()> touched)
    : descriptor_(descriptor), touched_(std::move(touched)) {
  if (!touched_) return;
  nudge_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (nudge_ >= 0) thread_ = std::thread([this] { Run(); });
}

TouchWatch::~TouchWatch() {
  {
    MutexLock lock(mutex_);
    stop_ = true;
  }
  Nudge();
  if (thread_.joinable()) thread_.join();
  if (nudge_ >= 0) close(nudge_);
}

void TouchWatch::Pause() {
  MutexLock lock(mutex_);
  ++turn_;
  armed_ = false;
  alreadyTouched_ = false;
}

void TouchWatch::Resume(bool alreadyTouched) {
  bool nudge = false;
  {
    MutexLock lock(mutex_);
    armed_ = true;
    alreadyTouched_ = alreadyTouched;
    nudge = parked_ || alreadyTouched;
  }
  if (nudge) Nudge();
}

void TouchWatch::Nudge() const {
  // It cannot fail: the counter would have to overflow.
  if (nudge_ >= 0) eventfd_write(nudge_, 1);
}

TouchWatch::Order TouchWatch::NextOrder() {
  MutexLock lock(mutex_);
  const Order order = {
      .stop = stop_, .armed = armed_, .fire = armed_ && std::exchange(alreadyTouched_, false), .turn = turn_};
  if (order.fire) armed_ = false;
  parked_ = !order.armed;
  return order;
}

/// True when what has arrived belongs to nobody's reading.
bool TouchWatch::Disarm(uint64_t turn) {
  MutexLock lock(mutex_);
  return turn_ == turn && std::exchange(armed_, false);
}

void TouchWatch::Run() {
  while (true) {
    const Order order = NextOrder();
    if (order.stop) return;
    if (order.fire) {
      touched_();
      continue;
    }
    std::array<pollfd, 2> waits = {{{.fd = nudge_, .events = POLLIN, .revents = 0},
                                    {.fd = order.armed ? descriptor_ : -1, .events = POLLIN, .revents = 0}}};
    poll(waits.data(), waits.size(), -1);
    eventfd_t nudges = 0;
    if (waits[0].revents != 0) eventfd_read(nudge_, &nudges);
    if (waits[1].revents != 0 && Disarm(order.turn)) touched_();
  }
}

}  // namespace cvn::agent
