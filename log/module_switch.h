/// @file
/// Whether one module is listed for full output, for code that asks on a hot path.
#ifndef HBBTV_RYN_LOG_MODULE_SWITCH_H
#define HBBTV_RYN_LOG_MODULE_SWITCH_H

#include <atomic>

namespace hbbtv_ryn {

/// Follows whether one module is listed for full output; asking costs one relaxed load, whatever else the
/// list holds. Every edit of the module list brings it up to date before the edit returns.
///
/// Only for objects of static storage: the module list keeps a pointer to each for ever.
///
///     ModuleSwitch g_trace_switch{"ryn_trace"};
///     ...
///     if (g_trace_switch.on()) zunt_log("ryn_trace", ...);
class ModuleSwitch {
 public:
  /// @param module  a name of at most 32 bytes that lives as long as the process.
  explicit ModuleSwitch(const char* module);
  ModuleSwitch(const ModuleSwitch&) = delete;
  ModuleSwitch& operator=(const ModuleSwitch&) = delete;

  /// Any thread may ask, also before the constructor has run: it is off then.
  bool on() const noexcept { return on_.load(std::memory_order_relaxed); }

 private:
  friend class ModuleList;

  // Fixed after construction.
  const char* const module_;
  // Guarded by the lock of the module list.
  ModuleSwitch* next_ = nullptr;
  // Written under that lock, read by any thread.
  std::atomic<bool> on_{false};
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_LOG_MODULE_SWITCH_H
