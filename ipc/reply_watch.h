// Breaks a client's wait for an answer that will not come.
//
// msgrcv() has no time-out, so the wait is ended from beside, by a thread of the client. Twice a second it
// looks whether a request is waiting for long. If so it asks the server to send a fence back (one that is
// still at work does so after its answer; one that has lost the request, or whose answer was dropped on a
// full queue, does so at once), again when the server has taken the fence and nothing came of it, and
// sleeps on the server's life. When the server dies, it puts the fence on the reply queue itself. Either
// way the fence ends the wait.
//
// The common path costs one system call, which asks for the server's life before a request is sent. The
// first request after an idle time also wakes the thread, and one request per tick looks for stray answers.
#ifndef HBBTV_RYN_IPC_REPLY_WATCH_H
#define HBBTV_RYN_IPC_REPLY_WATCH_H

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "ipc/peer_life.h"
#include "ipc/record.h"

namespace hbbtv_ryn {

class ReplyWatch : public Receiver {
 public:
  ReplyWatch(key_t request_key, long channel) : channel_(channel), life_(request_key) {}
  // Joins the thread, which may sleep for half a second when a slow request has just ended.
  ~ReplyWatch();
  ReplyWatch(const ReplyWatch&) = delete;
  ReplyWatch& operator=(const ReplyWatch&) = delete;

  // The calls below belong to the requester, one exchange at a time.

  // Whether a request may be sent, and its records be sent again: false when the server is known to be
  // gone.
  bool mayRead() override;
  // Whether the server sends fences back. To be asked after mayRead().
  bool answersFences();
  // A token that no request of this client, or of an earlier one, has used.
  FenceToken newToken();

  // Starts the thread, where it is needed and has not been. To be called after mayRead(). False when there
  // are no means.
  bool prepare();

  // A wait for an answer. While it lasts, a dead server, or a live one that has nothing to answer, makes a
  // fence with this token arrive on the reply queue. For an older peer nothing arrives.
  class Vigil {
   public:
    Vigil(ReplyWatch* watch, int request_queue, int reply_queue, FenceToken token) : watch_(watch) {
      watch_->begin(request_queue, reply_queue, token);
    }
    // The host may cancel the requester in its wait.
    ~Vigil() { watch_->end(); }
    Vigil(const Vigil&) = delete;
    Vigil& operator=(const Vigil&) = delete;
    // Ends the wait. True when a server has been seen to die meanwhile.
    bool end() { return watch_->end(); }

   private:
    ReplyWatch* watch_;
  };

  // Whether it is time to look, between two exchanges, if the reply queue holds an answer to nobody: true
  // once per tick.
  bool takeStrayCheck();

 private:
  void begin(int request_queue, int reply_queue, FenceToken token);
  bool end();
  static void* threadEntry(void* self);
  void run();
  void lookAfter(std::unique_lock<std::mutex>& lock, uint64_t exchange);
  void endWait(std::unique_lock<std::mutex>& lock);
  bool isWaiting(uint64_t exchange) const { return waiting_ && exchange_ == exchange && !stop_; }

  const long channel_;

  // Requester only.
  bool thread_started_ = false;
  pthread_t thread_{};
  FenceToken last_token_;

  // Set by the thread, taken by the requester.
  std::atomic<bool> stray_check_due_{true};

  // Guards everything below. Held for a few instructions, and for calls that ask for the server's life or
  // put a fence on a queue, none of which blocks.
  std::mutex mutex_;
  std::condition_variable changed_;
  PeerLife life_;
  bool stop_ = false;
  bool ticking_ = false;   // the thread looks again within a tick; else it must be woken
  bool waiting_ = false;   // a requester is between begin() and end()
  uint64_t exchange_ = 0;  // counts begin()
  uint64_t deaths_ = 0;
  uint64_t deaths_at_begin_ = 0;
  int request_queue_ = -1;
  int reply_queue_ = -1;
  FenceToken token_;
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_REPLY_WATCH_H
