#include "table.h"

#include <algorithm>

#include "terminal.h"

namespace hbbtv_ryn::rynctl {

std::size_t columnsOf(const std::string& text) {
  constexpr unsigned kContinuationMask = 0xc0U;
  constexpr unsigned kContinuation = 0x80U;
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & kContinuationMask) != kContinuation;
  }));
}

namespace {

std::string lineOf(const Row& row, const std::vector<std::size_t>& widths) {
  constexpr std::size_t kGap = 2;
  std::string line;
  std::size_t padding = 0;
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (row[i].empty()) {
      padding += widths[i] + kGap;
      continue;
    }
    line += std::string(padding, ' ') + row[i];
    padding = widths[i] - columnsOf(row[i]) + kGap;
  }
  return line;
}

}  // namespace

std::string tableText(const Row& heading, const std::vector<Row>& rows, bool colour) {
  std::vector<std::size_t> widths(heading.size());
  const auto widen = [&](const Row& row) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columnsOf(row[i]));
  };
  widen(heading);
  for (const Row& row : rows) widen(row);
  std::string text = styled(Style::Heading, lineOf(heading, widths), colour) + '\n';
  for (const Row& row : rows) text += lineOf(row, widths) + '\n';
  return text;
}

}  // namespace hbbtv_ryn::rynctl
