/// @file
/// A process that writes to the three request queues what no peer would: as long as the ledger's phase is
/// kMalformed records that nobody can answer, in phase kAnything also such as the peer itself might have
/// sent. Two things it leaves out, since the format gives everyone the right to them: the stop record and
/// the one-way message "exit". Started with the ledger's argument and a seed.
#ifndef HBBTV_RYN_TESTS_TORTURE_HOSTILE_WRITER_H
#define HBBTV_RYN_TESTS_TORTURE_HOSTILE_WRITER_H

#include "support/child_process.h"

namespace hbbtv_ryn::test {

extern const ChildRole kHostileWriter;

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_TORTURE_HOSTILE_WRITER_H
