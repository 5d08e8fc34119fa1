// `rynctl report`: a capture as one page that shows it.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/capture/capture.h"
#include "tools/rynctl/commands/command.h"
#include "tools/rynctl/report/page.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

namespace fs = std::filesystem;

struct Options {
  std::string capture;
  std::string page;
};

Json::Value jsonOf(const Sight& sight) {
  Json::Value value(Json::arrayValue);
  value.append(Json::Int64{sight.time});
  value.append(sight.pid);
  value.append(Json::UInt64{sight.line});
  return value;
}

Json::Value jsonOf(pid_t pid, const TracedProcess& process) {
  Json::Value value(Json::objectValue);
  value["pid"] = pid;
  value["name"] = process.name;
  value["side"] = nameOf(process.side);
  value["first"] = jsonOf(process.first);
  value["last"] = jsonOf(process.last);
  value["traces"] = Json::UInt64{process.traces};
  value["gaps"] = Json::Value(Json::arrayValue);
  for (const TracedProcess::Gap& gap : process.gaps) {
    Json::Value one(Json::objectValue);
    one["count"] = Json::UInt64{gap.count};
    one["behind"] = jsonOf(gap.behind);
    value["gaps"].append(one);
  }
  return value;
}

Json::Value jsonOf(const Exchange& exchange) {
  const Message* const message = exchange.message;
  Json::Value value(Json::objectValue);
  value["name"] = message != nullptr   ? std::string(message->name)
                  : exchange.code == 0 ? "?"
                                       : compose("code {}", exchange.code);
  value["code"] = exchange.code;
  value["to"] = nameOf(exchange.to());
  if (message != nullptr ? message->delivery == Delivery::kSync : exchange.wasAnswered())
    value["sync"] = true;
  if (exchange.sent) value["sent"] = jsonOf(*exchange.sent);
  if (exchange.received) value["received"] = jsonOf(*exchange.received);
  if (exchange.answered) value["answered"] = jsonOf(*exchange.answered);
  if (exchange.arrived) value["arrived"] = jsonOf(*exchange.arrived);
  if (exchange.waited) value["waited"] = Json::Int64{*exchange.waited};
  if (exchange.handling) value["handling"] = Json::Int64{*exchange.handling};
  if (exchange.drop != trace::Drop::kNone) value["drop"] = wordOf(exchange.drop, trace::kDropNames);
  if (exchange.result != 0) value["result"] = exchange.result;
  if (exchange.failed) value["failed"] = true;
  value["records"] = Json::UInt64{recordsOf(exchange.length)};
  value["text"] = exchange.text;
  if (exchange.wasAnswered()) value["answer"] = exchange.answer;
  return value;
}

/// As it may stand in a script element of a page: no text can end the element or begin a comment.
std::string embedded(const Json::Value& value) {
  std::string text;
  for (const char c : oneLine(value)) c == '<' ? text += "\\u003c" : text += c;
  return text;
}

void write(std::ostream& page, const std::string& name, const Capture& capture) {
  const auto mark = kReportPage.find(kDataMark);
  Json::Value head(Json::objectValue);
  head["file"] = name;
  head["notes"] = Json::Value(Json::arrayValue);
  for (const std::string& note : capture.notes) head["notes"].append(note);
  head["processes"] = Json::Value(Json::arrayValue);
  for (const auto& [pid, process] : capture.processes) head["processes"].append(jsonOf(pid, process));
  page << kReportPage.substr(0, mark) << "{\"head\":" << embedded(head) << ",\n\"exchanges\":[";
  const char* separator = "\n";
  for (const Exchange& exchange : capture.conversation.exchanges()) {
    page << std::exchange(separator, ",\n") << embedded(jsonOf(exchange));
  }
  page << "]}" << kReportPage.substr(mark + kDataMark.size());
}

ExitCode report(const Options& options) {
  const fs::path capture_file(options.capture);
  const fs::path page_file =
      options.page.empty() ? fs::path(capture_file).replace_extension(".html") : fs::path(options.page);
  std::error_code none;
  if (page_file == capture_file || fs::equivalent(page_file, capture_file, none)) {
    throw Failure(ExitCode::Usage, "the page would take the place of the capture; name it with -o");
  }
  const Capture capture = Capture::load(options.capture);
  std::ofstream page(page_file);
  if (!page) throw Failure(ExitCode::Usage, "{} cannot be written", printable(page_file.string()));
  write(page, capture_file.filename().string(), capture);
  if (!page.flush()) {
    throw Failure(ExitCode::Refused, "{} cannot be written to its end", printable(page_file.string()));
  }
  for (const std::string& note : capture.notes) complain(note);
  print("{}\n", printable(page_file.string()));
  remark("{}", counted(capture.conversation.exchanges().size(), "message"));
  return ExitCode::Done;
}

}  // namespace

void addReportCommand(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = addCommand(
      app, action, options, &report, "report", "Make one page of a capture, to be looked at in any browser",
      R"(Prints the name of the page, which needs no other file and no network. Lines of the capture that
cannot be read are passed over, counted, and named in the page.)");
  command->add_option("CAPTURE", options->capture, "What 'rynctl monitor --save' has written")->required();
  addValue(command, "-o,--output", options->page, "PAGE.html",
           "Where the page goes; beside the capture if not said");
}

}  // namespace hbbtv_ryn::rynctl
