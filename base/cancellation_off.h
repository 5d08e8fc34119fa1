/// @file
/// What a thread must finish that its owner may cancel.
#ifndef HBBTV_RYN_BASE_CANCELLATION_OFF_H
#define HBBTV_RYN_BASE_CANCELLATION_OFF_H

#include <pthread.h>

namespace hbbtv_ryn {

/// While it lives, a cancellation of the thread stays pending.
class CancellationOff {
 public:
  CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  ~CancellationOff() { pthread_setcancelstate(before_, &before_); }
  CancellationOff(const CancellationOff&) = delete;
  CancellationOff& operator=(const CancellationOff&) = delete;

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

/// The same for a whole call, which a cancellation that is pending ends before it begins.
struct Uncancelled {
  struct Before {
    Before() { pthread_testcancel(); }
  } before;
  const CancellationOff off{};
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_BASE_CANCELLATION_OFF_H
