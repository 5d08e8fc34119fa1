#include "tools/rynctl/capture/capture.h"

#include <algorithm>
#include <fstream>
#include <limits>

#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

// A datagram of which every byte is written as \u00xx takes six times its size.
constexpr std::size_t kMostLineBytes = 8 * trace::kMaxDatagram;
// Not measured: a long night, and what a small machine has memory for.
constexpr unsigned long kMostTraces = 400000;
constexpr std::size_t kMostTextBytes = std::size_t{64} << 20U;

bool atClient(const TraceEvent& event) {
  return (event.way == trace::Way::kOut) != event.isAnswer();
}

/// The next line, without what no trace has. False at the end.
bool readLine(std::istream& stream, std::vector<char>* buffer, const std::string& where) {
  if (stream.getline(buffer->data(), static_cast<std::streamsize>(buffer->size()))) return true;
  if (stream.eof() || stream.gcount() == 0) return stream.gcount() > 0;
  stream.clear();
  stream.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  failMalformed(where, compose("no trace has more than {} bytes", kMostLineBytes));
}

}  // namespace

Capture Capture::load(const std::string& file) {
  constexpr std::size_t kMostReasonBytes = 200;
  std::ifstream stream(file);
  if (stream.peek() == EOF && !stream.eof()) {
    throw Failure(ExitCode::kUsage, "{} cannot be read", printable(file));
  }
  Capture capture;
  std::vector<char> buffer(kMostLineBytes);
  std::string reason =
      compose("{}: no traces are in it; 'rynctl monitor --save' writes them", printable(file));
  unsigned long traces = 0;
  unsigned long unread = 0;
  std::size_t text_bytes = 0;
  for (unsigned long line = 1;; ++line) {
    const std::string where = compose("{}:{}", printable(file), line);
    try {
      if (!readLine(stream, &buffer, where)) break;
      const std::string text(buffer.data());
      if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
      const TraceEvent event = savedTrace(where, parseObject(where, text));
      text_bytes += event.text.size();
      if (++traces > kMostTraces || text_bytes > kMostTextBytes) {
        capture.notes.push_back(compose("{}: too much for one reading; left out from here on", where));
        break;
      }
      capture.take(event, line);
    } catch (const Failure& failure) {
      if (unread++ == 0) reason = std::string(failure.what()).substr(0, kMostReasonBytes);
    }
  }
  if (traces == 0) throw Failure(ExitCode::kMalformed, "{}", reason);
  if (unread > 0) {
    capture.notes.push_back(
        compose("{} could not be read, the first: {}", counted(unread, "line"), reason));
  }
  return capture;
}

/// Traces come in the order of the capture: it is that of cause and effect, whatever the clocks say.
void Capture::take(const TraceEvent& event, unsigned long line) {
  const bool out = event.way == trace::Way::kOut;
  const Sight sight{event.time, event.pid, line};
  const Side reader = queueAt(event.queue).reader;
  TracedProcess& process = processes[event.pid];
  process.side = atClient(event) ? other(reader) : reader;
  process.numbers.emplace_back(event.sequence, sight);
  if (!event.process.empty()) process.name = event.process;

  Queue& queue = queues_[event.queue];
  const Index index = exchangeOf(event, &queue);
  (atClient(event) ? queue.asked : queue.served) = index;
  Exchange& exchange = exchanges[index];
  std::optional<Sight>& place = event.isAnswer() ? (out ? exchange.answered : exchange.arrived)
                                                 : (out ? exchange.sent : exchange.received);
  if (!place) place = sight;
  if (event.isAnswer()) {
    exchange.failed = event.kind == trace::Kind::kFailure;
    if (exchange.answer.empty()) exchange.answer = event.text;
  }
  TraceEvent& known = exchange.trace;
  if (event.waited) known.waited = event.waited;
  if (event.handling) known.handling = event.handling;
  if (event.drop != trace::Drop::kNone) known.drop = event.drop;
  if (event.result != 0) known.result = event.result;
}

Capture::Index Capture::exchangeOf(const TraceEvent& event, Queue* queue) {
  const bool goes_on =
      event.isAnswer() || (event.drop != trace::Drop::kNone && event.kind != trace::Kind::kUnknown);
  // Who asked before the capture began is known by the one who answered.
  for (const auto& open : {atClient(event) ? queue->asked : queue->served, queue->served}) {
    if (!goes_on || !open || exchanges[*open].trace.code != event.code) continue;
    if (event.drop != trace::Drop::kNone ||
        !(atClient(event) ? exchanges[*open].arrived : exchanges[*open].answered)) {
      return *open;
    }
  }
  const auto same = std::find_if(queue->sent.begin(), queue->sent.end(), [&](Index index) {
    const TraceEvent& sent = exchanges[index].trace;
    return !goes_on && !atClient(event) && sent.length == event.length && sent.text == event.text;
  });
  if (same != queue->sent.end()) {
    const Index index = *same;
    // A queue keeps the order: what was sent before has been lost, or was received untraced.
    queue->sent.erase(queue->sent.begin(), same + 1);
    return index;
  }
  exchanges.push_back({event, findMessage(event.code), {}, {}, {}, {}, false, {}});
  if (event.isAnswer()) exchanges.back().trace.text.clear();
  if (!goes_on && atClient(event)) queue->sent.push_back(exchanges.size() - 1);
  return exchanges.size() - 1;
}

}  // namespace hbbtv_ryn::rynctl
