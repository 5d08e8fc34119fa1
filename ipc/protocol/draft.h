// A message about to be sent: its code and members, by reference, so that describing it cannot fail. The
// JSON is built from it in one place.
#ifndef HBBTV_RYN_IPC_PROTOCOL_DRAFT_H
#define HBBTV_RYN_IPC_PROTOCOL_DRAFT_H

#include <json/value.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn {

// Whatever is referred to must outlive the draft, which is a temporary of one send.
class Draft {
 public:
  explicit Draft(Code code) : code_(code) {}

  Draft& number(const char* key, int value) { return add({key, Kind::kNumber, value, {}}); }
  Draft& flag(const char* key, bool value) { return add({key, Kind::kNumber, value ? 1 : 0, {}}); }
  Draft& boolean(const char* key, bool value) { return add({key, Kind::kBoolean, value ? 1 : 0, {}}); }
  Draft& string(const char* key, std::string_view value) { return add({key, Kind::kString, 0, value}); }
  // A key-code list. Null sends the count alone.
  Draft& keyCodes(const char* count_key, const int* codes, int count);

  Code code() const { return code_; }
  // Both throw when memory is out.
  Json::Value json() const;
  std::string text() const;

 private:
  enum class Kind : unsigned char { kNumber, kBoolean, kString };
  struct Item {
    const char* key = nullptr;
    Kind kind = Kind::kNumber;
    int number = 0;
    std::string_view text;
  };

  Draft& add(const Item& item) {
    items_[count_++] = item;
    return *this;
  }

  Code code_;
  Item items_[Members::kCapacity];
  std::size_t count_ = 0;
  const int* key_codes_ = nullptr;
  int key_code_count_ = 0;
};

inline Draft appDraft(Code code, int appid, int orgid) {
  return Draft(code).number(key::kAppid, appid).number(key::kOrgid, orgid);
}

inline Draft tabDraft(Code code, int tabid) {
  return Draft(code).number(key::kTabid, tabid);
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_DRAFT_H
