/// @file
/// Writing to standard output without mixing and without failing.
#ifndef HBBTV_RYN_LOG_OUTPUT_H
#define HBBTV_RYN_LOG_OUTPUT_H

namespace hbbtv_ryn {

/// Formats first and then writes everything in one call, so that neither threads nor processes that share
/// the output mix within it. Leaves errno as it was. A text too long to be formatted on the stack when
/// memory has run out is formatted by the stream itself.
void writeOut(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_LOG_OUTPUT_H
