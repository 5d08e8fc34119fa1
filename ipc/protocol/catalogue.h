/// @file
/// Every message of the two processes, in both directions. A row is the authority for its message: what it
/// says is what both endpoints send, read, default to and refuse, what the tool shows and what
/// docs/protocol.md prints. See docs/adding-a-message.md.
#ifndef HBBTV_RYN_IPC_PROTOCOL_CATALOGUE_H
#define HBBTV_RYN_IPC_PROTOCOL_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "ipc/protocol/keys.h"

namespace hbbtv_ryn {

enum class Code : int {
  GetOwnerApp = 201,
  GetCurrentApp = 203,
  GetChildApps = 207,
  CreateApp = 209,
  DestroyApp = 211,
  ShowApp = 212,
  HideApp = 213,
  ActivateInput = 214,
  DeactivateInput = 215,
  GetVisible = 216,
  GetActive = 218,
  GetPrimaryReceiver = 220,
  GetValue = 222,
  GetOtherKeys = 224,
  GetMaxiMumValue = 226,
  GetMaxiMumOtherKeys = 228,
  SetSupportsPointer = 230,
  GetSupportsPointer = 232,
  SetValue = 234,
  GetKeyIcon = 235,
  GetKeyLabel = 237,
  SendAppLoadError = 239,
  SendAppLoaded = 240,
  SendAppUnloaded = 241,
  SendTopMost = 242,
  RequestDestroyApp = 243,
  SendKey = 244,
  IsParentalRatingBlocked = 245,
  IsObjectSupported = 247,
  Get_VB_Resouce_Allowed = 256,
  SetBRAppToBI = 258,
  Get_APP_TYPE = 265,
  SetBIAppToBR = 267,
  KeyConsumedByBrowser = 268,
  Get_Configuration = 270,
  Handle_BroadcastService = 271,
  Set_BroadcastFullScreen = 272,
  OpApp_StateChange = 275,
  OpApp_ContextChange = 276,
  OpApp_Update = 277,
  OpApp_Uninstall_Judge = 278,
  OpApp_GetStatus = 279,
  OpApp_SetStatus = 280,
  OpApp_RequestTransient = 281,
  OpApp_RequestForeground = 282,
  OpApp_RequestBackground = 283,
  OpApp_GetUpdateStatus = 284,
  OpApp_RequestUpdate = 285,
};

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

