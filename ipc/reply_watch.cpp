#include "ipc/reply_watch.h"

#include <sys/random.h>

#include <chrono>
#include <ctime>

#include "base/signal_free_thread.h"

namespace hbbtv_ryn {
namespace {

// How often the thread looks whether a request is waiting, and then whether it still is.
constexpr std::chrono::milliseconds kTick{500};
// A request that is waiting at a tick and still is so much later is looked after. The answer to any other
// one is on its way.
constexpr std::chrono::milliseconds kSlow{10};
// How many ticks without a request put the thread to sleep for good. Long enough that a host which asks
// once a second does not wake it each time.
constexpr int kIdleTicks = 4;
// How soon a fence that met a full reply queue is tried again.
constexpr std::chrono::milliseconds kFullQueuePause{100};

FenceToken firstToken() {
  FenceToken token;
  if (getrandom(&token.value, sizeof token.value, GRND_NONBLOCK) != sizeof token.value) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    token.value = static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
  }
  return token;
}

}  // namespace

ReplyWatch::~ReplyWatch() {
  if (!thread_started_) return;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  changed_.notify_one();
  pthread_join(thread_, nullptr);
}

bool ReplyWatch::mayRead() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return life_.state() != PeerLife::State::kGone;
}

bool ReplyWatch::answersFences() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return life_.answersFences();
}

FenceToken ReplyWatch::newToken() {
  if (last_token_ == FenceToken{}) last_token_ = firstToken();
  ++last_token_.value;
  return last_token_;
}

bool ReplyWatch::prepare() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (thread_started_ || life_.semaphores() < 0) return true;
  thread_started_ = createSignalFreeThread(&thread_, nullptr, &threadEntry, this) == 0;
  return thread_started_;
}

void ReplyWatch::begin(int request_queue, int reply_queue, FenceToken token) {
  const std::lock_guard<std::mutex> lock(mutex_);
  deaths_at_begin_ = deaths_;
  waiting_ = life_.semaphores() >= 0;
  if (!waiting_) return;
  ++exchange_;
  request_queue_ = request_queue;
  reply_queue_ = reply_queue;
  token_ = token;
  if (!ticking_) {
    ticking_ = true;
    changed_.notify_one();
  }
}

bool ReplyWatch::end() {
  const std::lock_guard<std::mutex> lock(mutex_);
  waiting_ = false;
  return deaths_ != deaths_at_begin_;
}

bool ReplyWatch::takeStrayCheck() {
  return stray_check_due_.load(std::memory_order_relaxed) && stray_check_due_.exchange(false);
}

void* ReplyWatch::threadEntry(void* self) {
  static_cast<ReplyWatch*>(self)->run();
  return nullptr;
}

void ReplyWatch::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  int idle_ticks = 0;
  uint64_t seen = exchange_;
  while (!stop_) {
    if (!ticking_) {
      changed_.wait(lock, [this] { return stop_ || ticking_; });
      idle_ticks = 0;
    }
    changed_.wait_for(lock, kTick, [this] { return stop_; });
    stray_check_due_ = true;
    const uint64_t exchange = exchange_;
    idle_ticks = exchange == seen ? idle_ticks + 1 : 0;
    seen = exchange;
    if (waiting_) {
      changed_.wait_for(lock, kSlow, [this] { return stop_; });
      if (isWaiting(exchange)) lookAfter(lock, exchange);
    } else if (idle_ticks >= kIdleTicks) {
      ticking_ = false;
    }
  }
}

void ReplyWatch::lookAfter(std::unique_lock<std::mutex>& lock, uint64_t exchange) {
  bool fence_sent = false;
  while (isWaiting(exchange)) {
    // A fence can get lost: on a full reply queue, or with a server that died and was replaced between two
    // looks. An empty queue shows that it has been taken; so no more than one ever waits on it.
    const bool fence_due = !fence_sent || isEmpty(request_queue_);
    if (fence_due && life_.answersFences() && postFence(request_queue_, channel_, token_))
      fence_sent = true;
    const int semaphores = life_.semaphores();
    lock.unlock();
    const bool died = PeerLife::awaitDeath(semaphores, kTick);
    lock.lock();
    if (died) endWait(lock);
  }
}

// Ends the wait of whichever request is out, now that the server is dead.
void ReplyWatch::endWait(std::unique_lock<std::mutex>& lock) {
  ++deaths_;
  const uint64_t exchange = exchange_;
  while (isWaiting(exchange) && !postFence(reply_queue_, channel_, token_)) {
    changed_.wait_for(lock, kFullQueuePause);
  }
  // Until the requester has taken the fence, its exchange still counts as waiting.
  changed_.wait_for(lock, kFullQueuePause, [&] { return !isWaiting(exchange); });
}

}  // namespace hbbtv_ryn
