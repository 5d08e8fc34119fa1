#include "log/module_list.h"

#include <algorithm>
#include <cstring>

#include "hbbtv_ryn/log.h"
#include "log/module_switch.h"
#include "log/output.h"

namespace hbbtv_ryn {

namespace {

ModuleList g_module_list;

/// Takes the next name off `rest`; empty pieces are skipped. Empty when there is none.
std::string_view nextName(std::string_view& rest) {
  const std::size_t start = rest.find_first_not_of(kModuleSeparator);
  if (start == std::string_view::npos) return {};
  const std::string_view name = rest.substr(start, rest.find(kModuleSeparator, start) - start);
  rest.remove_prefix(start + name.size());
  return name;
}

/// The names that one edit refused, as pieces of the text it was given.
class Refusals {
 public:
  void tooLong(std::string_view name) { tooLong_[count_++] = name; }
  void listFull(std::string_view name) { listFull_ = name; }

  void report() const {
    for (std::size_t i = 0; i < count_; ++i) {
      writeOut("module:%.*s set error, length is %zu, out of max length:%d\n",
               static_cast<int>(tooLong_[i].size()), tooLong_[i].data(), tooLong_[i].size(),
               static_cast<int>(kMaxModuleName));
    }
    if (!listFull_.empty()) {
      writeOut("module:%.*s set error, module_list map has number:%zu\n",
               static_cast<int>(listFull_.size()), listFull_.data(), kMaxModules);
    }
  }

 private:
  // A refused name has at least kMaxModuleName + 1 bytes and a separator behind it, but for the last.
  static constexpr std::size_t kMost = (kLogCommandTextBytes + 1) / (kMaxModuleName + 2);

  std::array<std::string_view, kMost> tooLong_;
  std::size_t count_ = 0;
  std::string_view listFull_;  // ends the edit, so there is at most one, and it is the last
};

}  // namespace

ModuleList& moduleList() {
  return g_module_list;
}

ModuleSwitch::ModuleSwitch(const char* module) : module_(module) {
  moduleList().watch(*this);
}

bool ModuleList::full(std::string_view module) const {
  if (count_.load(std::memory_order_acquire) == 0) return false;
  const std::lock_guard<std::mutex> guard(lock_);
  return fullLocked(module);
}

void ModuleList::edit(std::string_view names, int value) {
  std::string_view rest = names.substr(0, kLogCommandTextBytes);
  Refusals refusals;
  {
    const std::lock_guard<std::mutex> guard(lock_);
    for (auto name = nextName(rest); !name.empty(); name = nextName(rest)) {
      if (name.size() > kMaxModuleName) {
        refusals.tooLong(name);
      } else if (value == kModuleRemoved) {
        remove(name);
      } else if (count_.load(std::memory_order_relaxed) == kMaxModules) {
        refusals.listFull(name);
        break;
      } else {
        put(name, value);
      }
    }
    publish();
  }
  refusals.report();
}

void ModuleList::clear() {
  const std::lock_guard<std::mutex> guard(lock_);
  count_.store(0, std::memory_order_release);
  publish();
}

std::size_t ModuleList::describe(char* text) const {
  const std::lock_guard<std::mutex> guard(lock_);
  const std::size_t count = count_.load(std::memory_order_relaxed);
  if (count == 0) return 0;
  std::memset(text, 0, kModuleTextBytes);
  char* end = text;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) *end++ = kModuleSeparator;
    end = std::copy_n(entries_[i].bytes.data(), entries_[i].length, end);
  }
  return count;
}

void ModuleList::watch(ModuleSwitch& added) {
  const std::lock_guard<std::mutex> guard(lock_);
  added.next_ = switches_;
  switches_ = &added;
  publish();
}

std::size_t ModuleList::lowerBound(std::string_view name) const {
  const Entry* const first = entries_.data();
  const Entry* const last = first + count_.load(std::memory_order_relaxed);
  const auto before = [](const Entry& entry, std::string_view key) { return entry.name() < key; };
  return static_cast<std::size_t>(std::lower_bound(first, last, name, before) - first);
}

bool ModuleList::holds(std::size_t position, std::string_view name) const {
  return position < count_.load(std::memory_order_relaxed) && entries_[position].name() == name;
}

bool ModuleList::fullLocked(std::string_view name) const {
  const std::size_t position = lowerBound(name);
  return holds(position, name) && entries_[position].value == kModuleFull;
}

void ModuleList::put(std::string_view name, int value) {
  const std::size_t position = lowerBound(name);
  if (!holds(position, name)) {
    const std::size_t count = count_.load(std::memory_order_relaxed);
    Entry* const first = entries_.data();
    std::copy_backward(first + position, first + count, first + count + 1);
    std::copy(name.begin(), name.end(), entries_[position].bytes.begin());
    entries_[position].length = name.size();
    count_.store(count + 1, std::memory_order_release);
  }
  entries_[position].value = value;
}

void ModuleList::remove(std::string_view name) {
  const std::size_t position = lowerBound(name);
  if (!holds(position, name)) return;
  const std::size_t count = count_.load(std::memory_order_relaxed);
  Entry* const first = entries_.data();
  std::copy(first + position + 1, first + count, first + position);
  count_.store(count - 1, std::memory_order_release);
}

void ModuleList::publish() {
  for (ModuleSwitch* each = switches_; each != nullptr; each = each->next_) {
    each->on_.store(fullLocked(each->module_), std::memory_order_relaxed);
  }
}

}  // namespace hbbtv_ryn

using hbbtv_ryn::kLogCommandTextBytes;
using hbbtv_ryn::moduleList;

int zunt_log_getLevel(const char* module) {
  return module != nullptr && moduleList().full(module) ? LOG_LEVEL_INFO : LOG_LEVEL_ERROR;
}

int insert_modules_list(const char* names, unsigned int value) {
  if (names == nullptr) return -1;
  moduleList().edit({names, strnlen(names, kLogCommandTextBytes)}, static_cast<int>(value));
  return 0;
}

int get_modules_list(char* names) {
  return names == nullptr ? 0 : static_cast<int>(moduleList().describe(names));
}

int clear_modules_list() {
  moduleList().clear();
  return 0;
}
