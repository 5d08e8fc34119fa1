#include "tools/catalogue/catalogue_text.h"

#include <json/writer.h>

#include <array>
#include <string_view>

#include "ipc/protocol/envelope.h"

namespace hbbtv_ryn {
namespace {

constexpr const char* kTypes[] = {"int", "0/1", "boolean", "string", "int and k0, k1, …", "string of ids"};

/// A value for each key: some are numbers here and texts there.
const Json::Value& samples(Type type) {
  static const Json::Value kSamples = [] {
    Json::Value values;
    parse(R"({
      "int": {"appid": 1, "orgid": 10, "tabid": 1, "code": 403, "keyCode": 403, "key": 403, "keytype": 1, "value": 31,
              "maxvalue": 1023, "appNum": 2, "error": 4, "appType": 1, "status": 3, "ret": 0},
      "string": {"url": "http://portal.example/index.html", "mtype": "video/mp4", "pointer": "icons/403.png",
                 "label": "Red", "status": "foreground", "old": "background", "new": "foreground", "reason": "user",
                 "sloc": "boot", "lloc": "home", "event": "SOFTWARE_INSTALLED"}})",
          &values);
    return values;
  }();
  return kSamples[typeName(type)];
}

constexpr std::array<int, 2> kSampleKeys{403, 404};
constexpr std::array<int, 2> kSampleIds{2, 3};

void addSample(Json::Value* message, const Member& member) {
  switch (member.type) {
    case Type::kInt:
    case Type::kString:
      return set(message, member.key, samples(member.type)[member.key]);
    case Type::kFlag:
      return set(message, member.key, 1);
    case Type::kBoolean:
      return set(message, member.key, true);
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
  return kTypes[static_cast<std::size_t>(type)];
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
  static const Json::StreamWriterBuilder kCompact = [] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    // A time of this century with its microseconds, and no digit that its double does not have.
    builder["precision"] = 6;
    builder["precisionType"] = "decimal";
    return builder;
  }();
  return Json::writeString(kCompact, message);
}

Json::Value sampleReply(const Message& message) {
  return sampleOf(message.reply_code, message.reply);
}

}  // namespace hbbtv_ryn
