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

/// The trace's number and where it stood.
using Numbers = std::vector<std::pair<std::uint64_t, Sight>>;

Side sideOf(const TraceEvent& event) {
  const bool reader = (event.way == trace::Way::kIn) != event.isAnswer();
  const Side side = queueAt(event.queue).reader;
  return reader ? side : other(side);
}

void requireQueue(const std::string& where, key_t key) {
  const auto* const queue = std::find_if(std::begin(kQueues), std::end(kQueues),
                                         [&](const QueueName& name) { return name.request_key == key; });
  if (queue == std::end(kQueues)) failMalformed(where, keyText(key) + " is no queue of requests");
}

void note(TracedProcess* process, const TraceEvent& event, const Sight& sight) {
  if (process->traces++ == 0) {
    process->side = sideOf(event);
    process->first = sight;
  }
  process->last = sight;
  if (!event.process.empty()) process->name = event.process;
}

/// The datagrams of two threads may pass each other.
std::vector<TracedProcess::Gap> gapsIn(Numbers numbers) {
  std::vector<TracedProcess::Gap> gaps;
  std::sort(numbers.begin(), numbers.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::size_t i = 1; i < numbers.size(); ++i) {
    const std::uint64_t step = numbers[i].first - numbers[i - 1].first;
    if (step > 1) gaps.push_back({step - 1, numbers[i - 1].second});
  }
  return gaps;
}

}  // namespace

Capture Capture::load(const std::string& file) {
  constexpr std::size_t kMostReasonBytes = 200;
  std::ifstream stream(file);
  Capture capture;
  std::map<pid_t, Numbers> numbers;
  std::vector<char> buffer(kMostLineBytes);
  unsigned long line = 0;
  unsigned long traces = 0;
  unsigned long unread = 0;
  std::size_t text_bytes = 0;
  std::string reason;
  while (stream.getline(buffer.data(), static_cast<std::streamsize>(buffer.size())) ||
         stream.gcount() > 0) {
    ++line;
    const std::string where = compose("{}:{}", printable(file), line);
    try {
      if (stream.fail()) {
        stream.clear();
        stream.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        failMalformed(where, compose("no trace has more than {} bytes", kMostLineBytes));
      }
      const std::string text(buffer.data());
      if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
      TraceEvent event = savedTrace(where, parseObject(where, text));
      requireQueue(where, event.queue);
      text_bytes += event.text.size();
      if (++traces > kMostTraces || text_bytes > kMostTextBytes) {
        capture.notes.push_back(compose("{}: too much for one reading; left out from here on", where));
        break;
      }
      const Sight sight{event.time, event.pid, line};
      note(&capture.processes[event.pid], event, sight);
      numbers[event.pid].emplace_back(event.sequence, sight);
      capture.conversation.take(event, line);
    } catch (const Failure& failure) {
      if (unread++ == 0) reason = std::string(failure.what()).substr(0, kMostReasonBytes);
    }
  }
  if (line == 0 && !stream.eof()) throw Failure(ExitCode::Usage, "{} cannot be read", printable(file));
  if (traces == 0) {
    throw Failure(ExitCode::Malformed, "{}",
                  reason.empty() ? compose("{}: no traces are in it; 'rynctl monitor --save' writes them",
                                           printable(file))
                                 : reason);
  }
  if (unread > 0) {
    capture.notes.push_back(
        compose("{} could not be read, the first: {}", counted(unread, "line"), reason));
  }
  for (auto& [pid, process] : capture.processes) process.gaps = gapsIn(std::move(numbers[pid]));
  return capture;
}

}  // namespace hbbtv_ryn::rynctl
