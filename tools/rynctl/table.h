/// @file
/// Columns of text.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TABLE_H
#define HBBTV_RYN_TOOLS_RYNCTL_TABLE_H

#include <string>
#include <vector>

namespace hbbtv_ryn::rynctl {

using Row = std::vector<std::string>;

/// Every column as wide as its longest text; nothing is padded behind the last. The heading is coloured
/// when `colour` says so.
std::string tableText(const Row& heading, const std::vector<Row>& rows, bool colour);

/// Number of columns that UTF-8 text takes, for text without wide or combining characters.
std::size_t columnsOf(const std::string& text);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TABLE_H
