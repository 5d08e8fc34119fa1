/// @file
/// Every message of the two processes, in both directions. A row is the authority for its message: what it
/// says is what both endpoints send, read, default to and refuse, what the tool shows and what
/// docs/protocol.md prints. See docs/adding-a-message.md.
#ifndef HBBTV_RYN_IPC_PROTOCOL_CATALOGUE_H
#define HBBTV_RYN_IPC_PROTOCOL_CATALOGUE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace hbbtv_ryn {

/// The JSON keys that several rows, or code beside them, name. What one row alone names stands there.
namespace key {

inline constexpr char kCode[] = "t";
inline constexpr char kActive[] = "active";
inline constexpr char kAppid[] = "appid";
inline constexpr char kAppidArray[] = "appidArray";
inline constexpr char kAppNum[] = "appNum";
inline constexpr char kBValue[] = "bValue";
inline constexpr char kChild[] = "child";
inline constexpr char kFocus[] = "focus";
inline constexpr char kKeySetCode[] = "code";  // of a key whose icon or label is asked
inline constexpr char kKeynum[] = "keynum";
inline constexpr char kNum[] = "num";
inline constexpr char kOrgid[] = "orgid";
inline constexpr char kOrgidArray[] = "orgidArray";
inline constexpr char kPointer[] = "pointer";  // pointer support, and a key's icon
inline constexpr char kPrimary[] = "primary";
inline constexpr char kReason[] = "reason";
inline constexpr char kRet[] = "ret";
inline constexpr char kStatus[] = "status";
inline constexpr char kTabid[] = "tabid";
inline constexpr char kUrl[] = "url";
inline constexpr char kValue[] = "value";
inline constexpr char kVisible[] = "visible";

}  // namespace key

/// A message's number on the wire. The rows alone define them; elsewhere "GetVisible"_code names one.
enum class Code : int;

enum class Direction : uint8_t { kToBrowser, kToPlugin };
enum class Delivery : uint8_t { kOneWay, kSync };

/// How a member travels. Every reader converts, so 5, true and 1 all read as true.
enum class Type : uint8_t {
  kInt,       ///< JSON integer, 32 bits
  kFlag,      ///< JSON integer 0 or 1
  kBoolean,   ///< JSON boolean
  kString,    ///< JSON string
  kKeyCount,  ///< JSON integer n; the key codes follow as the integer members k0 to k(n-1)
  kIdFields,  ///< JSON string of appNum fields "%16d"
};

constexpr bool isFlag(Type type) {
  return type == Type::kFlag || type == Type::kBoolean;
}
constexpr bool isText(Type type) {
  return type == Type::kString || type == Type::kIdFields;
}

struct Member {
  constexpr Member() = default;
  constexpr Member(const char* its_key, Type its_type = Type::kInt, int its_default = 0)
      : key(its_key),
        type(its_type),
        default_answer(its_default),
        is_result(std::string_view(its_key) == key::kRet) {}

  const char* key = nullptr;
  Type type = Type::kInt;
  int default_answer = 0;  ///< what a reply carries when the host has no handler
  bool delivered = true;   ///< false: it travels, and no receiver reads it
  /// The host's own result, which an asking function returns in place of 0. The last member of its reply.
  bool is_result = false;
};

/// A reply that repeats a member of its request when the host has no handler.
inline constexpr int kAsRequested = INT32_MIN;
/// What the update status is before a handler says otherwise.
inline constexpr int kUpdateStatusUnknown = -2;

class Members {
 public:
  static constexpr std::size_t kCapacity = 5;

  constexpr Members(std::initializer_list<Member> members) {
    if (members.size() > kCapacity)
      throw std::length_error("more members than a row can have: see kCapacity");
    for (const Member& member : members) items_[count_++] = member;
  }
  constexpr const Member* begin() const { return items_; }
  constexpr const Member* end() const { return items_ + count_; }
  constexpr std::size_t size() const { return count_; }
  constexpr bool hasResult() const { return count_ != 0 && items_[count_ - 1].is_result; }

 private:
  Member items_[kCapacity] = {};
  std::size_t count_ = 0;
};

inline constexpr int kNoReplyCode = 0;
inline constexpr int kQueryReplyCode = 246;  ///< of either query

