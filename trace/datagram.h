/// @file
/// What a traced process and a reader of traces agree on. docs/trace.md describes the datagrams for readers
/// without this source.
#ifndef HBBTV_RYN_TRACE_DATAGRAM_H
#define HBBTV_RYN_TRACE_DATAGRAM_H

#include <cstddef>
#include <cstdint>

namespace hbbtv_ryn::trace {

/// A process traces while this module is listed for full output.
inline constexpr char kModule[] = "ryn_trace";

/// Datagrams go to this UDP port of 127.0.0.1.
inline constexpr std::uint16_t kPort = 54322;

/// The largest datagram. Not measured: every message but a long list or URL fits, and a reader's default
/// receive buffer holds a burst of such.
inline constexpr std::size_t kMaxDatagram = 4096;

/// The first words of a datagram; the number changes when an old reader would be misled.
inline constexpr char kMagic[] = "ryn-trace 1";

/// Ends a text that was cut.
inline constexpr char kCutMark[] = "[cut]";

/// Seen from the traced process.
enum class Way : std::uint8_t { kOut, kIn };

enum class Kind : std::uint8_t {
  kOneWay,
  kRequest,
  kReply,
  kFailure,  // an answer that says that there is none
  kUnknown,  // what could not be read: one-way or request
};

/// Why a message went no further.
enum class Drop : std::uint8_t {
  kNone,
  kUnparseable,   // no JSON object; of a reply also: a member does not convert
  kUnknownCode,   // nobody serves it on this queue
  kThrew,         // an exception left the handler, or a member does not convert
  kReplyTooLong,  // more than a message may have
  kNoMemory,
  kNotSent,   // the queue could not be opened or written
  kNoAnswer,  // the peer is gone, or the answer was lost
};

/// The words of the enumerators, in their order.
inline constexpr const char* kWayNames[] = {"out", "in"};
inline constexpr const char* kKindNames[] = {"oneway", "request", "reply", "failure", "unknown"};
inline constexpr const char* kDropNames[] = {"none",           "unparseable", "unknown-code", "threw",
                                             "reply-too-long", "no-memory",   "not-sent",     "no-answer"};

}  // namespace hbbtv_ryn::trace

#endif  // HBBTV_RYN_TRACE_DATAGRAM_H
