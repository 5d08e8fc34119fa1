#include "tools/rynctl/text/table.h"

#include <algorithm>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// Columns that UTF-8 text takes, for text without wide or combining characters.
std::size_t columnsOf(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U;  // all but continuation bytes
  }));
}

/// Nothing is padded behind the last text.
std::string lineOf(const Row& row, const std::vector<std::size_t>& widths) {
  constexpr std::size_t kGap = 2;
  std::string line;
  std::size_t padding = 0;
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (!row[i].empty()) line += std::string(std::exchange(padding, 0), ' ') + row[i];
    padding += widths[i] - columnsOf(row[i]) + kGap;
  }
  return line;
}

}  // namespace

Json::Value jsonObject(std::initializer_list<Field> fields) {
  Json::Value object(Json::objectValue);
  for (const Field& field : fields) {
    if (field.told) object[field.name] = field.value;
  }
  return object;
}

void Table::add(const Json::Value& value, Row row) {
  rows_.push_back(json_ ? Row{oneLine(value)} : std::move(row));
}

std::string Table::text(const std::string& if_empty) const {
  if (size() == 0 && !json_ && !if_empty.empty()) return if_empty;
  std::vector<std::size_t> widths(rows_.front().size());
  for (const Row& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columnsOf(row[i]));
  }
  std::string text = json_ ? "" : styled(Style::kHeading, lineOf(rows_.front(), widths)) + '\n';
  for (auto row = rows_.begin() + 1; row != rows_.end(); ++row) text += lineOf(*row, widths) + '\n';
  return text;
}

}  // namespace hbbtv_ryn::rynctl
