/// @file
/// Ends a client's wait for an answer that cannot come any more.
///
/// msgrcv() has no time-out, so the wait is ended from beside: while a request is out, a thread of the
/// client looks twice a second whether the server that might have it still lives. If not, it puts a record
/// of 0 bytes on the reply queue. A queue full of bytes still takes that, nothing can mistake it for an
/// answer, and a plain receiver joins nothing from it.
#ifndef HBBTV_RYN_IPC_REPLY_WATCH_H
#define HBBTV_RYN_IPC_REPLY_WATCH_H

#include <pthread.h>

#include <condition_variable>
#include <memory>
#include <mutex>

#include "base/fork_count.h"
#include "ipc/peer_life.h"

namespace hbbtv_ryn {

class ReplyWatch {
 public:
  // Stops the thread, at once.
  struct Release {
    void operator()(ReplyWatch* watch) const;
  };
  using Ptr = std::unique_ptr<ReplyWatch, Release>;

  /// Starts a thread that looks at `life`, which must outlive it. Null when there are no means.
  static Ptr start(PeerLife* life, long channel);

  ReplyWatch(const ReplyWatch&) = delete;
  ReplyWatch& operator=(const ReplyWatch&) = delete;

  /// True in a child that was forked off: the thread is the parent's.
  bool isLeftBehind() const { return forks_ != forkCount(); }

  /// From now on the thread looks: the wait is over when the count of deaths is another than this one.
  void begin(int reply_queue, int deaths);
  /// Ends the looking. Whether the thread has put its record on the reply queue.
  bool end();

  /// True once after each look: for what need not be done at every request.
  bool takeTick();

 private:
  ReplyWatch(PeerLife* life, long channel) : life_(life), channel_(channel) {}
  ~ReplyWatch() = default;
  void run();
  void look();

  PeerLife* const life_;
  const long channel_;  // a whole message for msgsnd(), which reads the type and 0 bytes
  const unsigned forks_ = forkCount();
  pthread_t thread_{};

  // Guards everything below. Held for a few instructions, and for the calls of look(), none of which
  // blocks.
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stop_ = false;
  bool asleep_ = false;   // for good: a request must wake the thread
  bool waiting_ = false;  // a requester is between begin() and end()
  bool over_ = false;     // the record has been put on the reply queue of the present wait
  bool ticked_ = true;
  int reply_queue_ = -1;
  int deaths_ = 0;
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_REPLY_WATCH_H
