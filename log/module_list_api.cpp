#include <cstring>
#include <exception>

#include "hbbtv_ryn/log.h"
#include "log/module_list.h"

using hbbtv_ryn::kLogCommandTextBytes;
using hbbtv_ryn::moduleList;

// std::mutex reports a failed lock by an exception, the only one that can arise here. A logging call that
// cannot look up or edit the list behaves as if the list were empty.

int zunt_log_getLevel(const char* module) {
  if (module == nullptr) return LOG_LEVEL_ERROR;
  try {
    return moduleList().full(module) ? LOG_LEVEL_INFO : LOG_LEVEL_ERROR;
  } catch (const std::exception&) {
    return LOG_LEVEL_ERROR;
  }
}

int insert_modules_list(const char* names, unsigned int value) {
  if (names == nullptr) return -1;
  try {
    moduleList().edit({names, strnlen(names, kLogCommandTextBytes)}, static_cast<int>(value));
  } catch (const std::exception&) {
    return 0;
  }
  return 0;
}

int get_modules_list(char* names) {
  if (names == nullptr) return 0;
  try {
    return static_cast<int>(moduleList().describe(names));
  } catch (const std::exception&) {
    return 0;
  }
}

int clear_modules_list() {
  try {
    moduleList().clear();
  } catch (const std::exception&) {
    return 0;
  }
  return 0;
}
