// Things one below the other, for people or for programs.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TEXT_TABLE_H
#define HBBTV_RYN_TOOLS_RYNCTL_TEXT_TABLE_H

#include <json/value.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace hbbtv_ryn::rynctl {

/// A member of an object; left out when there is nothing to tell.
struct Field {
  const char* name;
  Json::Value value;
  bool told = true;
};
Json::Value jsonObject(std::initializer_list<Field> fields);

using Row = std::vector<std::string>;

/// Columns under a heading, each as wide as its longest text; or a line of JSON for each thing.
class Table {
 public:
  Table(bool json, Row heading) : json_(json), rows_{std::move(heading)} {}
  void add(const Json::Value& value, Row row);
  std::size_t size() const { return rows_.size() - 1; }
  /// @param if_empty  what people are told instead of the heading when there is no row.
  std::string text(const std::string& if_empty = "") const;

 private:
  const bool json_;
  std::vector<Row> rows_;  // the heading first
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TEXT_TABLE_H
