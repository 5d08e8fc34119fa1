// Prints the layout of everything in the public headers that a host's object code has compiled in: one
// line per member with offset, size and type, one per enumerator and constant with its value.

#include <cxxabi.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <typeinfo>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "hbbtv_ryn/request_registry.h"

namespace {

template <typename Type>
void printType(const char* name) {
  std::printf("%s: size %zu, alignment %zu\n", name, sizeof(Type), alignof(Type));
}

template <typename Member>
void printMember(const char* name, std::size_t offset) {
  const std::unique_ptr<char, void (*)(void*)> type{
      abi::__cxa_demangle(typeid(Member).name(), nullptr, nullptr, nullptr), &std::free};
  std::printf("  %4zu %4zu  %s: %s\n", offset, sizeof(Member), name, type.get());
}

void printValue(const char* name, long long value) {
  std::printf("  %s = %lld\n", name, value);
}

#define MEMBER(type, name) printMember<decltype(type::name)>(#name, offsetof(type, name))
#define VALUE(name) printValue(#name, name)

void printChannel() {
  printType<IpcMessage>("IpcMessage");
  MEMBER(IpcMessage, length);
  MEMBER(IpcMessage, text);
  printType<IpcRecord>("IpcRecord");
  MEMBER(IpcRecord, mtype);
  MEMBER(IpcRecord, kind);
  MEMBER(IpcRecord, total_length);
  MEMBER(IpcRecord, sequence);
  MEMBER(IpcRecord, last);
  MEMBER(IpcRecord, marker);
  MEMBER(IpcRecord, reserved);
  MEMBER(IpcRecord, chunk_length);
  MEMBER(IpcRecord, data);
  std::puts("constants of ipc.h");
  VALUE(IPC_KIND_STOP);
  VALUE(IPC_KIND_ONEWAY);
  VALUE(IPC_KIND_REQUEST);
  VALUE(IPC_KIND_REPLY);
  VALUE(IPC_KIND_FAILURE);
  VALUE(IPC_MAX_MESSAGE);
  VALUE(IPC_RETRY_COUNT);
  VALUE(IPC_CHUNK_SIZE);
}

void printBrowser() {
  using Handlers = ZuntRynBrowserEventCallback;
  printType<ZuntKey>("ZuntKey");
  printType<ZuntKeyEventType>("ZuntKeyEventType");
  printType<Handlers>("ZuntRynBrowserEventCallback");
  MEMBER(Handlers, GetOwnerApp);
  MEMBER(Handlers, GetCurrentApp);
  MEMBER(Handlers, Reserved);
  MEMBER(Handlers, GetChildApps);
  MEMBER(Handlers, CreateApp);
  MEMBER(Handlers, DestroyApp);
  MEMBER(Handlers, ShowApp);
  MEMBER(Handlers, HideApp);
  MEMBER(Handlers, ActivateInput);
  MEMBER(Handlers, DeactivateInput);
  MEMBER(Handlers, GetVisible);
  MEMBER(Handlers, GetActive);
  MEMBER(Handlers, GetPrimaryReceiver);
  MEMBER(Handlers, GetValue);
  MEMBER(Handlers, GetOtherKeys);
  MEMBER(Handlers, GetMaxiMumValue);
  MEMBER(Handlers, GetMaxiMumOtherKeys);
  MEMBER(Handlers, SetSupportsPointer);
  MEMBER(Handlers, GetSupportsPointer);
  MEMBER(Handlers, GetKeyIcon);
  MEMBER(Handlers, GetKeyLabel);
  MEMBER(Handlers, SetValue);
  MEMBER(Handlers, Get_VB_Resouce_Allowed);
  MEMBER(Handlers, SetBRAppToBI);
  MEMBER(Handlers, Get_APP_TYPE);
  MEMBER(Handlers, SetBIAppToBR);
  MEMBER(Handlers, KeyConsumedByBrowser);
  MEMBER(Handlers, OpApp_Uninstall_Judge);
  MEMBER(Handlers, OpApp_GetStatus);
  MEMBER(Handlers, OpApp_SetStatus);
  MEMBER(Handlers, OpApp_RequestTransient);
  MEMBER(Handlers, OpApp_RequestForeground);
  MEMBER(Handlers, OpApp_RequestBackground);
  MEMBER(Handlers, OpApp_GetUpdateStatus);
  MEMBER(Handlers, OpApp_RequestUpdate);
  std::puts("constants of browser.h");
  VALUE(ZUNT_RYN_MAX_CHILD_APPS);
  VALUE(ZUNT_RYN_MAX_OTHER_KEYS);
}

void printPlugin() {
  printType<ZuntRynEventCallback>("ZuntRynEventCallback");
  MEMBER(ZuntRynEventCallback, onApp);
  MEMBER(ZuntRynEventCallback, onParentalRating);
  MEMBER(ZuntRynEventCallback, onObjectSupported);
  MEMBER(ZuntRynEventCallback, onNotify);
  MEMBER(ZuntRynEventCallback, onFlag);
  MEMBER(ZuntRynEventCallback, onOpAppChange);
  MEMBER(ZuntRynEventCallback, onOpAppUpdate);
  printType<ZuntRynEvent>("ZuntRynEvent");
  VALUE(ZUNT_RYN_EVENT_APP_LOAD_ERROR);
  VALUE(ZUNT_RYN_EVENT_APP_LOADED);
  VALUE(ZUNT_RYN_EVENT_APP_UNLOADED);
  VALUE(ZUNT_RYN_EVENT_APP_TOPMOST);
  VALUE(ZUNT_RYN_EVENT_APP_NOT_TOPMOST);
  VALUE(ZUNT_RYN_EVENT_APP_DESTROY_REQUEST);
  VALUE(ZUNT_RYN_EVENT_KEY_TYPE_1);
  VALUE(ZUNT_RYN_EVENT_KEY_TYPE_2);
  VALUE(ZUNT_RYN_EVENT_KEY_TYPE_3);
  VALUE(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY);
  VALUE(ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY);
  VALUE(ZUNT_RYN_EVENT_GET_CONFIGURATION);
  VALUE(ZUNT_RYN_EVENT_BROADCAST_SERVICE);
  VALUE(ZUNT_RYN_EVENT_BROADCAST_FULLSCREEN);
  VALUE(ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE);
  VALUE(ZUNT_RYN_EVENT_OPAPP_CONTEXT_CHANGE);
  VALUE(ZUNT_RYN_EVENT_OPAPP_UPDATE);
}

void printLog() {
  std::printf("g_modules_info: size %zu\n", sizeof g_modules_info);
  std::puts("constants of log.h");
  VALUE(LOG_LEVEL_ERROR);
  VALUE(LOG_LEVEL_INFO);
  VALUE(LOG_TYPE_ENTER);
  VALUE(LOG_TYPE_LEAVE);
  VALUE(LOG_TYPE_ERROR);
  VALUE(LOG_TYPE_INT);
  VALUE(LOG_TYPE_STRING);
  VALUE(LOG_TYPE_MAX);
}

}  // namespace

int main() {
  printChannel();
  printBrowser();
  printPlugin();
  printLog();
}
