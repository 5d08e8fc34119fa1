/// @file
/// A browser host and a plug-in host that call each other without end and check every answer. What a
/// handler answers is computed from the question alone, so the asker knows the only right answer.
///
/// Both are started with the ledger's argument, a seed and the pause between two calls of a thread in
/// microseconds. Told "restart", a host stops and starts its endpoint; told "trim", it gives the memory
/// back that it does not use; either time it says "done". Told "finish", it stops everything in an orderly
/// way and ends with exit code 0.
#ifndef HBBTV_RYN_TESTS_TORTURE_HOSTS_H
#define HBBTV_RYN_TESTS_TORTURE_HOSTS_H

#include "support/child_process.h"
#include "torture/ledger.h"

namespace hbbtv_ryn::test {

extern const ChildRole kBrowserHost;
extern const ChildRole kPluginHost;

inline const ChildRole& hostOf(Side side) {
  return side == kBrowserSide ? kBrowserHost : kPluginHost;
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_TORTURE_HOSTS_H
