#include "ipc/protocol/envelope.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "hbbtv_ryn/ipc.h"

// Json::Reader and Json::StyledWriter are marked deprecated. Their successors write another indentation
// than the wire form, and build a whole writer or reader for each text, at five times the cost.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace hbbtv_ryn {
namespace {

// One reader and one writer are kept, since making them costs as much as a short text does. No thread keeps
// them: a host asks from its exit handlers too, when what a thread had is gone.
template <typename Tool>
class Kept {
 public:
  Kept() : tool_(kept.exchange(nullptr)) {
    if (!tool_) tool_ = std::make_unique<Tool>();
  }
  void keep() { tool_.reset(kept.exchange(tool_.release())); }
  Tool* operator->() const { return tool_.get(); }

 private:
  static inline std::atomic<Tool*> kept{nullptr};
  std::unique_ptr<Tool> tool_;
};

// The key must live as long as the message.
void set(Json::Value* message, const char* key, Json::Value value) {
  (*message)[Json::StaticString(key)] = std::move(value);
}

Given givenOf(const Member& member, const Value& value) {
  if (isText(member.type)) return std::string_view(*value.text);
  if (member.type == Type::kKeyCount) return KeyList{value.keys.codes, value.keys.count};
  return isFlag(member.type) ? static_cast<int>(value.flag) : value.number;
}

}  // namespace

std::string serialise(const Json::Value& message) {
  Kept<Json::StyledWriter> writer;
  std::string text = writer->write(message);
  if (text.size() <= IPC_MAX_MESSAGE) writer.keep();  // with the room for it
  return text;
}

bool parse(const char* text, Json::Value* message) {
  try {
    Kept<Json::Reader> reader;
    const bool is_json = reader->parse(text, text + std::strlen(text), *message, /*collectComments=*/false);
    reader.keep();
    return is_json && message->isObject();
  } catch (const Json::Exception&) {
    return false;  // nested beyond the reader's stack limit
  }
}

#pragma GCC diagnostic pop

int integer(const Json::Value& message, const char* key) {
  return message[key].asInt();
}

std::string keyCodeName(int index) {
  return 'k' + std::to_string(index);
}

void setKeyCodes(Json::Value* message, const int* codes, int count) {
  for (int i = 0; i < count; ++i) (*message)[keyCodeName(i)] = codes[i];
}

void readKeyCodes(const Json::Value& message, int count, int* codes) {
  for (int i = 0; i < std::min(count, kMaxKeyCodes); ++i)
    codes[i] = integer(message, keyCodeName(i).c_str());
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

Json::Value compose(int code, const Members& members, const Given* given, const Value* answers) {
  Json::Value message(Json::objectValue);
  if (code != kNoReplyCode) set(&message, key::kCode, static_cast<Json::UInt>(code));
  for (const Member& member : members) {
    const Given value = given != nullptr ? *given++ : givenOf(member, *answers++);
    if (isText(member.type)) {
      const auto* const text = static_cast<const char*>(value.data);
      set(&message, member.key, Json::Value(text, text + value.number));
    } else if (member.type == Type::kBoolean) {
      set(&message, member.key, value.number != 0);
    } else {
      if (value.data != nullptr) setKeyCodes(&message, static_cast<const int*>(value.data), value.number);
      set(&message, member.key, value.number);
    }
  }
  return message;
}

void read(const Json::Value& message, const Members& members, Value* value) {
  for (const Member& member : members) {
    if (!member.delivered) continue;
    if (isText(member.type)) {
      value->text = message[member.key].asString();
    } else {
      value->number = integer(message, member.key);
      value->flag = value->number != 0;
    }
    if (member.type == Type::kKeyCount) {
      value->keys = {value->number, {}};
      readKeyCodes(message, value->number, value->keys.codes);
    }
    ++value;
  }
}

void readDefaults(const Json::Value& request, const Members& reply, Value* value) {
  for (const Member& member : reply) {
    const bool repeated = member.default_answer == kAsRequested;
    value->number = repeated ? integer(request, member.key) : member.default_answer;
    value->flag = value->number != 0;
    if (isText(member.type)) value->text.emplace();
    if (member.type == Type::kKeyCount) value->keys = {value->number, {}};
    ++value;
  }
}

}  // namespace hbbtv_ryn
