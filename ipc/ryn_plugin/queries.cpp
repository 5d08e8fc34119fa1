// Answers the two questions of the browser process with the host's event callbacks.

#include <string>

#include "ipc/endpoint/exchange.h"
#include "ipc/protocol/envelope.h"
#include "ipc/ryn_plugin/state.h"

namespace hbbtv_ryn {
namespace {

using Json::Value;

// The answer when no callback says otherwise.
constexpr bool kNo = false;

void answerParentalRating(const Incoming& in, Value* reply) {
  const int appid = in.appid();
  const int orgid = in.orgid();
  bool blocked = kNo;
  ZuntRynEventCallback callback;
  if (findEventCallback(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, &callback)) {
    callback.onParentalRating(appid, orgid, &blocked);
  }
  set(reply, key::kBlocked, flag(blocked));
}

void answerObjectSupported(const Incoming& in, Value* reply) {
  const std::string mtype = in.string(key::kMtype);
  bool supported = kNo;
  ZuntRynEventCallback callback;
  if (findEventCallback(ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY, &callback)) {
    callback.onObjectSupported(mtype, &supported);
  }
  set(reply, key::kSupported, flag(supported));
}

constexpr Route kRoutes[] = {
    {Code::IsParentalRatingBlocked, &answerParentalRating},
    {Code::IsObjectSupported, &answerObjectSupported},
};

}  // namespace

IpcMessage* Zunt_RYN_Plugin_Query_Callback(const IpcMessage* request, int32_t kind, void* user_data) {
  return serve(request, kind, user_data, kRoutes);
}

}  // namespace hbbtv_ryn
