// Any text as the answer to each synchronous request, and as the strings of each request. The input: a byte
// that chooses the function, then the text.
#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>

#include "fuzzing.h"
#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "ipc/protocol/envelope.h"
#include "ipc/protocol/keys.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)

namespace {

constexpr int kUntouched = -77;

// The answer that the replaced channel gives.
const uint8_t* g_answer = nullptr;
std::size_t g_answer_size = 0;

void checkRequest(const IpcMessage* request) {
  fuzz::require(request->length == static_cast<int32_t>(std::strlen(request->text)),
                "the request's length");
  Json::Value members;
  fuzz::require(parse(request->text, &members), "the request is a JSON object");
  fuzz::require(integer(members, key::kCode) > 0, "the request has a code");
}

// Blocks of just the size that the headers ask for.
struct Arrays {
  explicit Arrays(std::size_t size) : appids(new int[size]()), orgids(new int[size]()) {}
  std::unique_ptr<int[]> appids;
  std::unique_ptr<int[]> orgids;
};

// Calls a function that stores one value; without an answer it must not.
template <typename Call>
void storesOnSuccess(Call call) {
  int value = kUntouched;
  fuzz::require(call(&value) == 0 || value == kUntouched, "an out-parameter without an answer");
}

template <auto Function>
void askAppFlag(const std::string&) {
  bool flag = false;
  Function(1, 2, &flag);
}
template <auto Function>
void askAppNumber(const std::string&) {
  storesOnSuccess([](int* value) { return Function(1, 2, value); });
}
template <auto Function>
void askKeys(const std::string&) {
  const Arrays keys(ZUNT_RYN_MAX_OTHER_KEYS);
  storesOnSuccess([&](int* count) { return Function(1, 2, keys.appids.get(), count); });
}
template <auto Function>
void askKeyString(const std::string& text) {
  std::string answer = text;
  fuzz::require(Function(1, 2, 3, answer) == 0 || answer == text, "an out-parameter without an answer");
}
template <auto Function>
void askTabFlag(const std::string&) {
  bool flag = false;
  Function(1, &flag);
}
template <auto Function>
void askResult(const std::string&) {
  Function();
}

using Ask = void (*)(const std::string& text);
constexpr Ask kAsks[] = {
    [](const std::string&) {
      int appid = 1;
      storesOnSuccess([&](int* orgid) { return Zunt_RYN_Plugin_GetOwnerApp(&appid, orgid); });
    },
    [](const std::string&) {
      int appid = 1;
      storesOnSuccess([&](int* orgid) { return Zunt_RYN_Plugin_GetCurrentApp(&appid, orgid); });
    },
    [](const std::string&) {
      const Arrays ids(ZUNT_RYN_MAX_CHILD_APPS);
      storesOnSuccess([&](int* count) {
        return Zunt_RYN_Plugin_GetChildApps(1, 2, ids.appids.get(), ids.orgids.get(), count);
      });
    },
    [](const std::string& text) {
      int appid = 0;
      storesOnSuccess([&](int* orgid) {
        return Zunt_RYN_Plugin_CreateApp(1, 2, text.c_str(), true, false, &appid, orgid);
      });
    },
    &askAppFlag<&Zunt_RYN_Plugin_GetVisible>,
    &askAppFlag<&Zunt_RYN_Plugin_GetSupportsPointer>,
    &askAppNumber<&Zunt_RYN_Plugin_GetValue>,
    &askAppNumber<&Zunt_RYN_Plugin_GetMaxiMumValue>,
    &askKeys<&Zunt_RYN_Plugin_GetOtherKeys>,
    &askKeys<&Zunt_RYN_Plugin_GetMaxiMumOtherKeys>,
    &askKeyString<&Zunt_RYN_Plugin_GetKeyIcon>,
    &askKeyString<&Zunt_RYN_Plugin_GetKeyLabel>,
    &askTabFlag<&Zunt_RYN_Plugin_Get_VB_Resouce_Allowed>,
    [](const std::string&) {
      storesOnSuccess([](int* type) { return Zunt_RYN_Plugin_Get_APP_TYPE(1, type); });
    },
    [](const std::string&) {
      bool consumed = false;
      Zunt_RYN_Plugin_KeyConsumedByBrowser(1, 2, &consumed);
    },
    [](const std::string&) {
      bool flag = false;
      Zunt_RYN_Plugin_OpApp_Uninstall_Judge(&flag);
    },
    [](const std::string&) {
      std::string status;
      Zunt_RYN_Plugin_OpApp_GetStatus(status);
    },
    [](const std::string& text) { Zunt_RYN_Plugin_OpApp_SetStatus(text); },
    &askResult<&Zunt_RYN_Plugin_OpApp_RequestTransient>,
    [](const std::string&) {
      int status = 0;
      Zunt_RYN_Plugin_OpApp_GetUpdateStatus(&status);
    },
    &askAppFlag<&Zunt_RYN_Browser_IsParentalRatingBlocked>,
    [](const std::string& text) {
      bool supported = false;
      Zunt_RYN_Browser_IsObjectSupported(text, &supported);
    },
    [](const std::string& text) { Zunt_RYN_Browser_OpApp_StateChange(1, 2, text, text, text); },
    [](const std::string& text) { Zunt_RYN_Browser_OpApp_ContextChange(1, 2, text, text, text); },
};

}  // namespace

// What the linker puts in the place of the channel's functions.
extern "C" int __wrap__Z37zunt_ipc_client_send_sync_with_paramsP9IpcClientPK10IpcMessagePS1_(
    IpcClient* /*client*/, const IpcMessage* request, IpcMessage* reply) {
  checkRequest(request);
  auto* const text = static_cast<char*>(std::malloc(g_answer_size + 1));
  fuzz::require(text != nullptr, "memory");
  if (g_answer_size > 0) std::memcpy(text, g_answer, g_answer_size);
  text[g_answer_size] = '\0';
  *reply = {static_cast<int32_t>(g_answer_size), text};
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
  g_answer = data + 1;
  g_answer_size = size - 1;
  kAsks[data[0] % std::size(kAsks)](std::string(g_answer, g_answer + g_answer_size));
  return 0;
}
