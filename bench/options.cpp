#include "options.h"

#include <getopt.h>
#include <sched.h>

#include <algorithm>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "check.h"

namespace bench {
namespace {

constexpr const char* kUsage =
    R"(Usage: ryn_bench [options]

Measures the library beside other ways to join two processes on one machine: the
same messages, two processes per row, in IPC namespaces of their own. The queues
of a running system are not touched. Rows take turns over several rounds; figures
are medians over the rounds, with the lowest and the highest in brackets.

  -r, --rounds N       rounds (default 7; a flood runs once)
  -c, --calls N        round trips per round and row (default 4000)
  -b, --bursts N       bursts per round and row (default 400)
  -s, --sweep-calls N  round trips per size, round and row (default 300)
  -f, --flood N        notifications of a flood (default 20000)
  -R, --rows A,B,...   only these rows; see --list
  -w, --works A,B,...  of roundtrip, burst, sweep, flood (default all)
  -m, --modes A,B      of pinned, free (default both): both processes on one core,
                       or wherever the scheduler puts them
  -p, --cpu N          the core of the pinned mode (default the last allowed one)
  -o, --csv DIR        also write results.csv, latency.csv, sweep.csv, targets.csv
  -l, --list           list the rows and exit
  -h, --help           show this text and exit

Exit code: 0 all runs worked; 1 a run failed; 2 wrong use, or the kernel refuses a
private IPC namespace.
)";

std::vector<std::string> split(const std::string& list) {
  std::vector<std::string> parts;
  std::istringstream stream(list);
  for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
  return parts;
}

int number(const char* text, int least) {
  std::size_t used = 0;
  int value = 0;
  try {
    value = std::stoi(text, &used);
  } catch (const std::logic_error&) {
    used = 0;
  }
  if (used == 0 || text[used] != '\0' || value < least) {
    throw std::invalid_argument(std::string("not a number of at least ") + std::to_string(least) + ": " +
                                text);
  }
  return value;
}

const Row* rowNamed(const std::string& name) {
  const auto found =
      std::find_if(rows().begin(), rows().end(), [&](const Row& row) { return row.name == name; });
  if (found == rows().end()) throw std::invalid_argument("no such row (see --list): " + name);
  return &*found;
}

Work workNamed(const std::string& name) {
  for (const Work work : {Work::kRoundTrip, Work::kBurst, Work::kSweep, Work::kFlood}) {
    if (name == nameOf(work)) return work;
  }
  throw std::invalid_argument("no such work (roundtrip, burst, sweep, flood): " + name);
}

bool isPinned(const std::string& name) {
  for (const bool pinned : {true, false}) {
    if (name == nameOfMode(pinned)) return pinned;
  }
  throw std::invalid_argument("no such mode (pinned, free): " + name);
}

template <typename Item, typename Name>
std::vector<Item> items(const std::string& list, Name itemNamed) {
  std::vector<Item> found;
  for (const std::string& name : split(list)) found.push_back(itemNamed(name));
  return found;
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

int roundTripCalls(const char* text) {
  const int calls = number(text, 1);
  if (static_cast<std::size_t>(calls) > kMaxSamples) {
    throw std::invalid_argument("more calls than samples fit (" + std::to_string(kMaxSamples) +
                                "); raise --rounds instead");
  }
  return calls;
}

}  // namespace

const char* usage() {
  return kUsage;
}

const char* nameOf(Work work) {
  switch (work) {
    case Work::kRoundTrip:
      return "roundtrip";
    case Work::kBurst:
      return "burst";
    case Work::kSweep:
      return "sweep";
    case Work::kFlood:
      return "flood";
  }
  return "";
}

const char* nameOfMode(bool pinned) {
  return pinned ? "pinned" : "free";
}

Options parseOptions(int argc, char** argv) {
  Options options;
  for (const Row& row : rows()) options.rows.push_back(&row);
  options.works = {Work::kRoundTrip, Work::kBurst, Work::kSweep, Work::kFlood};
  options.pinned = {true, false};
  options.cpu = lastAllowedCpu();

  const option names[] = {{"rounds", required_argument, nullptr, 'r'},
                          {"calls", required_argument, nullptr, 'c'},
                          {"bursts", required_argument, nullptr, 'b'},
                          {"sweep-calls", required_argument, nullptr, 's'},
                          {"flood", required_argument, nullptr, 'f'},
                          {"rows", required_argument, nullptr, 'R'},
                          {"works", required_argument, nullptr, 'w'},
                          {"modes", required_argument, nullptr, 'm'},
                          {"cpu", required_argument, nullptr, 'p'},
                          {"csv", required_argument, nullptr, 'o'},
                          {"list", no_argument, nullptr, 'l'},
                          {"help", no_argument, nullptr, 'h'},
                          {nullptr, 0, nullptr, 0}};
  for (int choice = 0;
       (choice = getopt_long(argc, argv, "r:c:b:s:f:R:w:m:p:o:lh", names, nullptr)) != -1;) {
    switch (choice) {
      case 'r':
        options.rounds = number(optarg, 1);
        break;
      case 'c':
        options.amount.round_trips = roundTripCalls(optarg);
        break;
      case 'b':
        options.amount.bursts = number(optarg, 1);
        break;
      case 's':
        options.amount.calls_per_size = number(optarg, 1);
        break;
      case 'f':
        options.amount.flood_messages = number(optarg, 1);
        break;
      case 'R':
        options.rows = items<const Row*>(optarg, rowNamed);
        break;
      case 'w':
        options.works = items<Work>(optarg, workNamed);
        break;
      case 'm':
        options.pinned = items<bool>(optarg, isPinned);
        break;
      case 'p':
        options.cpu = number(optarg, 0);
        break;
      case 'o':
        options.csv_directory = optarg;
        break;
      case 'l':
        options.show_rows = true;
        break;
      case 'h':
        options.show_help = true;
        break;
      default:
        throw std::invalid_argument("try --help");
    }
  }
  if (optind != argc) throw std::invalid_argument(std::string("no argument expected: ") + argv[optind]);
  return options;
}

}  // namespace bench