struct Message {
  Code code;
  int reply_code;  ///< kNoReplyCode in a reply that carries no code, and where there is no reply
  /// To the browser: the request, the handler slot and the end of the plug-in function's name. To the
  /// plug-in: the end of the browser function's name.
  std::string_view name;
  Direction direction;
  Delivery delivery;
  Members request;  ///< besides the code
  Members reply;    ///< besides the code
};

namespace catalogue_detail {

constexpr Member flag(const char* key) {
  return {key, Type::kFlag};
}
constexpr Member text(const char* key) {
  return {key, Type::kString};
}
constexpr Member undelivered(const char* key) {
  Member member(key);
  member.delivered = false;
  return member;
}

constexpr Message command(int code, std::string_view name, Members request) {
  return {Code{code}, kNoReplyCode, name, Direction::kToBrowser, Delivery::kOneWay, request, {}};
}
constexpr Message question(int code, std::string_view name, Members request, Members reply) {
  return {Code{code}, code + 1, name, Direction::kToBrowser, Delivery::kSync, request, reply};
}
constexpr Message opAppQuestion(int code, std::string_view name, Members request, Members reply) {
  return {Code{code}, kNoReplyCode, name, Direction::kToBrowser, Delivery::kSync, request, reply};
}
constexpr Message notification(int code, std::string_view name, Members request) {
  return {Code{code}, kNoReplyCode, name, Direction::kToPlugin, Delivery::kOneWay, request, {}};
}
constexpr Message query(int code, std::string_view name, Members request, Members reply) {
  return {Code{code}, kQueryReplyCode, name, Direction::kToPlugin, Delivery::kSync, request, reply};
}

using namespace key;

/// In ascending order of the codes.
inline constexpr Message kMessages[] = {
    question(201, "GetOwnerApp", {kAppid}, {{kAppid, Type::kInt, kAsRequested}, kOrgid}),
    question(203, "GetCurrentApp", {}, {kAppid, kOrgid}),
    question(207, "GetChildApps", {kAppid, kOrgid},
             {kAppNum, {kAppidArray, Type::kIdFields}, {kOrgidArray, Type::kIdFields}}),
    question(209, "CreateApp", {kAppid, kOrgid, text(kUrl), flag(kChild), flag("opapp")}, {kAppid, kOrgid}),
    command(211, "DestroyApp", {kAppid, kOrgid}),
    command(212, "ShowApp", {kAppid, kOrgid}),
    command(213, "HideApp", {kAppid, kOrgid}),
    command(214, "ActivateInput", {kAppid, kOrgid, {kFocus, Type::kBoolean}}),
    command(215, "DeactivateInput", {kAppid, kOrgid}),
    question(216, "GetVisible", {kAppid, kOrgid}, {flag(kVisible)}),
    question(218, "GetActive", {kAppid, kOrgid}, {flag(kActive)}),
    question(220, "GetPrimaryReceiver", {kAppid, kOrgid}, {flag(kPrimary)}),
    question(222, "GetValue", {kAppid, kOrgid}, {kValue}),
    question(224, "GetOtherKeys", {kAppid, kOrgid}, {{kNum, Type::kKeyCount}}),
    question(226, "GetMaxiMumValue", {kAppid, kOrgid}, {"maxvalue"}),
    question(228, "GetMaxiMumOtherKeys", {kAppid, kOrgid}, {{kNum, Type::kKeyCount}}),
    command(230, "SetSupportsPointer", {kAppid, kOrgid, flag(kPointer)}),
    question(232, "GetSupportsPointer", {kAppid, kOrgid}, {flag(kPointer)}),
    command(234, "SetValue", {kAppid, kOrgid, kValue, {kKeynum, Type::kKeyCount}}),
    question(235, "GetKeyIcon", {kAppid, kOrgid, kKeySetCode}, {text(kPointer)}),
    question(237, "GetKeyLabel", {kAppid, kOrgid, kKeySetCode}, {text("label")}),
    notification(239, "SendAppLoadError", {kAppid, kOrgid, undelivered("error")}),
    notification(240, "SendAppLoaded", {kAppid, kOrgid}),
    notification(241, "SendAppUnloaded", {kAppid, kOrgid}),
    notification(242, "SendTopMost", {kAppid, kOrgid, {"topmost", Type::kBoolean}}),
    notification(243, "RequestDestroyApp", {kAppid, kOrgid}),
    notification(244, "SendKey", {kAppid, kOrgid, undelivered("key"), "keytype"}),
    query(245, "IsParentalRatingBlocked", {kAppid, kOrgid}, {flag("blocked")}),
    query(247, "IsObjectSupported", {text("mtype")}, {flag("supported")}),
    question(256, "Get_VB_Resouce_Allowed", {kTabid}, {flag("allowed")}),
    command(258, "SetBRAppToBI", {kTabid}),
    question(265, "Get_APP_TYPE", {kTabid}, {"appType"}),
    command(267, "SetBIAppToBR", {kTabid}),
    question(268, "KeyConsumedByBrowser", {kTabid, "keyCode"}, {flag("consumed")}),
    notification(270, "Get_Configuration", {}),
    notification(271, "Handle_BroadcastService", {flag(kBValue)}),
    notification(272, "Set_BroadcastFullScreen", {flag(kBValue)}),
    notification(275, "OpApp_StateChange", {kAppid, kOrgid, text("old"), text("new"), text(kReason)}),
    notification(276, "OpApp_ContextChange", {kAppid, kOrgid, text("sloc"), text("lloc"), text(kReason)}),
    notification(277, "OpApp_Update", {kAppid, kOrgid, text("event")}),
    opAppQuestion(278, "OpApp_Uninstall_Judge", {}, {{"flag", Type::kBoolean, 1}}),
    opAppQuestion(279, "OpApp_GetStatus", {}, {text(kStatus), kRet}),
    opAppQuestion(280, "OpApp_SetStatus", {text(kStatus)}, {kRet}),
    opAppQuestion(281, "OpApp_RequestTransient", {}, {kRet}),
    opAppQuestion(282, "OpApp_RequestForeground", {}, {kRet}),
    opAppQuestion(283, "OpApp_RequestBackground", {}, {kRet}),
    opAppQuestion(284, "OpApp_GetUpdateStatus", {}, {{kStatus, Type::kInt, kUpdateStatusUnknown}, kRet}),
    opAppQuestion(285, "OpApp_RequestUpdate", {}, {kRet}),
};

constexpr bool codesAscend() {
  for (std::size_t i = 1; i < std::size(kMessages); ++i) {
    if (kMessages[i - 1].code >= kMessages[i].code) return false;
  }
  return true;
}
static_assert(codesAscend(), "the rows stand in ascending order of their codes, each once");
static_assert(std::size(kMessages) == 48, "34 requests, 12 notifications and 2 queries: the wire is fixed");

}  // namespace catalogue_detail

