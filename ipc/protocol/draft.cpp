#include "ipc/protocol/draft.h"

#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"

namespace hbbtv_ryn {

Draft& Draft::keyCodes(const char* count_key, const int* codes, int count) {
  key_codes_ = codes;
  key_code_count_ = codes == nullptr ? 0 : count;
  return number(count_key, count);
}

Json::Value Draft::json() const {
  Json::Value message(Json::objectValue);
  set(&message, key::kCode, static_cast<Json::UInt>(code_));
  for (std::size_t i = 0; i < count_; ++i) {
    const Item& item = items_[i];
    switch (item.kind) {
      case Kind::kNumber:
        set(&message, item.key, item.number);
        break;
      case Kind::kBoolean:
        set(&message, item.key, item.number != 0);
        break;
      case Kind::kString:
        set(&message, item.key, Json::Value(item.text.data(), item.text.data() + item.text.size()));
        break;
    }
  }
  setKeyCodes(&message, key_codes_, key_code_count_);
  return message;
}

std::string Draft::text() const {
  return serialise(json());
}

}  // namespace hbbtv_ryn
