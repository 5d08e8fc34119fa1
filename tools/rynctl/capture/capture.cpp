#include "tools/rynctl/capture/capture.h"

#include <fstream>
#include <limits>

#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// The next line, without what no trace has. False at the end.
bool readLine(std::istream& stream, std::string* line, const std::string& where) {
  // A datagram of which every byte is written as \u00xx takes six times its size.
  constexpr std::size_t kMostBytes = 8 * trace::kMaxDatagram;
  char buffer[kMostBytes];
  stream.getline(buffer, kMostBytes);
  *line = buffer;
  if (stream.good() || stream.gcount() == 0 || stream.eof()) return stream.gcount() > 0;
  stream.clear();
  stream.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  failMalformed(where, compose("no trace has more than {} bytes", kMostBytes));
}

}  // namespace

Capture Capture::load(const std::string& file) {
  // Not measured: a long night, and what a small machine has memory for.
  constexpr std::size_t kMostBytes = std::size_t{256} << 20U;
  constexpr std::size_t kMostReasonBytes = 200;
  std::ifstream stream(file);
  if (stream.peek() == EOF && !stream.eof()) {
    throw Failure(ExitCode::kUsage, "{} cannot be read", printable(file));
  }
  Capture capture;
  Exchanges exchanges;
  std::string reason =
      compose("{}: no traces are in it; 'rynctl monitor --save' writes them", printable(file));
  unsigned long unread = 0;
  std::size_t bytes = 0;
  for (unsigned long line = 1;; ++line) {
    const std::string where = compose("{}:{}", printable(file), line);
    try {
      std::string text;
      if (!readLine(stream, &text, where)) break;
      if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
      TraceEvent event = savedTrace(where, parseObject(where, text));
      event.at.line = line;
      bytes += sizeof(Exchange) + event.text.size();
      if (bytes > kMostBytes) {
        capture.notes.push_back(compose("{}: too much for one reading; left out from here on", where));
        break;
      }
      const auto exchange = exchanges.take(event);
      if (exchange->trace.at.line == line) capture.exchanges.push_back(exchange);
      TracedProcess& process = capture.processes[event.at.pid];
      process.side = event.isFromClient() ? other(exchange->to()) : exchange->to();
      process.traces.emplace(event.sequence, event.at);
      if (!event.process.empty()) process.name = event.process;
    } catch (const Failure& failure) {
      if (unread++ == 0) reason = std::string(failure.what()).substr(0, kMostReasonBytes);
    }
  }
  if (bytes == 0) throw Failure(ExitCode::kMalformed, "{}", reason);
  if (unread > 0) {
    capture.notes.push_back(
        compose("{} could not be read, the first: {}", counted(unread, "line"), reason));
  }
  return capture;
}

}  // namespace hbbtv_ryn::rynctl
