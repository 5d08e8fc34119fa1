#include "tools/catalogue/catalogue_text.h"

#include <array>
#include <string_view>

#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"

namespace hbbtv_ryn {
namespace {

struct SampleString {
  std::string_view key;
  const char* value;
};

constexpr SampleString kSampleStrings[] = {
    {key::kUrl, "http://portal.example/index.html"},
    {key::kMtype, "video/mp4"},
    {key::kPointer, "icons/403.png"},
    {key::kLabel, "Red"},
    {key::kStatus, "foreground"},
    {key::kOld, "background"},
    {key::kNew, "foreground"},
    {key::kReason, "user"},
    {key::kSloc, "boot"},
    {key::kLloc, "home"},
    {key::kEvent, "SOFTWARE_INSTALLED"},
};

struct SampleNumber {
  std::string_view key;
  int value;
};

constexpr SampleNumber kSampleNumbers[] = {
    {key::kAppid, 1}, {key::kOrgid, 10},  {key::kTabid, 1},  {key::kKeySetCode, 403}, {key::kKeyCode, 403},
    {key::kKey, 403}, {key::kKeytype, 1}, {key::kValue, 31}, {key::kMaxvalue, 1023},  {key::kAppNum, 2},
    {key::kError, 4}, {key::kAppType, 1}, {key::kStatus, 3}, {key::kRet, 0},
};

constexpr std::array<int, 2> kSampleKeys{403, 404};
constexpr std::array<int, 2> kSampleIds{2, 3};

template <typename Table>
auto sampleFor(const Table& table, std::string_view key) {
  for (const auto& sample : table) {
    if (sample.key == key) return sample.value;
  }
  return decltype(table[0].value){};
}

void addSample(Json::Value* message, const Member& member) {
  switch (member.type) {
    case Type::kInt:
      return set(message, member.key, sampleFor(kSampleNumbers, member.key));
    case Type::kFlag:
      return set(message, member.key, 1);
    case Type::kBoolean:
      return set(message, member.key, true);
    case Type::kString: {
      const char* const text = sampleFor(kSampleStrings, member.key);
      return set(message, member.key, text == nullptr ? "" : text);
    }
    case Type::kKeyCount:
      setKeyCodes(message, kSampleKeys.data(), static_cast<int>(kSampleKeys.size()));
      return set(message, member.key, static_cast<int>(kSampleKeys.size()));
    case Type::kIdFields:
      return set(message, member.key, idFields(kSampleIds.data(), static_cast<int>(kSampleIds.size())));
  }
}

Json::Value sampleOf(int code, const Members& members) {
  Json::Value message(Json::objectValue);
  if (code != kNoReplyCode) set(&message, key::kCode, static_cast<Json::UInt>(code));
  for (const Member& member : members) addSample(&message, member);
  return message;
}

}  // namespace

const char* typeName(Type type) {
  switch (type) {
    case Type::kInt:
      return "int";
    case Type::kFlag:
      return "0/1";
    case Type::kBoolean:
      return "boolean";
    case Type::kString:
      return "string";
    case Type::kKeyCount:
      return "int and k0, k1, …";
    case Type::kIdFields:
      return "string of ids";
  }
  return "";
}

const char* directionName(Direction direction) {
  return direction == Direction::kToBrowser ? "to the browser" : "to the plug-in";
}

const char* deliveryName(Delivery delivery) {
  return delivery == Delivery::kOneWay ? "one-way" : "synchronous";
}

std::string senderName(const Message& message) {
  const char* const prefix =
      message.direction == Direction::kToBrowser ? "Zunt_RYN_Plugin_" : "Zunt_RYN_Browser_";
  return prefix + std::string(message.name);
}

std::string defaultAnswer(const Member& member) {
  switch (member.type) {
    case Type::kBoolean:
      return member.default_answer != 0 ? "true" : "false";
    case Type::kString:
    case Type::kIdFields:
      return "\"\"";
    default:
      return member.default_answer == kAsRequested ? "as requested" : std::to_string(member.default_answer);
  }
}

Json::Value sampleRequest(const Message& message) {
  return sampleOf(static_cast<int>(message.code), message.request);
}

std::string oneLine(const Json::Value& message) {
  std::string line;
  bool indentation = false;
  for (const char c : serialise(message)) {
    // A newline inside a string is escaped, so each one here is layout.
    if (c == '\n') line += ' ';
    indentation = c == '\n' || (indentation && c == ' ');
    if (!indentation) line += c;
  }
  line.pop_back();  // the final newline
  return line;
}

Json::Value sampleReply(const Message& message) {
  return sampleOf(message.reply_code, message.reply);
}

}  // namespace hbbtv_ryn
