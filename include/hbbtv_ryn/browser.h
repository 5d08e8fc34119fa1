/// @file
/// The browser process's side of the bridge: it answers the plug-in process's requests through a record
/// of handlers, and sends the plug-in process notifications and queries.
///
/// A host calls Zunt_RYN_Browser_Initialize() once and Zunt_RYN_Browser_Finalize() before it exits.
/// Handlers may be registered before or after. See demo/browser_host.cpp for a whole host.
///
/// No function lets an exception out.
#ifndef HBBTV_RYN_BROWSER_H
#define HBBTV_RYN_BROWSER_H

#include <string>

#include "hbbtv_ryn/export.h"

/// A key; the numbering is the hosts'. Any int is a valid value.
enum ZuntKey : int {};

/// The type of a key event; the numbering is the hosts', but only 1, 2 and 3 raise an event in the
/// plug-in process. Any int is a valid value.
enum ZuntKeyEventType : int {};

/// How many entries each array given to the handler `GetChildApps` has. A larger count is cut to this. A
/// reply of more than about 509 children exceeds the longest message, and the request fails.
inline constexpr int ZUNT_RYN_MAX_CHILD_APPS = 512;

/// How many entries the key arrays of `GetOtherKeys`, `GetMaxiMumOtherKeys` and `SetValue` have.
inline constexpr int ZUNT_RYN_MAX_OTHER_KEYS = 20;

