// What a server's callback is not told by its arguments.
#ifndef HBBTV_RYN_IPC_SERVING_H
#define HBBTV_RYN_IPC_SERVING_H

namespace hbbtv_ryn {

// Whether the callback that runs on this thread serves a one-way message. Nobody takes or frees the answer
// to one, and any process may send one that looks like a question.
bool servesOneWay();

// Stands in a receive thread around the callback of a one-way message.
class OneWayScope {
 public:
  OneWayScope();
  ~OneWayScope();
  OneWayScope(const OneWayScope&) = delete;
  OneWayScope& operator=(const OneWayScope&) = delete;
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_SERVING_H
