// Any text as what a peer sends, as the answer to each synchronous message, and as the strings that each
// message is made of. The input: a byte that chooses a message of the tests' table, then the text.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "endpoints/any_function.h"
#include "endpoints/messages.h"
#include "fuzzing.h"
#include "hbbtv_ryn/plugin.h"
#include "ipc/protocol/catalogue.h"
#include "ipc/protocol/envelope.h"
#include "ipc/ryn_browser/state.h"
#include "ipc/ryn_plugin/state.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)

namespace {

// The answer that the replaced channel gives.
std::string g_answer;

void checkRequest(const IpcMessage* request) {
  fuzz::require(request->length == static_cast<int32_t>(std::strlen(request->text)),
                "the request's length");
  Json::Value members;
  fuzz::require(parse(request->text, &members), "the request is a JSON object");
  fuzz::require(integer(members, key::kCode) > 0, "the request has a code");
}

// In the place of handlers that note what they are given: those that use all that they are given, and
// report more than there is room for.
void addGreedyHandlers() {
  ZuntRynBrowserEventCallback handlers = g_browser_callbacks;
  handlers.GetChildApps = [](int appid, int orgid, int* appids, int* orgids, int* count) {
    std::fill_n(appids, ZUNT_RYN_MAX_CHILD_APPS, appid);
    std::fill_n(orgids, ZUNT_RYN_MAX_CHILD_APPS, orgid);
    *count = appid;
  };
  handlers.GetOtherKeys = [](int appid, int, int* keys, int* count) {
    std::fill_n(keys, ZUNT_RYN_MAX_OTHER_KEYS, appid);
    *count = appid;
  };
  handlers.GetKeyIcon = [](int appid, int, int code, std::string& icon) {
    icon.assign(static_cast<std::size_t>(appid & 0x7fff), static_cast<char>(code));
  };
  handlers.SetValue = [](int, int, int, const int* keys, int count) {
    fuzz::require(count <= ZUNT_RYN_MAX_OTHER_KEYS, "no more keys than there is room for");
    fuzz::use(keys, ZUNT_RYN_MAX_OTHER_KEYS * sizeof *keys);
  };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
}

// The room that the headers ask for, to the byte.
std::size_t roomFor(const test::Message& message) {
  if (message.text.find(":207") != std::string::npos) return ZUNT_RYN_MAX_CHILD_APPS;
  if (message.reply.find("\"k0\"") != std::string::npos) return ZUNT_RYN_MAX_OTHER_KEYS;
  return message.isSynchronous() ? 1 : 5;  // SetValue is called with five keys
}

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
  for (const test::Endpoint* endpoint : {&test::kBrowser, &test::kPlugin}) {
    for (const test::Message& message : endpoint->receives) message.receive();
  }
  addGreedyHandlers();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  for (const ServeCallback callback : {&Zunt_RYN_Browser_Server_Callback, &Zunt_RYN_Plugin_Server_Callback,
                                       &Zunt_RYN_Plugin_Query_Callback}) {
    fuzz::serveAndCheck(callback, data + 1, size - 1);
  }
  test::g_calls.take();

  const test::Message& message = test::messageAt(data[0]);
  g_answer.assign(data + 1, data + size);
  test::g_text = g_answer;
  test::g_room = roomFor(message);
  const std::string outcome = message.send();
  // Where the result is the host's own, it does not tell whether there was an answer.
  const bool told = outcome.rfind("0:", 0) == 0 || message.reply.find("\"ret\"") != std::string::npos;
  fuzz::require(told || outcome.back() == ':', "nothing is stored without an answer");
  return 0;
}