  constexpr Members() = default;
  constexpr Members(std::initializer_list<Member> members) {
    if (members.size() > kCapacity)
      throw std::length_error("more members than a row can have: see kCapacity");
    for (const Member& member : members) items_[count_++] = member;
  }
  constexpr const Member* begin() const { return items_; }
  constexpr const Member* end() const { return items_ + count_; }
  constexpr std::size_t size() const { return count_; }

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

constexpr Message command(Code code, std::string_view name, Members request) {
  return {code, kNoReplyCode, name, Direction::kToBrowser, Delivery::kOneWay, request, {}};
}
constexpr Message question(Code code, std::string_view name, Members request, Members reply) {
  return {code, static_cast<int>(code) + 1, name, Direction::kToBrowser, Delivery::kSync, request, reply};
}
constexpr Message opAppQuestion(Code code, std::string_view name, Members request, Members reply) {
  return {code, kNoReplyCode, name, Direction::kToBrowser, Delivery::kSync, request, reply};
}
constexpr Message notification(Code code, std::string_view name, Members request) {
  return {code, kNoReplyCode, name, Direction::kToPlugin, Delivery::kOneWay, request, {}};
}
constexpr Message query(Code code, std::string_view name, Members request, Members reply) {
  return {code, kQueryReplyCode, name, Direction::kToPlugin, Delivery::kSync, request, reply};
}

using namespace key;

/// In ascending order of the codes.
inline constexpr Message kMessages[] = {
    question(Code::GetOwnerApp, "GetOwnerApp", {kAppid}, {{kAppid, Type::kInt, kAsRequested}, kOrgid}),
    question(Code::GetCurrentApp, "GetCurrentApp", {}, {kAppid, kOrgid}),
    question(Code::GetChildApps, "GetChildApps", {kAppid, kOrgid},
             {kAppNum, {kAppidArray, Type::kIdFields}, {kOrgidArray, Type::kIdFields}}),
    question(Code::CreateApp, "CreateApp", {kAppid, kOrgid, text(kUrl), flag(kChild), flag(kOpapp)},
             {kAppid, kOrgid}),
    command(Code::DestroyApp, "DestroyApp", {kAppid, kOrgid}),
    command(Code::ShowApp, "ShowApp", {kAppid, kOrgid}),
    command(Code::HideApp, "HideApp", {kAppid, kOrgid}),
    command(Code::ActivateInput, "ActivateInput", {kAppid, kOrgid, {kFocus, Type::kBoolean}}),
    command(Code::DeactivateInput, "DeactivateInput", {kAppid, kOrgid}),
    question(Code::GetVisible, "GetVisible", {kAppid, kOrgid}, {flag(kVisible)}),
    question(Code::GetActive, "GetActive", {kAppid, kOrgid}, {flag(kActive)}),
    question(Code::GetPrimaryReceiver, "GetPrimaryReceiver", {kAppid, kOrgid}, {flag(kPrimary)}),
    question(Code::GetValue, "GetValue", {kAppid, kOrgid}, {kValue}),
    question(Code::GetOtherKeys, "GetOtherKeys", {kAppid, kOrgid}, {{kNum, Type::kKeyCount}}),
    question(Code::GetMaxiMumValue, "GetMaxiMumValue", {kAppid, kOrgid}, {kMaxvalue}),
    question(Code::GetMaxiMumOtherKeys, "GetMaxiMumOtherKeys", {kAppid, kOrgid}, {{kNum, Type::kKeyCount}}),
    command(Code::SetSupportsPointer, "SetSupportsPointer", {kAppid, kOrgid, flag(kPointer)}),
    question(Code::GetSupportsPointer, "GetSupportsPointer", {kAppid, kOrgid}, {flag(kPointer)}),
    command(Code::SetValue, "SetValue", {kAppid, kOrgid, kValue, {kKeynum, Type::kKeyCount}}),
    question(Code::GetKeyIcon, "GetKeyIcon", {kAppid, kOrgid, kKeySetCode}, {text(kPointer)}),
    question(Code::GetKeyLabel, "GetKeyLabel", {kAppid, kOrgid, kKeySetCode}, {text(kLabel)}),
    notification(Code::SendAppLoadError, "SendAppLoadError", {kAppid, kOrgid, undelivered(kError)}),
    notification(Code::SendAppLoaded, "SendAppLoaded", {kAppid, kOrgid}),
    notification(Code::SendAppUnloaded, "SendAppUnloaded", {kAppid, kOrgid}),
    notification(Code::SendTopMost, "SendTopMost", {kAppid, kOrgid, {kTopmost, Type::kBoolean}}),
    notification(Code::RequestDestroyApp, "RequestDestroyApp", {kAppid, kOrgid}),
    notification(Code::SendKey, "SendKey", {kAppid, kOrgid, undelivered(kKey), kKeytype}),
    query(Code::IsParentalRatingBlocked, "IsParentalRatingBlocked", {kAppid, kOrgid}, {flag(kBlocked)}),
    query(Code::IsObjectSupported, "IsObjectSupported", {text(kMtype)}, {flag(kSupported)}),
    question(Code::Get_VB_Resouce_Allowed, "Get_VB_Resouce_Allowed", {kTabid}, {flag(kAllowed)}),
    command(Code::SetBRAppToBI, "SetBRAppToBI", {kTabid}),
    question(Code::Get_APP_TYPE, "Get_APP_TYPE", {kTabid}, {kAppType}),
    command(Code::SetBIAppToBR, "SetBIAppToBR", {kTabid}),
    question(Code::KeyConsumedByBrowser, "KeyConsumedByBrowser", {kTabid, kKeyCode}, {flag(kConsumed)}),
    notification(Code::Get_Configuration, "Get_Configuration", {}),
    notification(Code::Handle_BroadcastService, "Handle_BroadcastService", {flag(kBValue)}),
    notification(Code::Set_BroadcastFullScreen, "Set_BroadcastFullScreen", {flag(kBValue)}),
    notification(Code::OpApp_StateChange, "OpApp_StateChange",
                 {kAppid, kOrgid, text(kOld), text(kNew), text(kReason)}),
    notification(Code::OpApp_ContextChange, "OpApp_ContextChange",
                 {kAppid, kOrgid, text(kSloc), text(kLloc), text(kReason)}),
    notification(Code::OpApp_Update, "OpApp_Update", {kAppid, kOrgid, text(kEvent)}),
    opAppQuestion(Code::OpApp_Uninstall_Judge, "OpApp_Uninstall_Judge", {}, {{kFlag, Type::kBoolean, 1}}),
    opAppQuestion(Code::OpApp_GetStatus, "OpApp_GetStatus", {}, {text(kStatus), kRet}),
    opAppQuestion(Code::OpApp_SetStatus, "OpApp_SetStatus", {text(kStatus)}, {kRet}),
    opAppQuestion(Code::OpApp_RequestTransient, "OpApp_RequestTransient", {}, {kRet}),
    opAppQuestion(Code::OpApp_RequestForeground, "OpApp_RequestForeground", {}, {kRet}),
    opAppQuestion(Code::OpApp_RequestBackground, "OpApp_RequestBackground", {}, {kRet}),
    opAppQuestion(Code::OpApp_GetUpdateStatus, "OpApp_GetUpdateStatus", {},
                  {{kStatus, Type::kInt, kUpdateStatusUnknown}, kRet}),
    opAppQuestion(Code::OpApp_RequestUpdate, "OpApp_RequestUpdate", {}, {kRet}),
};

}  // namespace catalogue_detail

using catalogue_detail::kMessages;

namespace catalogue_detail {

constexpr bool codesAscend() {
  for (std::size_t i = 1; i < std::size(kMessages); ++i) {
    if (kMessages[i - 1].code >= kMessages[i].code) return false;
  }
  return true;
}
static_assert(codesAscend(), "the rows stand in ascending order of their codes, each once");
static_assert(std::size(kMessages) == 48, "34 requests, 12 notifications and 2 queries: the wire is fixed");

}  // namespace catalogue_detail

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

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_CATALOGUE_H