/// The browser host's handlers, one slot per request of the plug-in process. Write
/// `ZuntRynBrowserEventCallback handlers{};` and set what you serve: a request whose slot is null is
/// answered with the values that its out-parameters would hold on entry.
///
/// Handlers run on the library's receive thread, one at a time, in the order of the requests. While one
/// runs, every later request waits. An exception that leaves a handler makes that one request fail; the
/// thread goes on. Every pointer and reference handed to a handler is valid only during the call.
///
/// A handler must not call Zunt_RYN_Browser_Initialize(), Zunt_RYN_Browser_Finalize() or the two functions
/// that register. It may notify and ask, but whether the two processes then get any further depends on what
/// the plug-in host does. Three cycles hang both of them for good:
///   - a request; its handler asks a query; the query's callback makes a request, which waits for the
///   first;
///   - the same with a callback that registers or unregisters, which waits for the first request too;
///   - a query; its callback makes a request; the request's handler notifies or asks, which waits for the
///     query.
/// Handlers that hand what they have to send to another thread, and do not wait for it, close none of these
/// cycles; those of demo/browser_host.cpp do so.
///
/// `appid` and `orgid` identify an application, `tabid` the browser tab that holds one. For
/// out-parameters, "Entry" gives the value on entry, which is the default answer.
///
/// The order of the slots is part of the binary interface.
struct ZuntRynBrowserEventCallback {
  /// Which application owns appid? In: the asking application's id. Entry: appid as asked, orgid 0. The
  /// third argument is always null.
  void (*GetOwnerApp)(int* appid, int* orgid, void* unused);
  /// Which application is current? Entry: 0, 0. The third argument is always null.
  void (*GetCurrentApp)(int* appid, int* orgid, void* unused);
  /// Never called.
  void (*Reserved)();
  /// Which children has the application? Arrays of ZUNT_RYN_MAX_CHILD_APPS entries. Entry: count 0.
  void (*GetChildApps)(int appid, int orgid, int* appids, int* orgids, int* count);
  /// Create an application from a URL, on behalf of (appid, orgid), as its child, as an operator
  /// application. Entry: 0, 0.
  void (*CreateApp)(int appid, int orgid, const char* url, bool child, bool opapp, int* new_appid,
                    int* new_orgid);
  void (*DestroyApp)(int appid, int orgid);
  void (*ShowApp)(int appid, int orgid);
  void (*HideApp)(int appid, int orgid);
  /// Give the application input, with or without focus.
  void (*ActivateInput)(int appid, int orgid, bool focus);
  void (*DeactivateInput)(int appid, int orgid);
  void (*GetVisible)(int appid, int orgid, bool* visible);          ///< Entry: false.
  void (*GetActive)(int appid, int orgid, bool* active);            ///< Entry: false.
  void (*GetPrimaryReceiver)(int appid, int orgid, bool* primary);  ///< Entry: false.
  void (*GetValue)(int appid, int orgid, int* value);               ///< The key set's value. Entry: 0.
  /// The key set's other keys. An array of ZUNT_RYN_MAX_OTHER_KEYS entries. Entry: all 0, count 0. A count
  /// above ZUNT_RYN_MAX_OTHER_KEYS is cut.
  void (*GetOtherKeys)(int appid, int orgid, int* keys, int* count);
  void (*GetMaxiMumValue)(int appid, int orgid, int* value);                 ///< Entry: 0.
  void (*GetMaxiMumOtherKeys)(int appid, int orgid, int* keys, int* count);  ///< As GetOtherKeys.
  void (*SetSupportsPointer)(int appid, int orgid, bool pointer);
  void (*GetSupportsPointer)(int appid, int orgid, bool* pointer);              ///< Entry: false.
  void (*GetKeyIcon)(int appid, int orgid, int key_code, std::string& icon);    ///< Entry: empty.
  void (*GetKeyLabel)(int appid, int orgid, int key_code, std::string& label);  ///< Entry: empty.
  /// Set the key set: an array of ZUNT_RYN_MAX_OTHER_KEYS entries, 0 past the count; count is at most
  /// ZUNT_RYN_MAX_OTHER_KEYS, and may be negative when the plug-in host sent it so.
  void (*SetValue)(int appid, int orgid, int value, const int* keys, int count);
  void (*Get_VB_Resouce_Allowed)(int tabid, bool* allowed);  ///< Entry: false.
  void (*SetBRAppToBI)(int tabid);
  void (*Get_APP_TYPE)(int tabid, int* app_type);  ///< Entry: 0.
  void (*SetBIAppToBR)(int tabid);
  void (*KeyConsumedByBrowser)(int tabid, int key_code, bool* consumed);  ///< Entry: false.
  void (*OpApp_Uninstall_Judge)(bool* flag);                              ///< Entry: true.
  /// This and the following return the operation's result, which the plug-in host receives unchanged;
  /// with a null slot it receives 0.
  int (*OpApp_GetStatus)(std::string& status);  ///< Entry: empty.
  int (*OpApp_SetStatus)(std::string status);
  int (*OpApp_RequestTransient)();
  int (*OpApp_RequestForeground)();
  int (*OpApp_RequestBackground)();
  int (*OpApp_GetUpdateStatus)(int* status);  ///< Entry: -2.
  int (*OpApp_RequestUpdate)();
};

/// Starts the browser side: the server of the plug-in process's requests and the two clients.
///
/// @return 0, also when already started; -1 when something could not be created. Then nothing is left
///   behind, and a later call starts afresh.
///
/// Call from one thread, not from a handler. Requests are served from the server's creation on, so handlers
/// may run before this returns; what they send until then may be refused with -3. Does not block, except
/// that on failure it waits for a running handler.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_Initialize();

/// Stops the browser side. Registered handlers stay registered.
///
/// @return 0, also when not started.
///
/// Call from one thread, not from a handler and not while another thread of the host sends. Blocks until a
/// running handler has returned.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_Finalize();

/// Registers the host's handlers. All slots are replaced, null ones too.
///
/// @param callbacks  copied; may be discarded after the call.
/// @param user_data  accepted and ignored.
/// @return 0.
///
/// Any thread may call, but not from a handler. Waits for a running handler.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_RegisterCallback(ZuntRynBrowserEventCallback callbacks,
                                                       const void* user_data);

/// Clears every slot. Once this has returned no handler of the record is called again.
///
/// @return 0.
///
/// Any thread may call, but not from a handler. Waits for a running handler.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_UnregisterCallback();

