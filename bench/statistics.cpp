#include "statistics.h"

#include <hbbtv_ryn/ipc.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace bench {
namespace {

constexpr double kNanosecondsPerMicrosecond = 1e3;
constexpr double kMicrosecondsPerSecond = 1e6;

}  // namespace

Spread spread(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  const bool odd = values.size() % 2 == 1;
  return {odd ? values[middle] : (values[middle - 1] + values[middle]) / 2, values.front(), values.back()};
}

double percentile(std::vector<std::uint32_t> samples, double part) {
  if (samples.empty()) return 0;
  const auto rank = static_cast<std::ptrdiff_t>(part * static_cast<double>(samples.size() - 1));
  std::nth_element(samples.begin(), samples.begin() + rank, samples.end());
  return samples[static_cast<std::size_t>(rank)];
}

double medianMicroseconds(const Run& run) {
  return percentile(run.samples, 0.5) / kNanosecondsPerMicrosecond;
}

double burstRate(const Run& run) {
  return kBurstMessages * kMicrosecondsPerSecond / medianMicroseconds(run);
}

double sweepMicroseconds(const Run& run, std::size_t size_index) {
  const auto calls = static_cast<std::ptrdiff_t>(run.samples.size() / sweepSizes().size());
  const auto first = run.samples.begin() + calls * static_cast<std::ptrdiff_t>(size_index);
  return percentile({first, first + calls}, 0.5) / kNanosecondsPerMicrosecond;
}

int recordsOf(int bytes) {
  constexpr int kRecordText = IPC_CHUNK_SIZE + 1;
  return (bytes + kRecordText - 1) / kRecordText;
}

double microsecondsPerRecord(const Run& run) {
  const std::vector<int>& sizes = sweepSizes();
  double n = 0;
  double sum_x = 0;
  double sum_y = 0;
  double sum_xx = 0;
  double sum_xy = 0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const double x = recordsOf(sizes[i]);
    const double y = sweepMicroseconds(run, i);
    n += 1;
    sum_x += x;
    sum_y += y;
    sum_xx += x * x;
    sum_xy += x * y;
  }
  return (n * sum_xy - sum_x * sum_y) / (n * sum_xx - sum_x * sum_x);
}

void Results::add(const Row& row, const Conditions& conditions, Run run) {
  const auto same = [&](const Series& series) {
    return series.row == &row && series.conditions.work == conditions.work &&
           series.conditions.pinned == conditions.pinned &&
           series.conditions.queue_bytes == conditions.queue_bytes;
  };
  auto found = std::find_if(series_.begin(), series_.end(), same);
  if (found == series_.end()) found = series_.insert(series_.end(), Series{&row, conditions, {}});
  found->runs.push_back(std::move(run));
}

std::vector<const Series*> Results::select(Work work, bool pinned) const {
  std::vector<const Series*> selected;
  for (const Series& series : series_) {
    if (series.conditions.work == work && series.conditions.pinned == pinned) selected.push_back(&series);
  }
  std::sort(selected.begin(), selected.end(), [](const Series* a, const Series* b) {
    return std::tie(a->row, a->conditions.queue_bytes) < std::tie(b->row, b->conditions.queue_bytes);
  });
  return selected;
}

const Series* Results::find(const std::string& row, Work work, bool pinned) const {
  for (const Series& series : series_) {
    if (series.row->name == row && series.conditions.work == work && series.conditions.pinned == pinned) {
      return &series;
    }
  }
  return nullptr;
}

Spread spreadOf(const Series& series, const Figure& figure) {
  std::vector<double> values;
  for (const Run& run : series.runs) values.push_back(figure(run));
  return spread(std::move(values));
}

std::optional<Spread> ratio(const Series* over, const Series* under, const Figure& figure) {
  if (over == nullptr || under == nullptr) return std::nullopt;
  std::vector<double> values;
  for (std::size_t i = 0; i < std::min(over->runs.size(), under->runs.size()); ++i) {
    values.push_back(figure(over->runs[i]) / figure(under->runs[i]));
  }
  return spread(std::move(values));
}

}  // namespace bench