using catalogue_detail::kMessages;

/// The message with this code; null when there is none. Reply codes are not messages.
constexpr const Message* findMessage(int code) {
  for (const Message& message : kMessages) {
    if (static_cast<int>(message.code) == code) return &message;
  }
  return nullptr;
}

constexpr const Message& messageOf(Code code) {
  return *findMessage(static_cast<int>(code));
}

/// The code of the message with this name, one that a row has.
constexpr Code operator""_code(const char* name, std::size_t length) {
  for (const Message& message : kMessages) {
    if (message.name == std::string_view(name, length)) return message.code;
  }
  throw std::out_of_range("no row of the catalogue has this name");
}

/// The three queues that join the two processes. Each has one server, which receives, and one client. One
/// that carries synchronous messages has its reply queue at the next key.
inline constexpr key_t kRequestQueueKey = static_cast<key_t>(0x92101081U);       // plug-in to browser
inline constexpr key_t kNotificationQueueKey = static_cast<key_t>(0x92101091U);  // browser to plug-in
inline constexpr key_t kQueryQueueKey = static_cast<key_t>(0x92101093U);         // browser to plug-in

constexpr key_t queueOf(const Message& message) {
  if (message.direction == Direction::kToBrowser) return kRequestQueueKey;
  return message.delivery == Delivery::kSync ? kQueryQueueKey : kNotificationQueueKey;
}

inline constexpr long kChannel = 1;

/// Whether a handle needs a reply queue.
constexpr int withReply(key_t queue) {
  return queue == kNotificationQueueKey ? 0 : 1;
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_CATALOGUE_H
