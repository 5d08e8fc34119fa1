#include "options.h"

#include <sched.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <limits>
#include <map>

#include "check.h"

namespace bench {
namespace {

constexpr int kWrongUse = 2;

constexpr char kDescription[] =
    R"(Measures the library beside other ways to join two processes on one machine: the same messages, two
processes per row, in IPC namespaces of their own. The queues of a running system are not touched. Rows
take turns over several rounds; figures are medians over the rounds, with the lowest and the highest in
brackets.)";
constexpr char kFooter[] =
    R"(Exit code: 0 all runs worked; 1 a run failed; 2 wrong use, or the kernel refuses a private IPC
namespace.)";

const std::map<std::string, Work> kWorks = {{"roundtrip", Work::kRoundTrip},
                                            {"burst", Work::kBurst},
                                            {"sweep", Work::kSweep},
                                            {"flood", Work::kFlood}};
const std::map<std::string, bool> kModes = {{"pinned", true}, {"free", false}};

template <typename Value>
const char* nameIn(const std::map<std::string, Value>& names, Value wanted) {
  for (const auto& [name, value] : names) {
    if (value == wanted) return name.c_str();
  }
  return "";
}

// The first cores of a machine serve most of its interrupts.
int lastAllowedCpu() {
  cpu_set_t set;
  CPU_ZERO(&set);
  check(sched_getaffinity(0, sizeof set, &set), "sched_getaffinity");
  int cpu = CPU_SETSIZE - 1;
  while (cpu > 0 && !CPU_ISSET(static_cast<std::size_t>(cpu), &set)) --cpu;
  return cpu;
}

}  // namespace

const char* nameOf(Work work) {
  return nameIn(kWorks, work);
}

const char* nameOfMode(bool pinned) {
  return nameIn(kModes, pinned);
}

std::optional<int> parseOptions(int argc, char** argv, Options* options) {
  options->cpu = lastAllowedCpu();
  std::map<std::string, const Row*> named;
  for (const Row& row : rows()) {
    named[row.name] = &row;
    options->rows.push_back(&row);
  }
  bool show_rows = false;
  CLI::App app(kDescription, "ryn_bench");
  app.footer(kFooter);
  const auto number = [&](const char* names, int* value, int least, const char* help) {
    app.add_option(names, *value, help)
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(least, std::numeric_limits<int>::max()));
  };
  // Names, and what they stand for.
  const auto list = [&](const char* names, auto* values, const auto& known, const char* help) {
    app.add_option_function<std::vector<std::string>>(
           names,
           [values, &known](const std::vector<std::string>& chosen) {
             values->clear();
             for (const std::string& name : chosen) values->push_back(known.at(name));
           },
           help)
        ->type_name("A,B,...")
        ->delimiter(',')
        ->check(CLI::IsMember(known));
  };
  number("-r,--rounds", &options->rounds, 1, "rounds; a flood runs once");
  number("-b,--bursts", &options->amount.bursts, 1, "bursts per round and row");
  number("-s,--sweep-calls", &options->amount.calls_per_size, 1, "round trips per size, round and row");
  number("-f,--flood", &options->amount.flood_messages, 1, "notifications of a flood");
  number("-p,--cpu", &options->cpu, 0, "the core of the pinned mode");
  app.add_option("-c,--calls", options->amount.round_trips,
                 "round trips per round and row; raise --rounds where these do not suffice")
      ->type_name("N")
      ->capture_default_str()
      ->check(CLI::Range(1, static_cast<int>(kMaxSamples)));
  list("-R,--rows", &options->rows, named, "only these rows; see --list");
  list("-w,--works", &options->works, kWorks, "of roundtrip, burst, sweep, flood (default all)");
  list("-m,--modes", &options->pinned, kModes,
       "of pinned, free (default both): both processes on one core, or wherever the scheduler puts them");
  app.add_option("-o,--csv", options->csv_directory,
                 "also write results.csv, latency.csv, sweep.csv, targets.csv to DIR")
      ->type_name("DIR");
  app.add_flag("-l,--list", show_rows, "list the rows and exit");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kWrongUse;
  }
  if (show_rows) {
    for (const Row& row : rows()) std::cout << row.name << "\t" << row.title << '\n';
    return 0;
  }
  return std::nullopt;
}

}  // namespace bench
