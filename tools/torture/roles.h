/// @file
/// The processes of a run. Each is started with the ledger's argument and a seed.
#ifndef HBBTV_RYN_TOOLS_TORTURE_ROLES_H
#define HBBTV_RYN_TOOLS_TORTURE_ROLES_H

#include "tools/support/child_process.h"

namespace hbbtv_ryn::test {

/// A browser host and a plug-in host that call each other without end and check every answer. What a
/// handler answers is computed from the question alone, so the asker knows the only right answer. Waits are
/// broken by signals, and one of the threads is cancelled again and again.
///
/// A host says "up" when it serves, and calls once it has been told "call". Told "finish", it stops
/// everything in an orderly way and ends with exit code 0.
extern const ChildRole kBrowserHost;
extern const ChildRole kPluginHost;

/// A browser that shares no code with the library and knows the record format alone. It answers the plug-in
/// host's questions until it is told to finish, and then ends between two messages.
extern const ChildRole kPlainBrowser;

/// Writes to the three request queues what no peer would: as long as the ledger's phase is kMalformed
/// records that nobody can answer, in phase kAnything also such as the peer itself might have sent. Two
/// things it leaves out, since the format gives everyone the right to them: the stop record and the
/// one-way message "exit".
extern const ChildRole kHostileWriter;

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_TORTURE_ROLES_H
