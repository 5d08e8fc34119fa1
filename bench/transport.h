/// @file
/// What every row of the benchmark implements, and the list of rows.
#ifndef BENCH_TRANSPORT_H
#define BENCH_TRANSPORT_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "shared_page.h"

namespace bench {

enum class Work {
  kRoundTrip,  ///< ask whether an application is visible
  kBurst,      ///< twelve notifications, then wait until all have been handled
  kSweep,      ///< requests of growing size with a short answer
  kFlood,      ///< notifications without a pause
};

/// Notifications per burst: they fit the queue, which holds fifteen records by default.
inline constexpr int kBurstMessages = 12;
/// The identity that every message carries.
inline constexpr int kAppId = 17;
inline constexpr int kOrgId = 4711;

/// Two processes joined by one transport. Made before the fork, then used by each process for its side
/// only. Failures are thrown.
class Transport {
 public:
  Transport() = default;
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  virtual ~Transport() = default;

  /// In the receiver: tells the page when it is ready and of every message it has handled. Never
  /// returns; the process is killed.
  virtual void receive(Work work, SharedPage& page) = 0;

  /// In the sender, once the receiver is ready.
  virtual void startSender(Work work) = 0;
  virtual void getVisible() = 0;
  virtual void notify() = 0;
  /// Sends a request whose text has `bytes` bytes, and waits for a short answer.
  virtual void exchange(int bytes) = 0;

  /// A third process whose CPU time belongs to a message; 0 when there is none.
  [[nodiscard]] virtual pid_t helper() const { return 0; }
};

/// What a sender does when there is no room for its message.
enum class Queue {
  kSystemV,          ///< waits in the kernel; kernel.msgmnb says how much room there is
  kSystemVSleeping,  ///< sleeps and tries again, as the library does
  kOther,            ///< waits; kernel.msgmnb does not matter
};

/// One row of the tables.
struct Row {
  const char* name;   ///< on the command line and in the CSV files
  const char* title;  ///< in tables and plots
  Queue queue;
  /// @param directory  an empty directory of this run, for sockets.
  std::unique_ptr<Transport> (*make)(const std::string& directory);
};

std::unique_ptr<Transport> makeLibrary(const std::string& directory);

/// All rows, in the order of the tables.
const std::vector<Row>& rows();

}  // namespace bench

#endif  // BENCH_TRANSPORT_H
