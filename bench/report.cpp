#include "report.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "options.h"
#include "targets.h"

namespace bench {
namespace {

constexpr int kTitleWidth = 28;
constexpr const char* kLimitRow = "raw";
// The shortest and the longest message and some between; the CSV file has all.
constexpr std::size_t kShownSizes[] = {0, 2, 3, 5, 7, 9, 11};

using PerMessage = double Outcome::*;

Figure cpuMicroseconds(PerMessage cpu) {
  return
      [cpu](const Run& run) { return run.outcome.*cpu / static_cast<double>(run.outcome.messages) / 1e3; };
}

double pooledMicroseconds(const Series& series, double part) {
  std::vector<std::uint32_t> all;
  for (const Run& run : series.runs) all.insert(all.end(), run.samples.begin(), run.samples.end());
  return percentile(std::move(all), part) / 1e3;
}

std::string fixed(double value, int digits) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

void cell(std::ostream& out, const std::string& text, int width) {
  out << std::right << std::setw(width) << text;
}

void title(std::ostream& out, const std::string& text) {
  out << "  " << std::left << std::setw(kTitleWidth) << text;
}

std::string range(const Spread& value, int digits) {
  return "[" + fixed(value.low, digits) + " .. " + fixed(value.high, digits) + "]";
}

void cpuCells(std::ostream& out, const Series& series) {
  cell(out, fixed(spreadOf(series, cpuMicroseconds(&Outcome::sender_cpu_ns)).median, 2), 9);
  cell(out, fixed(spreadOf(series, cpuMicroseconds(&Outcome::receiver_cpu_ns)).median, 2), 9);
  const double helper = spreadOf(series, cpuMicroseconds(&Outcome::helper_cpu_ns)).median;
  cell(out, helper > 0 ? fixed(helper, 2) : "-", 9);
}

void printRoundTrips(std::ostream& out, const Results& results, bool pinned) {
  title(out, "us per call");
  for (const char* name :
       {"p50", "range of p50", "p99", "p99.9", "CPU snd", "CPU rcv", "daemon", "x limit"}) {
    cell(out, name, name == std::string("range of p50") ? 20 : 9);
  }
  out << '\n';
  const Series* limit = results.find(kLimitRow, Work::kRoundTrip, pinned);
  for (const Series* series : results.select(Work::kRoundTrip, pinned)) {
    const Spread p50 = spreadOf(*series, medianMicroseconds);
    const auto times = ratio(series, limit, medianMicroseconds);
    title(out, series->row->title);
    cell(out, fixed(p50.median, 2), 9);
    cell(out, range(p50, 2), 20);
    cell(out, fixed(pooledMicroseconds(*series, 0.99), 2), 9);
    cell(out, fixed(pooledMicroseconds(*series, 0.999), 2), 9);
    cpuCells(out, *series);
    cell(out, times ? fixed(times->median, 2) : "-", 9);
    out << '\n';
  }
}

void printBursts(std::ostream& out, const Results& results, bool pinned) {
  title(out, "us per message");
  for (const char* name : {"msg/s", "range of msg/s", "CPU snd", "CPU rcv", "daemon"}) {
    cell(out, name, name == std::string("range of msg/s") ? 22 : 9);
  }
  out << '\n';
  for (const Series* series : results.select(Work::kBurst, pinned)) {
    const Spread rate = spreadOf(*series, burstRate);
    title(out, series->row->title);
    cell(out, fixed(rate.median, 0), 9);
    cell(out, range(rate, 0), 22);
    cpuCells(out, *series);
    out << '\n';
  }
}

void printSweep(std::ostream& out, const Results& results, bool pinned) {
  title(out, "us per call of n bytes");
  for (const std::size_t index : kShownSizes) cell(out, std::to_string(sweepSizes()[index]), 9);
  cell(out, "per 1025", 10);
  out << '\n';
  for (const Series* series : results.select(Work::kSweep, pinned)) {
    title(out, series->row->title);
    for (const std::size_t index : kShownSizes) {
      const auto figure = [index](const Run& run) { return sweepMicroseconds(run, index); };
      cell(out, fixed(spreadOf(*series, figure).median, 2), 9);
    }
    cell(out, fixed(spreadOf(*series, microsecondsPerRecord).median, 2), 10);
    out << '\n';
  }
}

void printFlood(std::ostream& out, const Results& results, bool pinned) {
  title(out, "flood");
  for (const char* name : {"msgmnb", "messages", "seconds", "msg/s", "pauses", "lost"}) cell(out, name, 10);
  out << '\n';
  for (const Series* series : results.select(Work::kFlood, pinned)) {
    const Outcome& outcome = series->runs.front().outcome;
    title(out, series->row->title);
    cell(out, series->row->queue != Queue::kOther ? std::to_string(series->conditions.queue_bytes) : "-",
         10);
    cell(out, std::to_string(outcome.messages), 10);
    cell(out, fixed(outcome.seconds, 3), 10);
    cell(out, fixed(static_cast<double>(outcome.messages - outcome.lost) / outcome.seconds, 0), 10);
    cell(out, std::to_string(outcome.full_queue_pauses), 10);
    cell(out, std::to_string(outcome.lost), 10);
    out << '\n';
  }
}

struct Table {
  Work work;
  const char* heading;
  void (*print)(std::ostream&, const Results&, bool pinned);
};

constexpr Table kTables[] = {
    {Work::kRoundTrip, "Round trip: is an application visible?", printRoundTrips},
    {Work::kBurst, "Bursts of 12 notifications", printBursts},
    {Work::kSweep, "Size sweep: round trip of a long request with a short answer", printSweep},
    {Work::kFlood, "Flood of notifications", printFlood},
};

void writeFigure(std::ostream& out, const Series& series, const char* metric, const Figure& figure) {
  const Spread value = spreadOf(series, figure);
  out << nameOf(series.conditions.work) << ',' << nameOfMode(series.conditions.pinned) << ','
      << series.conditions.queue_bytes << ',' << series.row->name << ",\"" << series.row->title << "\","
      << metric << ',' << value.median << ',' << value.low << ',' << value.high << '\n';
}

void writeFigures(std::ostream& out, const Results& results, const Series& series) {
  const Work work = series.conditions.work;
  if (work == Work::kRoundTrip) {
    writeFigure(out, series, "p50_us", medianMicroseconds);
    for (const double part : {0.99, 0.999}) {
      writeFigure(out, series, part < 0.995 ? "p99_us" : "p999_us",
                  [part](const Run& run) { return percentile(run.samples, part) / 1e3; });
    }
    const Series* limit = results.find(kLimitRow, work, series.conditions.pinned);
    if (const auto times = ratio(&series, limit, medianMicroseconds)) {
      out << nameOf(work) << ',' << nameOfMode(series.conditions.pinned) << ','
          << series.conditions.queue_bytes << ',' << series.row->name << ",\"" << series.row->title
          << "\",times_limit," << times->median << ',' << times->low << ',' << times->high << '\n';
    }
  }
  if (work == Work::kBurst) writeFigure(out, series, "messages_per_second", burstRate);
  if (work == Work::kSweep) writeFigure(out, series, "us_per_record", microsecondsPerRecord);
  if (work == Work::kFlood) {
    writeFigure(out, series, "seconds", [](const Run& run) { return run.outcome.seconds; });
    writeFigure(out, series, "full_queue_pauses",
                [](const Run& run) { return static_cast<double>(run.outcome.full_queue_pauses); });
    writeFigure(out, series, "lost", [](const Run& run) { return static_cast<double>(run.outcome.lost); });
  }
  writeFigure(out, series, "sender_cpu_us", cpuMicroseconds(&Outcome::sender_cpu_ns));
  writeFigure(out, series, "receiver_cpu_us", cpuMicroseconds(&Outcome::receiver_cpu_ns));
  writeFigure(out, series, "daemon_cpu_us", cpuMicroseconds(&Outcome::helper_cpu_ns));
}

void writeLatency(std::ostream& out, const Series& series) {
  std::vector<std::uint32_t> all;
  for (const Run& run : series.runs) all.insert(all.end(), run.samples.begin(), run.samples.end());
  // Finer towards the tail, where the curve is of interest.
  constexpr int kPoints = 72;
  constexpr double kStep = 0.9;  // to a tail of one call in two thousand
  for (int point = 0; point <= kPoints; ++point) {
    const double part = 1 - std::pow(kStep, point);
    out << nameOfMode(series.conditions.pinned) << ',' << series.row->name << ",\"" << series.row->title
        << "\"," << part << ',' << percentile(all, part) / 1e3 << '\n';
  }
}

void writeSweep(std::ostream& out, const Series& series) {
  for (std::size_t i = 0; i < sweepSizes().size(); ++i) {
    const Spread time = spreadOf(series, [i](const Run& run) { return sweepMicroseconds(run, i); });
    out << nameOfMode(series.conditions.pinned) << ',' << series.row->name << ",\"" << series.row->title
        << "\"," << sweepSizes()[i] << ',' << recordsOf(sweepSizes()[i]) << ',' << time.median << '\n';
  }
}

std::ofstream create(const std::string& directory, const char* name, const char* head) {
  std::ofstream file(directory + "/" + name);
  file << head << '\n';
  if (!file) throw std::runtime_error("cannot write " + directory + "/" + name);
  return file;
}

}  // namespace

void printTables(std::ostream& out, const Results& results) {
  for (const Table& table : kTables) {
    for (const bool pinned : {true, false}) {
      if (results.select(table.work, pinned).empty()) continue;
      out << table.heading << (pinned ? ", both processes on one core\n" : ", unpinned\n");
      table.print(out, results, pinned);
      out << '\n';
    }
  }
  printJudgements(out, judge(results));
}

void writeCsv(const std::string& directory, const Results& results) {
  std::filesystem::create_directories(directory);
  std::ofstream figures =
      create(directory, "results.csv", "work,mode,msgmnb,row,title,metric,median,low,high");
  std::ofstream latency = create(directory, "latency.csv", "mode,row,title,part,microseconds");
  std::ofstream sizes = create(directory, "sweep.csv", "mode,row,title,bytes,records,microseconds");
  for (const bool pinned : {true, false}) {
    for (const Table& table : kTables) {
      for (const Series* series : results.select(table.work, pinned))
        writeFigures(figures, results, *series);
    }
    for (const Series* series : results.select(Work::kRoundTrip, pinned)) writeLatency(latency, *series);
    for (const Series* series : results.select(Work::kSweep, pinned)) writeSweep(sizes, *series);
  }
  std::ofstream targets = create(directory, "targets.csv", "ratio,measured,low,high,bound,limit,met");
  for (const Judgement& judgement : judge(results)) {
    if (!judgement.measured) continue;
    targets << '"' << judgement.ratio << "\"," << judgement.measured->median << ','
            << judgement.measured->low << ',' << judgement.measured->high << ','
            << (judgement.at_most ? "at most" : "at least") << ',' << judgement.limit << ','
            << (judgement.met() ? "yes" : "no") << '\n';
  }
}

}  // namespace bench
