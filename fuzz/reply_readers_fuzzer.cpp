// Any text as the answer to each synchronous request, and as the strings of each request. The input: a byte
// that chooses the function, then the text.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "fuzzing.h"
#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "ipc/protocol/catalogue.h"
#include "ipc/protocol/envelope.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)

namespace {

constexpr int kUntouched = -77;

// The answer that the replaced channel gives.
std::string g_answer;

void checkRequest(const IpcMessage* request) {
  fuzz::require(request->length == static_cast<int32_t>(std::strlen(request->text)),
                "the request's length");
  Json::Value members;
  fuzz::require(parse(request->text, &members), "the request is a JSON object");
  fuzz::require(integer(members, key::kCode) > 0, "the request has a code");
}

// What a function is called with: the text for strings, and for integers to store blocks of just the size
// that the headers ask for.
class Arguments {
 public:
  explicit Arguments(std::size_t room) : room_(room) {}

  template <typename Parameter>
  Parameter next() {
    if constexpr (std::is_same_v<Parameter, int*>) {
      stored_.emplace_back(new int[room_]);
      std::fill_n(stored_.back().get(), room_, kUntouched);
      return stored_.back().get();
    } else if constexpr (std::is_same_v<Parameter, bool*>) {
      return &flag_;
    } else if constexpr (std::is_same_v<Parameter, const char*>) {
      return g_answer.c_str();
    } else if constexpr (std::is_integral_v<Parameter>) {
      return Parameter{1};
    } else {
      return text_;
    }
  }

  bool areUntouched() const {
    for (const auto& numbers : stored_) {
      if (std::count(numbers.get(), numbers.get() + room_, kUntouched) != static_cast<int>(room_))
        return false;
    }
    return !flag_ && text_ == g_answer;
  }

 private:
  const std::size_t room_;
  std::vector<std::unique_ptr<int[]>> stored_;
  bool flag_ = false;
  std::string text_ = g_answer;
};

template <typename... Parameters>
int call(int (*function)(Parameters...), Arguments& arguments) {
  return function(arguments.next<Parameters>()...);
}

template <auto Function, std::size_t Room = 1>
void ask() {
  Arguments arguments(Room);
  fuzz::require(call(Function, arguments) == 0 || arguments.areUntouched(),
                "an out-parameter without an answer");
}

// The result is the browser's own, so it does not tell whether there was an answer.
template <auto Function>
void askOpApp() {
  Arguments arguments(1);
  call(Function, arguments);
}

constexpr void (*kAsks[])() = {
    &ask<&Zunt_RYN_Plugin_GetOwnerApp>,
    &ask<&Zunt_RYN_Plugin_GetCurrentApp>,
    &ask<&Zunt_RYN_Plugin_GetChildApps, ZUNT_RYN_MAX_CHILD_APPS>,
    &ask<&Zunt_RYN_Plugin_CreateApp>,
    &ask<&Zunt_RYN_Plugin_GetVisible>,
    &ask<&Zunt_RYN_Plugin_GetSupportsPointer>,
    &ask<&Zunt_RYN_Plugin_GetValue>,
    &ask<&Zunt_RYN_Plugin_GetMaxiMumValue>,
    &ask<&Zunt_RYN_Plugin_GetOtherKeys, ZUNT_RYN_MAX_OTHER_KEYS>,
    &ask<&Zunt_RYN_Plugin_GetMaxiMumOtherKeys, ZUNT_RYN_MAX_OTHER_KEYS>,
    &ask<&Zunt_RYN_Plugin_GetKeyIcon>,
    &ask<&Zunt_RYN_Plugin_GetKeyLabel>,
    &ask<&Zunt_RYN_Plugin_Get_VB_Resouce_Allowed>,
    &ask<&Zunt_RYN_Plugin_Get_APP_TYPE>,
    &ask<&Zunt_RYN_Plugin_KeyConsumedByBrowser>,
    &askOpApp<&Zunt_RYN_Plugin_OpApp_Uninstall_Judge>,
    &askOpApp<&Zunt_RYN_Plugin_OpApp_GetStatus>,
    &askOpApp<&Zunt_RYN_Plugin_OpApp_SetStatus>,
    &askOpApp<&Zunt_RYN_Plugin_OpApp_RequestTransient>,
    &askOpApp<&Zunt_RYN_Plugin_OpApp_GetUpdateStatus>,
    &ask<&Zunt_RYN_Browser_IsParentalRatingBlocked>,
    &ask<&Zunt_RYN_Browser_IsObjectSupported>,
    &ask<&Zunt_RYN_Browser_OpApp_StateChange>,
    &ask<&Zunt_RYN_Browser_OpApp_ContextChange>,
};

}  // namespace

// What the linker puts in the place of the channel's functions.
extern "C" int __wrap__Z37zunt_ipc_client_send_sync_with_paramsP9IpcClientPK10IpcMessagePS1_(
    IpcClient* /*client*/, const IpcMessage* request, IpcMessage* reply) {
  checkRequest(request);
  auto* const text = static_cast<char*>(std::malloc(g_answer.size() + 1));
  fuzz::require(text != nullptr, "memory");
  std::memcpy(text, g_answer.c_str(), g_answer.size() + 1);
  *reply = {static_cast<int32_t>(g_answer.size()), text};
  return 0;
}

extern "C" int __wrap__Z20zunt_ipc_client_sendP9IpcClientPK10IpcMessage(IpcClient* /*client*/,
                                                                        const IpcMessage* message) {
  checkRequest(message);
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::silenceLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  g_answer.assign(data + 1, data + size);
  kAsks[data[0] % std::size(kAsks)]();
  return 0;
}
