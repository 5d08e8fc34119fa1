#include "tools/catalogue/catalogue_text.h"

#include <json/writer.h>

#include <array>
#include <string_view>
#include <vector>

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

Given sampleOf(const Member& member) {
  static const std::string kFields = idFields(kSampleIds.data(), kSampleIds.size());
  switch (member.type) {
    case Type::kInt:
      return samples(member.type)[member.key].asInt();
    case Type::kString:
      return std::string_view(samples(member.type)[member.key].asCString());
    case Type::kKeyCount:
      return KeyList{kSampleKeys.data(), kSampleKeys.size()};
    case Type::kIdFields:
      return std::string_view(kFields);
    default:
      return 1;
  }
}

Json::Value sampleOf(int code, const Members& members) {
  std::vector<Given> values;
  for (const Member& member : members) values.push_back(sampleOf(member));
  return compose(code, members, values.data());
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
  if (isText(member.type)) return "\"\"";
  if (member.type == Type::kBoolean) return member.default_answer != 0 ? "true" : "false";
  return member.default_answer == kAsRequested ? "as requested" : std::to_string(member.default_answer);
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
