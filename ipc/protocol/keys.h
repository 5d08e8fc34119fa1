/// @file
/// The JSON keys of the wire.
#ifndef HBBTV_RYN_IPC_PROTOCOL_KEYS_H
#define HBBTV_RYN_IPC_PROTOCOL_KEYS_H

namespace hbbtv_ryn::key {

inline constexpr char kCode[] = "t";
inline constexpr char kActive[] = "active";
inline constexpr char kAllowed[] = "allowed";
inline constexpr char kAppid[] = "appid";
inline constexpr char kAppidArray[] = "appidArray";
inline constexpr char kAppNum[] = "appNum";
inline constexpr char kAppType[] = "appType";
inline constexpr char kBlocked[] = "blocked";
inline constexpr char kBValue[] = "bValue";
inline constexpr char kChild[] = "child";
inline constexpr char kConsumed[] = "consumed";
inline constexpr char kError[] = "error";
inline constexpr char kEvent[] = "event";
inline constexpr char kFlag[] = "flag";
inline constexpr char kFocus[] = "focus";
inline constexpr char kKey[] = "key";
inline constexpr char kKeyCode[] = "keyCode";  // of a key press
inline constexpr char kKeySetCode[] = "code";  // of a key whose icon or label is asked
inline constexpr char kKeynum[] = "keynum";
inline constexpr char kKeytype[] = "keytype";
inline constexpr char kLabel[] = "label";
inline constexpr char kLloc[] = "lloc";
inline constexpr char kMaxvalue[] = "maxvalue";
inline constexpr char kMtype[] = "mtype";
inline constexpr char kNew[] = "new";
inline constexpr char kNum[] = "num";
inline constexpr char kOld[] = "old";
inline constexpr char kOpapp[] = "opapp";
inline constexpr char kOrgid[] = "orgid";
inline constexpr char kOrgidArray[] = "orgidArray";
inline constexpr char kPointer[] = "pointer";  // pointer support, and a key's icon
inline constexpr char kPrimary[] = "primary";
inline constexpr char kReason[] = "reason";
inline constexpr char kRet[] = "ret";
inline constexpr char kSloc[] = "sloc";
inline constexpr char kStatus[] = "status";
inline constexpr char kSupported[] = "supported";
inline constexpr char kTabid[] = "tabid";
inline constexpr char kTopmost[] = "topmost";
inline constexpr char kUrl[] = "url";
inline constexpr char kValue[] = "value";
inline constexpr char kVisible[] = "visible";

}  // namespace hbbtv_ryn::key

#endif  // HBBTV_RYN_IPC_PROTOCOL_KEYS_H
