/// @file
/// The live trace: while it is switched on, a copy of each message leaves the process as one datagram.
///
/// Off, it costs one relaxed load per message. It never waits, never fails its caller and writes nothing
/// to standard output. What cannot be sent at once is lost, which a gap in the sequence numbers shows.
#ifndef HBBTV_RYN_TRACE_TRACE_H
#define HBBTV_RYN_TRACE_TRACE_H

#include <sys/types.h>

#include <cstdint>
#include <string_view>

#include "log/module_switch.h"
#include "trace/datagram.h"

namespace hbbtv_ryn::trace {

inline constexpr std::int64_t kNotMeasured = -1;

struct Event {
  key_t queue;
  Way way;
  Kind kind;
  int code;  // of the message, and of the request that a reply belongs to; 0 when it is not known
  std::string_view text;
  Drop drop = Drop::kNone;
  int result = 0;                        // what the sender is told
  std::int64_t waited = kNotMeasured;    // microseconds from the send of a request to its answer
  std::int64_t handling = kNotMeasured;  // microseconds from the receipt of a request to its reply
};

extern ModuleSwitch g_switch;

/// To be asked once for each message.
inline bool isOn() {
  return g_switch.on();
}

/// Sends the event. Any thread may call; leaves errno as it was and is no cancellation point.
void emit(const Event& event);

/// Microseconds of a clock that only goes forward.
std::int64_t now();

}  // namespace hbbtv_ryn::trace

#endif  // HBBTV_RYN_TRACE_TRACE_H
