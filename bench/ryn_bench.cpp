// Runs every row of every work in turn and reports.
#include <sys/utsname.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "check.h"
#include "options.h"
#include "pair.h"
#include "report.h"

namespace bench {
namespace {

constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

// The sweep goes to sixteen records and a queue holds fifteen by default. What a full queue costs is the
// flood's to show, so the sweep has room.
constexpr int kSweepQueueBytes = 65536;
constexpr int kFloodQueueBytes[] = {kDefaultQueueBytes, 65536, 1048576};

// A sender that sleeps on a small queue works for less than a millisecond of every hundred, and a flood
// takes it a minute: those runs are made together, a fraction of a pause apart so that their work does
// not coincide.
constexpr int kLargestTogether = 65536;
constexpr std::chrono::milliseconds kBetweenStarts{13};

/// For sockets; removed with its content.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "ryn_bench.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) check(-1, "mkdtemp");
    name_ = name;
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(name_, ignored);
  }
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
};

class Schedule {
 public:
  explicit Schedule(const Options& options) : options_(options) {}

  /// @return whether every run worked.
  bool run(Results& results) {
    for (const Work work : options_.works) {
      if (work == Work::kFlood) continue;
      for (int round = 0; round < options_.rounds; ++round) runRound(work, round, results);
    }
    if (std::count(options_.works.begin(), options_.works.end(), Work::kFlood) != 0) runFloods(results);
    return all_worked_;
  }

 private:
  // Each round begins with another row, so that no row always follows the same one.
  void runRound(Work work, int round, Results& results) {
    std::vector<const Row*> order = options_.rows;
    const auto first = static_cast<std::size_t>(round) % order.size();
    std::rotate(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(first), order.end());
    for (const bool pinned : options_.pinned) {
      for (const Row* row : order) {
        const int queue = work == Work::kSweep ? kSweepQueueBytes : kDefaultQueueBytes;
        finish(*start(*row, {work, pinned, options_.cpu, queue}), results);
      }
    }
  }

  void runFloods(Results& results) {
    std::vector<std::unique_ptr<PairRun>> together;
    for (const auto& [row, conditions] : floods()) {
      if (row->queue != Queue::kSystemVSleeping || conditions.queue_bytes > kLargestTogether) {
        finish(*start(*row, conditions), results);
      }
    }
    for (const auto& [row, conditions] : floods()) {
      if (row->queue == Queue::kSystemVSleeping && conditions.queue_bytes <= kLargestTogether) {
        together.push_back(start(*row, conditions));
        std::this_thread::sleep_for(kBetweenStarts);
      }
    }
    for (const auto& run : together) finish(*run, results);
  }

  [[nodiscard]] std::vector<std::pair<const Row*, Conditions>> floods() const {
    std::vector<std::pair<const Row*, Conditions>> all;
    for (const bool pinned : options_.pinned) {
      for (const Row* row : options_.rows) {
        for (const int bytes : kFloodQueueBytes) {
          if (row->queue == Queue::kOther && bytes != kDefaultQueueBytes) continue;
          all.push_back({row, {Work::kFlood, pinned, options_.cpu, bytes}});
        }
      }
    }
    return all;
  }

  std::unique_ptr<PairRun> start(const Row& row, const Conditions& conditions) {
    return std::make_unique<PairRun>(row, conditions, options_.amount, directory_.name());
  }

  void finish(PairRun& pair, Results& results) {
    Run run = pair.finish();
    if (run.failure.empty()) {
      results.add(pair.row(), pair.conditions(), std::move(run));
      return;
    }
    std::cerr << "ryn_bench: " << nameOf(pair.conditions().work) << ", "
              << nameOfMode(pair.conditions().pinned) << ", " << pair.row().name << ": " << run.failure
              << '\n';
    all_worked_ = false;
  }

  const Options& options_;
  TemporaryDirectory directory_;
  bool all_worked_ = true;
};

std::string processorName() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  }
  return "unknown processor";
}

void printMachine(const Options& options) {
  utsname system{};
  uname(&system);
  // Without the tag of whoever has built the kernel.
  const std::string whole = system.release;
  const std::string release = whole.substr(0, whole.find_first_not_of("0123456789."));
  std::cout << "Machine: " << processorName() << ", " << std::thread::hardware_concurrency() << " cores, "
            << system.sysname << ' ' << release << ' ' << system.machine << "; " << options.rounds
            << " rounds\n\n";
}

int run(int argc, char** argv) {
  Options options;
  if (const auto code = parseOptions(argc, argv, &options)) return *code;
  try {
    enterPrivateNamespace();
  } catch (const std::exception& error) {
    std::cerr << "ryn_bench: no private IPC namespace (" << error.what()
              << "), and the queues of this system are not to be touched: run as root, or allow user "
                 "namespaces\n";
    return kWrongUse;
  }
  printMachine(options);
  Results results;
  const bool all_worked = Schedule(options).run(results);
  printTables(std::cout, results);
  if (!options.csv_directory.empty()) writeCsv(options.csv_directory, results);
  return all_worked ? 0 : kFailed;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  try {
    return bench::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "ryn_bench: " << error.what() << '\n';
    return bench::kFailed;
  }
}
