// Any datagrams as log commands: the input is cut into them, 1025 bytes each, the last one shorter.
#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>

#include "fuzzing.h"
#include "hbbtv_ryn/log.h"
#include "log/control_command.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)

namespace {

void checkList() {
  char names[kLogCommandBytes];
  std::memset(names, '?', sizeof names);
  const int count = get_modules_list(names);
  fuzz::require(count >= 0 && count <= static_cast<int>(kMaxModules), "the number of modules");
  if (count == 0) return;
  fuzz::require(std::memchr(names, '\0', sizeof names) != nullptr, "the list ends");
  int listed = 0;
  std::istringstream list(names);
  for (std::string name, before; std::getline(list, name, kModuleSeparator); before = name, ++listed) {
    fuzz::require(!name.empty() && name.size() <= kMaxModuleName, "the length of a name");
    fuzz::require(before < name, "the order of the names");
    zunt_log_getLevel(name.c_str());
  }
  fuzz::require(listed == count, "as many names as told");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::silenceLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  clear_modules_list();
  for (std::size_t at = 0; at < size; at += kLogCommandBytes) {
    char command[kLogCommandBytes] = {};
    std::memcpy(command, data + at, std::min(kLogCommandBytes, size - at));
    applyLogCommand(command);
    checkList();
  }
  return 0;
}
