// `rynctl report`: a capture as one page that shows it.

#include <filesystem>
#include <fstream>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/capture/capture.h"
#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/text/output.h"
#include "tools/rynctl/text/table.h"

namespace hbbtv_ryn::rynctl {

/// Made from page.html, page.css and page.js when the tool is built.
extern const std::string_view kReportPage;

namespace {

/// Stands in the page where the data belong.
constexpr std::string_view kDataMark = "CAPTURE_DATA";

namespace fs = std::filesystem;

Json::Value jsonOf(const Sight& sight) {
  Json::Value value(Json::arrayValue);
  value.append(Json::Int64{sight.time});
  value.append(sight.pid);
  value.append(Json::UInt64{sight.line});
  return value;
}

Json::Value jsonOf(pid_t pid, const TracedProcess& process) {
  Json::Value gaps(Json::arrayValue);
  for (auto before = process.traces.begin(), at = std::next(before); at != process.traces.end();
       before = at++) {
    if (at->first == before->first + 1) continue;
    gaps.append(jsonObject(
        {{"count", Json::UInt64{at->first - before->first - 1}}, {"behind", jsonOf(before->second)}}));
  }
  return jsonObject({{"pid", pid},
                     {"name", process.name},
                     {"side", nameOf(process.side)},
                     {"first", jsonOf(process.traces.begin()->second)},
                     {"last", jsonOf(process.traces.rbegin()->second)},
                     {"gaps", gaps}});
}

Json::Value jsonOf(const Exchange& exchange) {
  const TraceEvent& trace = exchange.trace;
  const bool answered = exchange.answered || exchange.arrived;
  Json::Value value(Json::objectValue);
  value["name"] = nameText(exchange.message, trace.code);
  value["code"] = trace.code;
  value["to"] = nameOf(exchange.to());
  value["sync"] = exchange.message != nullptr ? exchange.message->delivery == Delivery::kSync : answered;
  value["failed"] = exchange.failed;
  value["records"] = Json::UInt64{recordsOf(trace.length)};
  value["text"] = trace.text;
  if (answered) value["answer"] = exchange.answer;
  if (exchange.sent) value["sent"] = jsonOf(*exchange.sent);
  if (exchange.received) value["received"] = jsonOf(*exchange.received);
  if (exchange.answered) value["answered"] = jsonOf(*exchange.answered);
  if (exchange.arrived) value["arrived"] = jsonOf(*exchange.arrived);
  if (trace.waited) value["waited"] = Json::Int64{*trace.waited};
  if (trace.handling) value["handling"] = Json::Int64{*trace.handling};
  if (trace.drop != trace::Drop::kNone) value["drop"] = wordOf(trace.drop, trace::kDropNames);
  if (trace.result != 0) value["result"] = trace.result;
  return value;
}

/// As it may stand in a script element of a page: no text can end the element or begin a comment.
std::string embedded(const Json::Value& value) {
  std::string text;
  for (const char c : oneLine(value)) c == '<' ? text += "\\u003c" : text += c;
  return text;
}

}  // namespace

ExitCode report(const ReportOptions& options) {
  const fs::path from(options.capture);
  const fs::path to =
      options.page.empty() ? fs::path(from).replace_extension(".html") : fs::path(options.page);
  std::error_code none;
  if (to == from || fs::equivalent(to, from, none)) {
    throw Failure(ExitCode::kUsage, "the page would take the place of the capture; name it with -o");
  }
  const Capture capture = Capture::load(options.capture);
  Json::Value head(Json::objectValue);
  head["file"] = from.filename().string();
  for (Json::Value* const list : {&head["notes"], &head["processes"]}) *list = Json::arrayValue;
  for (const std::string& note : capture.notes) head["notes"].append(note);
  for (const auto& [pid, process] : capture.processes) head["processes"].append(jsonOf(pid, process));

  std::ofstream page(to);
  if (!page) throw Failure(ExitCode::kUsage, "{} cannot be written", printable(to.string()));
  const auto mark = kReportPage.find(kDataMark);
  page << kReportPage.substr(0, mark) << "{\"head\":" << embedded(head) << ",\"exchanges\":[";
  const char* separator = "\n";
  for (const auto& exchange : capture.exchanges) {
    page << std::exchange(separator, ",\n") << embedded(jsonOf(*exchange));
  }
  page << "]}" << kReportPage.substr(mark + kDataMark.size());
  if (!page.flush()) {
    throw Failure(ExitCode::kRefused, "{} cannot be written to its end", printable(to.string()));
  }
  for (const std::string& note : capture.notes) complain(note);
  print("{}\n", printable(to.string()));
  remark("{}", counted(capture.exchanges.size(), "message"));
  return ExitCode::kDone;
}

}  // namespace hbbtv_ryn::rynctl
