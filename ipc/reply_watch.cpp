#include "ipc/reply_watch.h"

#include <sys/msg.h>

#include <chrono>
#include <new>
#include <utility>

#include "base/cancellation_off.h"
#include "base/signal_free_thread.h"

namespace hbbtv_ryn {

ReplyWatch::Ptr ReplyWatch::start(PeerLife* life, long channel) {
  auto* const watch = new (std::nothrow) ReplyWatch(life, channel);
  if (watch != nullptr && createSignalFreeThread<&ReplyWatch::run>(&watch->thread_, watch) == 0) {
    return Ptr(watch);
  }
  delete watch;
  return nullptr;
}

void ReplyWatch::Release::operator()(ReplyWatch* watch) const {
  // In a child the lock may be held for ever, and destroying the condition variable would wait for the
  // parent's thread: the child's copy is left alone.
  if (watch->isLeftBehind()) return;
  const CancellationOff off;
  {
    const std::lock_guard<std::mutex> guard(watch->mutex_);
    watch->stop_ = true;
  }
  watch->changed_.notify_one();
  pthread_join(watch->thread_, nullptr);
  delete watch;
}

void ReplyWatch::begin(int reply_queue, int deaths) {
  bool wake = false;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    reply_queue_ = reply_queue;
    deaths_ = deaths;
    waiting_ = true;
    wake = std::exchange(asleep_, false);
  }
  if (wake) changed_.notify_one();
}

bool ReplyWatch::end() {
  const std::lock_guard<std::mutex> guard(mutex_);
  waiting_ = false;
  return std::exchange(over_, false);
}

bool ReplyWatch::takeTick() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return std::exchange(ticked_, false);
}

void ReplyWatch::run() {
  constexpr std::chrono::milliseconds kTick{500};
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_) {
    if (!waiting_) {
      asleep_ = true;
      changed_.wait(lock, [this] { return stop_ || !asleep_; });
    }
    // A short exchange is over when this is, and has cost no more than the waking.
    changed_.wait_for(lock, kTick, [this] { return stop_; });
    ticked_ = true;
    if (waiting_ && !stop_) look();
  }
}

// With the mutex held, so that end() tells of every record that was put.
void ReplyWatch::look() {
  const auto deaths = life_->deaths();
  if (!deaths) return;  // somebody has removed the set: nothing can be told any more
  if (*deaths == deaths_ && life_->life() != 0) return;
  // Again at each look: another handle on the queue may have taken the last one.
  if (msgsnd(reply_queue_, &channel_, 0, IPC_NOWAIT) == 0) over_ = true;
}

}  // namespace hbbtv_ryn
