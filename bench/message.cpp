#include "message.h"

#include <json/json.h>

#include <stdexcept>

#include "transport.h"

namespace bench {
namespace {

enum Code : unsigned { kGetVisible = 216, kAppLoaded = 240, kSetStatus = 280 };

// jsoncpp marks both classes as deprecated in favour of builders that cost several times as much.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
std::string write(Text text, const Json::Value& value) {
  thread_local Json::StyledWriter kept;
  return text == Text::kNaive ? value.toStyledString() : kept.write(value);
}

Json::Value read(Text text, const std::string& message) {
  thread_local Json::Reader kept;
  Json::Value value;
  const bool is_json =
      text == Text::kNaive ? Json::Reader().parse(message, value) : kept.parse(message, value);
  if (!is_json) throw std::runtime_error("a message is not JSON");
  return value;
}
#pragma GCC diagnostic pop

std::string writeIdentified(Text text, Code code) {
  Json::Value value;
  value["t"] = code;
  value["appid"] = kAppId;
  value["orgid"] = kOrgId;
  return write(text, value);
}

std::string writeStatus(Text text, const std::string& status) {
  Json::Value value;
  value["t"] = kSetStatus;
  value["status"] = status;
  return write(text, value);
}

std::string writeVisibleReply(Text text) {
  Json::Value value;
  value["t"] = kGetVisible + 1;
  value["visible"] = 1;
  return write(text, value);
}

}  // namespace

std::string visibleRequest(Text text) {
  static const std::string ready_made = writeIdentified(Text::kFloor, kGetVisible);
  return text == Text::kPlain ? ready_made : writeIdentified(text, kGetVisible);
}

void readVisibleReply(Text text, const std::string& reply) {
  const bool visible = text == Text::kPlain ? !reply.empty() : read(text, reply)["visible"].asInt() != 0;
  if (!visible) throw std::runtime_error("the answer to a request is wrong");
}

std::string appLoaded(Text text) {
  static const std::string ready_made = writeIdentified(Text::kFloor, kAppLoaded);
  return text == Text::kPlain ? ready_made : writeIdentified(text, kAppLoaded);
}

std::size_t statusLength(int bytes) {
  static const std::size_t frame = writeStatus(Text::kFloor, "").size();
  return static_cast<std::size_t>(bytes) - frame;
}

std::string statusRequest(Text text, int bytes) {
  if (text == Text::kPlain) return std::string(static_cast<std::size_t>(bytes), 's');
  return writeStatus(text, std::string(statusLength(bytes), 's'));
}

void readStatusReply(Text text, const std::string& reply) {
  const int result = text == Text::kPlain ? (reply.empty() ? -1 : 0) : read(text, reply)["ret"].asInt();
  if (result != 0) throw std::runtime_error("the answer to a request is wrong");
}

bool answer(Text text, bool is_request, const std::string& message, std::string& reply) {
  if (text == Text::kPlain) {
    static const std::string ready_made = writeVisibleReply(Text::kFloor);
    if (is_request) reply = ready_made;
    return is_request;
  }
  const Json::Value request = read(text, message);
  switch (request["t"].asInt()) {
    case kGetVisible:
      if (request["appid"].asInt() != kAppId || request["orgid"].asInt() != kOrgId) break;
      reply = writeVisibleReply(text);
      return true;
    case kSetStatus: {
      if (request["status"].asString().empty()) break;
      Json::Value value;
      value["ret"] = 0;
      reply = write(text, value);
      return true;
    }
    case kAppLoaded:
      if (request["appid"].asInt() != kAppId || request["orgid"].asInt() != kOrgId) break;
      return false;
    default:
      break;
  }
  throw std::runtime_error("a message arrived changed");
}

}  // namespace bench
