// Any text as a notification and as a query of the browser process.
#include "fuzzing.h"
#include "ipc/ryn_plugin/state.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)

namespace {

template <typename Member, typename Function>
void add(int event, Member member, Function function) {
  ZuntRynEventCallback callback;
  callback.*member = function;
  Zunt_RYN_Plugin_RegisterRynEventCallback(static_cast<ZuntRynEvent>(event), callback);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::silenceLibrary();
  using Callback = ZuntRynEventCallback;
  for (int event = ZUNT_RYN_EVENT_APP_LOAD_ERROR; event <= ZUNT_RYN_EVENT_KEY_TYPE_3; ++event) {
    add(event, &Callback::onApp, [](int, int, void* user_data) {
      fuzz::require(user_data == nullptr, "onApp is given no user data");
    });
  }
  add(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, &Callback::onParentalRating,
      [](int appid, int, bool* blocked) { *blocked = appid > 0; });
  add(ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY, &Callback::onObjectSupported,
      [](const std::string& mtype, bool* supported) {
        fuzz::use(mtype);
        *supported = true;
      });
  for (const int event : {ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE, ZUNT_RYN_EVENT_OPAPP_CONTEXT_CHANGE}) {
    add(event, &Callback::onOpAppChange, [](int, int, std::string a, std::string b, std::string reason) {
      for (const auto* text : {&a, &b, &reason}) fuzz::use(*text);
    });
  }
  add(ZUNT_RYN_EVENT_OPAPP_UPDATE, &Callback::onOpAppUpdate,
      [](int, int, std::string event) { fuzz::use(event); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::serveAndCheck(&Zunt_RYN_Plugin_Server_Callback, data, size);
  fuzz::serveAndCheck(&Zunt_RYN_Plugin_Query_Callback, data, size);
  return 0;
}
