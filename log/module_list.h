/// @file
/// The process-wide list of modules and their values.
#ifndef HBBTV_RYN_LOG_MODULE_LIST_H
#define HBBTV_RYN_LOG_MODULE_LIST_H

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <string_view>

#include "log/control_protocol.h"

namespace hbbtv_ryn {

class ModuleSwitch;

/// Room for every listed name, the separators and a NUL, and more: the size is the interface's.
inline constexpr std::size_t kModuleTextBytes = kLogCommandBytes;
static_assert(kMaxModules * (kMaxModuleName + 1) <= kModuleTextBytes);

/// Names in byte order with a value other than 0 each. Holds its entries in place, so that no operation
/// allocates, and is usable before and after every other static object of the process.
class ModuleList {
 public:
  constexpr ModuleList() = default;
  ModuleList(const ModuleList&) = delete;
  ModuleList& operator=(const ModuleList&) = delete;

  /// @return whether the module is listed for full output. One atomic load when the list is empty.
  bool full(std::string_view module) const;

  /// The edit of insert_modules_list(), with its messages on standard output, which are written after the
  /// lock is released: a stalled output delays no look-up.
  void edit(std::string_view names, int value);

  void clear();

  /// Writes all kModuleTextBytes of `text`, unless the list is empty.
  /// @return the number of entries.
  std::size_t describe(char* text) const;

  /// Keeps `added` up to date from now on.
  void watch(ModuleSwitch& added);

 private:
  struct Entry {
    std::array<char, kMaxModuleName> bytes{};
    std::size_t length = 0;
    int value = 0;

    std::string_view name() const { return {bytes.data(), length}; }
  };

  // These expect the lock to be held.
  std::size_t lowerBound(std::string_view name) const;
  bool holds(std::size_t position, std::string_view name) const;
  bool fullLocked(std::string_view name) const;
  void put(std::string_view name, int value);
  void remove(std::string_view name);
  void publish();

  // Guards the entries and the chain of switches.
  mutable std::mutex lock_;
  std::array<Entry, kMaxModules> entries_{};
  ModuleSwitch* switches_ = nullptr;
  // Written under the lock; read without it by full() to pass an empty list by.
  std::atomic<std::size_t> count_{0};
};

/// The one list of the process.
ModuleList& moduleList();

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_LOG_MODULE_LIST_H
