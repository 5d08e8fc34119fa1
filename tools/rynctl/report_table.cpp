#include "report_table.h"

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <vector>

#include "terminal.h"

namespace hbbtv_ryn::rynctl {

namespace {

using Line = std::array<std::string, 5>;

std::string ageText(Clock::duration age) {
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f s", std::chrono::duration<double>(age).count());
  return text.data();
}

std::string aligned(const Line& line, const std::array<std::size_t, 5>& widths) {
  std::string text;
  for (std::size_t column = 0; column < line.size(); ++column) {
    text += line[column];
    if (column + 1 < line.size()) text.append(widths[column] - line[column].size() + 2, ' ');
  }
  return text;
}

}  // namespace

void ReportTable::update(const LogReport& report) {
  auto [row, added] = rows_.try_emplace(report.port);
  if (added) row->second.owner = findUdpSocketOwner(report.port);
  if (added || row->second.modules != report.modules) ++changes_;
  row->second.modules = report.modules;
  row->second.last_report = Clock::now();
}

void ReportTable::dropSilentOnes() {
  for (auto row = rows_.begin(); row != rows_.end();) {
    if (Clock::now() - row->second.last_report > kReportPatience) {
      row = rows_.erase(row);
      ++changes_;
    } else {
      ++row;
    }
  }
}

std::string ReportTable::text(bool colour) const {
  std::vector<Line> lines = {{"PORT", "PID", "PROCESS", "AGE", "MODULES"}};
  for (const auto& [port, row] : rows_) {
    lines.push_back({std::to_string(port), row.owner ? std::to_string(row.owner->pid) : "-",
                     row.owner ? printable(row.owner->name) : "-", ageText(Clock::now() - row.last_report),
                     row.modules.empty() ? "-" : printable(joined(row.modules, ", "))});
  }
  std::array<std::size_t, 5> widths{};
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  std::string text = styled(Style::Heading, aligned(lines.front(), widths), colour) + "\n";
  for (auto line = lines.begin() + 1; line != lines.end(); ++line) text += aligned(*line, widths) + "\n";
  return text;
}

std::string ReportTable::json(std::uint16_t port) const {
  const Row& row = rows_.at(port);
  Json::Value line(Json::objectValue);
  line["port"] = port;
  line["pid"] = row.owner ? Json::Value(row.owner->pid) : Json::Value();
  line["process"] = row.owner ? Json::Value(row.owner->name) : Json::Value();
  line["modules"] = Json::Value(Json::arrayValue);
  for (const std::string& module : row.modules) line["modules"].append(module);
  const auto age = Clock::now() - row.last_report;
  const auto wall_clock = std::chrono::system_clock::now() - age;
  line["time"] = std::chrono::duration<double>(wall_clock.time_since_epoch()).count();

  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  writer["precision"] = 3;
  writer["precisionType"] = "decimal";
  return Json::writeString(writer, line);
}

}  // namespace hbbtv_ryn::rynctl
