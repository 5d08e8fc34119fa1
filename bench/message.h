/// @file
/// The messages of the rows other than the library's, and the work of writing and reading them.
#ifndef BENCH_MESSAGE_H
#define BENCH_MESSAGE_H

#include <string>

namespace bench {

/// How a row makes a text of a message.
enum class Text {
  kPlain,  ///< ready-made texts, nothing is written or read: what the transport alone costs
  kFloor,  ///< a Json::StyledWriter and a Json::Reader, kept: the least that jsoncpp costs for the same
           ///< text
  kNaive,  ///< Value::toStyledString() and Json::Reader: what one writes first
};

std::string visibleRequest(Text text);
/// @throws std::runtime_error unless the reply says that the application is visible.
void readVisibleReply(Text text, const std::string& reply);

std::string appLoaded(Text text);

/// A request of exactly `bytes` bytes, at least kSmallestStatus.
std::string statusRequest(Text text, int bytes);
void readStatusReply(Text text, const std::string& reply);
/// How long the status is that makes a request of `bytes` bytes in the wire form.
std::size_t statusLength(int bytes);

/// The receiver's half: reads a message and, if it is a request, writes its reply.
/// @return whether there is a reply.
bool answer(Text text, bool is_request, const std::string& message, std::string& reply);

}  // namespace bench

#endif  // BENCH_MESSAGE_H
