// The page of `rynctl report`, as it is before a capture is put into it.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_REPORT_PAGE_H
#define HBBTV_RYN_TOOLS_RYNCTL_REPORT_PAGE_H

#include <string_view>

namespace hbbtv_ryn::rynctl {

/// Stands in the page where the data belong, as JSON without any '<'.
inline constexpr std::string_view kDataMark = "CAPTURE_DATA";

/// Made from page.html, page.css and page.js when the tool is built.
extern const std::string_view kReportPage;

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_REPORT_PAGE_H
