// Every message of the two processes, in both directions: the one table that the dispatchers, the tool, the
// trace, the tests and the printed protocol read.
#ifndef HBBTV_RYN_IPC_PROTOCOL_CATALOGUE_H
#define HBBTV_RYN_IPC_PROTOCOL_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
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

// How a member travels. Every reader converts, so 5, true and 1 all read as true.
enum class Type : uint8_t {
  kInt,       // JSON integer, 32 bits
  kFlag,      // JSON integer 0 or 1
  kBoolean,   // JSON boolean
  kString,    // JSON string
  kKeyCount,  // JSON integer n; the key codes follow as the integer members k0 to k(n-1)
  kIdFields,  // JSON string of appNum fields "%16d"
};

struct Member {
  const char* key = nullptr;
  Type type = Type::kInt;
  int default_answer = 0;  // what a reply carries when the host has no handler
};

// A reply that repeats a member of its request when the host has no handler.
inline constexpr int kAsRequested = INT32_MIN;
// What the update status is before a handler says otherwise.
inline constexpr int kUpdateStatusUnknown = -2;

class Members {
 public:
  static constexpr std::size_t kCapacity = 5;

  constexpr Members() = default;
  constexpr Members(std::initializer_list<Member> members) {
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
inline constexpr int kQueryReplyCode = 246;  // of either query

struct Message {
  Code code;
  int reply_code;  // kNoReplyCode in a reply that carries no code, and where there is no reply
  // To the browser: the request, the handler slot and the end of the plug-in function's name. To the
  // plug-in: the end of the browser function's name.
  std::string_view name;
  Direction direction;
  Delivery delivery;
  Members request;  // besides the code
  Members reply;    // besides the code
};

namespace catalogue_detail {

inline constexpr Member kAppid{key::kAppid};
inline constexpr Member kOrgid{key::kOrgid};
inline constexpr Member kTabid{key::kTabid};
inline constexpr Member kRet{key::kRet};

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

// In ascending order of the codes.
inline constexpr Message kMessages[] = {
    question(Code::GetOwnerApp, "GetOwnerApp", {kAppid}, {{key::kAppid, Type::kInt, kAsRequested}, kOrgid}),
    question(Code::GetCurrentApp, "GetCurrentApp", {}, {kAppid, kOrgid}),
    question(Code::GetChildApps, "GetChildApps", {kAppid, kOrgid},
             {{key::kAppNum}, {key::kAppidArray, Type::kIdFields}, {key::kOrgidArray, Type::kIdFields}}),
    question(Code::CreateApp, "CreateApp",
             {kAppid,
              kOrgid,
              {key::kUrl, Type::kString},
              {key::kChild, Type::kFlag},
              {key::kOpapp, Type::kFlag}},
             {kAppid, kOrgid}),
    command(Code::DestroyApp, "DestroyApp", {kAppid, kOrgid}),
    command(Code::ShowApp, "ShowApp", {kAppid, kOrgid}),
    command(Code::HideApp, "HideApp", {kAppid, kOrgid}),
    command(Code::ActivateInput, "ActivateInput", {kAppid, kOrgid, {key::kFocus, Type::kBoolean}}),
    command(Code::DeactivateInput, "DeactivateInput", {kAppid, kOrgid}),
    question(Code::GetVisible, "GetVisible", {kAppid, kOrgid}, {{key::kVisible, Type::kFlag}}),
    question(Code::GetActive, "GetActive", {kAppid, kOrgid}, {{key::kActive, Type::kFlag}}),
    question(Code::GetPrimaryReceiver, "GetPrimaryReceiver", {kAppid, kOrgid},
             {{key::kPrimary, Type::kFlag}}),
    question(Code::GetValue, "GetValue", {kAppid, kOrgid}, {{key::kValue}}),
    question(Code::GetOtherKeys, "GetOtherKeys", {kAppid, kOrgid}, {{key::kNum, Type::kKeyCount}}),
    question(Code::GetMaxiMumValue, "GetMaxiMumValue", {kAppid, kOrgid}, {{key::kMaxvalue}}),
    question(Code::GetMaxiMumOtherKeys, "GetMaxiMumOtherKeys", {kAppid, kOrgid},
             {{key::kNum, Type::kKeyCount}}),
    command(Code::SetSupportsPointer, "SetSupportsPointer", {kAppid, kOrgid, {key::kPointer, Type::kFlag}}),
    question(Code::GetSupportsPointer, "GetSupportsPointer", {kAppid, kOrgid},
             {{key::kPointer, Type::kFlag}}),
    command(Code::SetValue, "SetValue", {kAppid, kOrgid, {key::kValue}, {key::kKeynum, Type::kKeyCount}}),
    question(Code::GetKeyIcon, "GetKeyIcon", {kAppid, kOrgid, {key::kKeySetCode}},
             {{key::kPointer, Type::kString}}),
    question(Code::GetKeyLabel, "GetKeyLabel", {kAppid, kOrgid, {key::kKeySetCode}},
             {{key::kLabel, Type::kString}}),
    notification(Code::SendAppLoadError, "SendAppLoadError", {kAppid, kOrgid, {key::kError}}),
    notification(Code::SendAppLoaded, "SendAppLoaded", {kAppid, kOrgid}),
    notification(Code::SendAppUnloaded, "SendAppUnloaded", {kAppid, kOrgid}),
    notification(Code::SendTopMost, "SendTopMost", {kAppid, kOrgid, {key::kTopmost, Type::kBoolean}}),
    notification(Code::RequestDestroyApp, "RequestDestroyApp", {kAppid, kOrgid}),
    notification(Code::SendKey, "SendKey", {kAppid, kOrgid, {key::kKey}, {key::kKeytype}}),
    query(Code::IsParentalRatingBlocked, "IsParentalRatingBlocked", {kAppid, kOrgid},
          {{key::kBlocked, Type::kFlag}}),
    query(Code::IsObjectSupported, "IsObjectSupported", {{key::kMtype, Type::kString}},
          {{key::kSupported, Type::kFlag}}),
    question(Code::Get_VB_Resouce_Allowed, "Get_VB_Resouce_Allowed", {kTabid},
             {{key::kAllowed, Type::kFlag}}),
    command(Code::SetBRAppToBI, "SetBRAppToBI", {kTabid}),
    question(Code::Get_APP_TYPE, "Get_APP_TYPE", {kTabid}, {{key::kAppType}}),
    command(Code::SetBIAppToBR, "SetBIAppToBR", {kTabid}),
    question(Code::KeyConsumedByBrowser, "KeyConsumedByBrowser", {kTabid, {key::kKeyCode}},
             {{key::kConsumed, Type::kFlag}}),
    notification(Code::Get_Configuration, "Get_Configuration", {}),
    notification(Code::Handle_BroadcastService, "Handle_BroadcastService", {{key::kBValue, Type::kFlag}}),
    notification(Code::Set_BroadcastFullScreen, "Set_BroadcastFullScreen", {{key::kBValue, Type::kFlag}}),
    notification(Code::OpApp_StateChange, "OpApp_StateChange",
                 {kAppid,
                  kOrgid,
                  {key::kOld, Type::kString},
                  {key::kNew, Type::kString},
                  {key::kReason, Type::kString}}),
    notification(Code::OpApp_ContextChange, "OpApp_ContextChange",
                 {kAppid,
                  kOrgid,
                  {key::kSloc, Type::kString},
                  {key::kLloc, Type::kString},
                  {key::kReason, Type::kString}}),
    notification(Code::OpApp_Update, "OpApp_Update", {kAppid, kOrgid, {key::kEvent, Type::kString}}),
    opAppQuestion(Code::OpApp_Uninstall_Judge, "OpApp_Uninstall_Judge", {},
                  {{key::kFlag, Type::kBoolean, 1}}),
    opAppQuestion(Code::OpApp_GetStatus, "OpApp_GetStatus", {}, {{key::kStatus, Type::kString}, kRet}),
    opAppQuestion(Code::OpApp_SetStatus, "OpApp_SetStatus", {{key::kStatus, Type::kString}}, {kRet}),
    opAppQuestion(Code::OpApp_RequestTransient, "OpApp_RequestTransient", {}, {kRet}),
    opAppQuestion(Code::OpApp_RequestForeground, "OpApp_RequestForeground", {}, {kRet}),
    opAppQuestion(Code::OpApp_RequestBackground, "OpApp_RequestBackground", {}, {kRet}),
    opAppQuestion(Code::OpApp_GetUpdateStatus, "OpApp_GetUpdateStatus", {},
                  {{key::kStatus, Type::kInt, kUpdateStatusUnknown}, kRet}),
    opAppQuestion(Code::OpApp_RequestUpdate, "OpApp_RequestUpdate", {}, {kRet}),
};

}  // namespace catalogue_detail

using catalogue_detail::kMessages;

// The message with this code; null when there is none. Reply codes are not messages.
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
