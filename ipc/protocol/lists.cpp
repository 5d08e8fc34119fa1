#include "ipc/protocol/lists.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "ipc/protocol/envelope.h"

namespace hbbtv_ryn {

std::string keyCodeName(int index) {
  return 'k' + std::to_string(index);
}

void setKeyCodes(Json::Value* message, const int* codes, int count) {
  for (int i = 0; i < count; ++i) (*message)[keyCodeName(i)] = codes[i];
}

void readKeyCodes(const Json::Value& message, int count, int* codes) {
  const int kept = std::min(count, kMaxKeyCodes);
  for (int i = 0; i < kept; ++i) codes[i] = integer(message, keyCodeName(i).c_str());
}

std::string idFields(const int* ids, int count) {
  std::string fields;
  for (int i = 0; i < count; ++i) {
    char field[kIdFieldChars + 1];
    std::snprintf(field, sizeof field, "%*d", kIdFieldChars, ids[i]);
    fields.append(field, kIdFieldChars);
  }
  return fields;
}

void readIdFields(const std::string& fields, int count, int* ids) {
  const auto whole = static_cast<int>(fields.size() / kIdFieldChars);
  for (int i = 0; i < std::min(count, whole); ++i) {
    char field[kIdFieldChars + 1] = {};
    fields.copy(field, kIdFieldChars, static_cast<std::size_t>(i) * kIdFieldChars);
    // A field without a number leaves its entry alone, which strtol() would not.
    // NOLINTNEXTLINE(cert-err34-c)
    std::sscanf(field, "%16d", &ids[i]);
  }
}

}  // namespace hbbtv_ryn