/// @name Notifications
/// One-way messages to the plug-in process: an event of the application (`appid`, `orgid`), of the
/// broadcast service or of the operator application. Each returns
///    0  the message was handed to the queue (whether it is read is not known);
///   -1  the message exceeds 16384 bytes as JSON text, or the send failed;
///   -3  the browser side is not started, or no plug-in process has ever run;
///   -4  out of memory.
/// Any thread may call; for a handler see ZuntRynBrowserEventCallback. Messages leave one at a time. A
/// call waits for the call before it, a query included, and up to 300 ms per record of 1025 bytes while the
/// plug-in's queue is full.
/// Strings are UTF-8 and travel unchanged; bytes that are not valid UTF-8 arrive as U+FFFD or as another
/// character.
/// @{

/// The application could not be loaded: ZUNT_RYN_EVENT_APP_LOAD_ERROR.
/// @param error  a load-error code; it travels, but is not passed to the plug-in host.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_SendAppLoadError(int appid, int orgid, int error);
/// The application is loaded: ZUNT_RYN_EVENT_APP_LOADED.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_SendAppLoaded(int appid, int orgid);
/// The application is unloaded: ZUNT_RYN_EVENT_APP_UNLOADED.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_SendAppUnloaded(int appid, int orgid);
/// ZUNT_RYN_EVENT_APP_TOPMOST or ZUNT_RYN_EVENT_APP_NOT_TOPMOST.
/// @param topmost  whether the application has become the top-most one or has stopped being so.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_SendTopMost(int appid, int orgid, bool topmost);
/// The application wants to be destroyed: ZUNT_RYN_EVENT_APP_DESTROY_REQUEST.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_RequestDestroyApp(int appid, int orgid);
/// A key event: ZUNT_RYN_EVENT_KEY_TYPE_1 to ZUNT_RYN_EVENT_KEY_TYPE_3.
/// @param key   travels, but is not passed to the plug-in host.
/// @param type  1, 2 and 3 raise an event in the plug-in process, other values none.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_SendKey(int appid, int orgid, ZuntKey key, ZuntKeyEventType type);
/// ZUNT_RYN_EVENT_GET_CONFIGURATION.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_Get_Configuration();
/// ZUNT_RYN_EVENT_BROADCAST_SERVICE with the value.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_Handle_BroadcastService(bool value);
/// ZUNT_RYN_EVENT_BROADCAST_FULLSCREEN with the value.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_Set_BroadcastFullScreen(bool value);
/// The operator application changes its state: ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_OpApp_StateChange(int appid, int orgid, std::string oldState,
                                                        std::string newState, std::string reason);
/// The operator application's locations change: ZUNT_RYN_EVENT_OPAPP_CONTEXT_CHANGE.
/// @param sloc  startup location.
/// @param lloc  launch location.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_OpApp_ContextChange(int appid, int orgid, std::string sloc,
                                                          std::string lloc, std::string reason);
/// An event of the operator application's update: ZUNT_RYN_EVENT_OPAPP_UPDATE.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_OpApp_Update(int appid, int orgid, std::string event);
/// @}

/// @name Queries
/// Synchronous questions to the plug-in process. Each returns
///    0  the answer was received and stored;
///   -1  as for notifications, or no usable answer came, or the plug-in process is gone;
///   -3  as for notifications, or the out-parameter is null (nothing is sent then);
///   -4  out of memory.
/// Any thread may call, but a handler only at the risk that ZuntRynBrowserEventCallback describes. A query
/// blocks until the plug-in host has answered, however long it takes, and every notification and query
/// waits behind it; when the plug-in process is gone it returns within a second.
/// @{

/// Is the application's content blocked by parental rating?
/// @param[out] blocked  set only when 0 is returned.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_IsParentalRatingBlocked(int appid, int orgid, bool* blocked);

/// Is an object of this type supported?
/// @param mtype           the object type, passed unchanged; may be empty.
/// @param[out] supported  set only when 0 is returned.
HBBTV_RYN_EXPORT int Zunt_RYN_Browser_IsObjectSupported(const std::string& mtype, bool* supported);
/// @}

#endif  // HBBTV_RYN_BROWSER_H
