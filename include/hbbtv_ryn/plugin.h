/// @file
/// The plug-in process's side of the bridge: it asks and commands the browser process, and is told of the
/// browser's events and answers its queries through callbacks.
///
/// A host calls Zunt_RYN_Plugin_Initialize() once and Zunt_RYN_Plugin_Finalize() before it exits.
/// Callbacks may be registered before or after. See demo/plugin_host.cpp for a whole host.
///
/// No function lets an exception out.
#ifndef HBBTV_RYN_PLUGIN_H
#define HBBTV_RYN_PLUGIN_H

#include <string>

#include "hbbtv_ryn/export.h"

/// What the browser process reports or asks. The member of ZuntRynEventCallback that is called for it is
/// noted with each value. Other values may be registered and are never raised.
enum ZuntRynEvent : int {
  ZUNT_RYN_EVENT_APP_LOAD_ERROR = 1,           ///< onApp
  ZUNT_RYN_EVENT_APP_LOADED = 2,               ///< onApp
  ZUNT_RYN_EVENT_APP_UNLOADED = 3,             ///< onApp
  ZUNT_RYN_EVENT_APP_TOPMOST = 4,              ///< onApp
  ZUNT_RYN_EVENT_APP_NOT_TOPMOST = 5,          ///< onApp
  ZUNT_RYN_EVENT_APP_DESTROY_REQUEST = 6,      ///< onApp
  ZUNT_RYN_EVENT_KEY_TYPE_1 = 7,               ///< onApp
  ZUNT_RYN_EVENT_KEY_TYPE_2 = 8,               ///< onApp
  ZUNT_RYN_EVENT_KEY_TYPE_3 = 9,               ///< onApp
  ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY = 10,   ///< onParentalRating
  ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY = 19,  ///< onObjectSupported
  ZUNT_RYN_EVENT_GET_CONFIGURATION = 20,       ///< onNotify
  ZUNT_RYN_EVENT_BROADCAST_SERVICE = 21,       ///< onFlag
  ZUNT_RYN_EVENT_BROADCAST_FULLSCREEN = 22,    ///< onFlag
  ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE = 23,      ///< onOpAppChange: old state, new state, reason
  ZUNT_RYN_EVENT_OPAPP_CONTEXT_CHANGE = 24,    ///< onOpAppChange: startup and launch location, reason
  ZUNT_RYN_EVENT_OPAPP_UPDATE = 25,            ///< onOpAppUpdate
};

/// One function, held under the member that fits its event.
///
/// Notification callbacks (all but the two queries) run on one receive thread of the library, in the
/// order in which the browser sent; query callbacks run on another, and the browser waits for them. An
/// exception that leaves a callback costs that one message: the event is dropped, the query fails.
///
/// A callback must not call Zunt_RYN_Plugin_Finalize(). A notification callback may make requests, register
/// and unregister. So may a query callback, but the browser process waits for it, and whether the two
/// processes then get any further depends on what the browser host does. Three cycles hang both for good:
///   - a request; the browser's handler asks a query; the query's callback makes a request, which waits for
///     the first;
///   - the same with a callback that registers or unregisters, which waits for the first request too;
///   - a query; its callback makes a request; the browser's handler notifies or asks, which waits for the
///     query.
/// Query callbacks that answer from what they know, and leave requests and registrations to another thread
/// without waiting for it, close none of these cycles.
union ZuntRynEventCallback {
  /// `user_data` is always null.
  void (*onApp)(int appid, int orgid, void* user_data);
  /// Store the answer: blocked by parental rating? It is false on entry.
  void (*onParentalRating)(int appid, int orgid, bool* blocked);
  /// Store the answer: is this object type supported? It is false on entry.
  void (*onObjectSupported)(const std::string& mtype, bool* supported);
  void (*onNotify)();
  void (*onFlag)(bool value);
  void (*onOpAppChange)(int appid, int orgid, std::string a, std::string b, std::string reason);
  void (*onOpAppUpdate)(int appid, int orgid, std::string event);
};

/// Starts the plug-in side: the client for requests and the servers of notifications and queries.
///
/// @return 0, also when already started; -3 when a queue can be neither created nor opened; -4 out of
///   memory; -5 when a receive thread cannot be started. On failure nothing is left behind.
///
/// Call from one thread. Waits for a request in progress. Called from a callback while another thread stops
/// the endpoint, it returns 0 and starts nothing.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_Initialize();

/// Stops the plug-in side. Registered callbacks stay registered.
///
/// @return 0, also when not started.
///
/// Call from one thread, not from a callback. Waits for a request in progress and until running callbacks
/// have returned. Requests that are made meanwhile fail with -3.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_Finalize();

/// Registers the callback of an event, if the event has none yet. To replace a callback, unregister the
/// event first.
///
/// @param event     the event; an unknown value is accepted and never raised.
/// @param callback  copied; the member that fits the event must be set. Null takes the event's place like
///                  any other, and is never called.
/// @return 0; -4 out of memory.
///
/// Any thread may call; for a query callback see ZuntRynEventCallback. Waits for a request in progress.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_RegisterRynEventCallback(ZuntRynEvent event,
                                                              ZuntRynEventCallback callback);

/// Removes the callback of an event, if it has one. A call in progress finishes.
///
/// @return 0.
///
/// Any thread may call; for a query callback see ZuntRynEventCallback. Waits for a request in progress.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_UnRegisterRynEventCallback(ZuntRynEvent event);

/// @name Requests
/// Commands return as soon as the message is on the browser's queue; questions wait for its answer. Each
/// returns
///    0  done; for a question, the answer was stored;
///   -1  the request exceeds 16384 bytes as JSON text or the send failed; for a question also: no usable
///       answer came, or the browser process is gone;
///   -3  the plug-in side is not started, or no browser process has ever run, or an argument is refused as
///       noted below (nothing is sent then);
///   -4  out of memory.
/// Out-parameters are set only when 0 is returned, and must not be null unless noted otherwise.
/// Any thread may call, including from callbacks of this library, but for a query callback see
/// ZuntRynEventCallback. An exit handler may call, too. One request is served at a time, and a call waits
/// for the calls before it. A command blocks up to 300 ms per record of 1025 bytes while the browser's
/// queue is full. A question blocks until the browser host has answered, however long it takes; when the
/// browser process is gone it returns within a second. `appid` and `orgid` identify an application, `tabid`
/// the browser tab that holds one. Strings are UTF-8 and travel unchanged; bytes that are not valid UTF-8
/// arrive as U+FFFD or as another character.
/// @{

/// Which application owns this one?
/// @param[in,out] appid  in: the asking application; out: the owner. Null is refused with -3.
/// @param[out] orgid     null is refused with -3.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetOwnerApp(int* appid, int* orgid);
/// Which application is current? A null argument is refused with -3.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetCurrentApp(int* appid, int* orgid);
/// Which children has the application? The identity (-1, -1) is refused with -3.
/// @param[out] appidArray,orgidArray  room for as many entries as the browser lists: at most
///                     512 (ZUNT_RYN_MAX_CHILD_APPS of browser.h), and no more are stored. An entry
///                     that the answer does not hold whole is left as it was.
/// @param[out] appNum  the number of children that the browser gave.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetChildApps(int appid, int orgid, int* appidArray, int* orgidArray,
                                                  int* appNum);
/// Creates an application on behalf of (appid, orgid).
/// @param url    null is refused with -3.
/// @param child  as its child.
/// @param opapp  as an operator application.
/// @param[out] newAppid,newOrgid  the created application. Null is refused with -3.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_CreateApp(int appid, int orgid, const char* url, bool child,
                                               bool opapp, int* newAppid, int* newOrgid);
/// Shows the application.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_ShowApp(int appid, int orgid);
/// Hides the application.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_HideApp(int appid, int orgid);
/// Destroys the application.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_DestroyApp(int appid, int orgid);
/// Gives the application input.
/// @param focus  whether the application gains the input focus.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_ActivateInput(int appid, int orgid, bool focus);
/// Takes input from the application.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_DeactivateInput(int appid, int orgid);

/// Is the application visible?
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetVisible(int appid, int orgid, bool* visible);
/// Is the application active?
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetActive(int appid, int orgid, bool* active);
/// Is the application the primary receiver of key input?
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetPrimaryReceiver(int appid, int orgid, bool* primary);
/// Which keys has the application's key set?
/// @param[out] value  the key set's bit mask.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetValue(int appid, int orgid, int* value);
/// Which keys may the application's key set have at most? As Zunt_RYN_Plugin_GetValue().
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetMaxiMumValue(int appid, int orgid, int* maxvalue);
/// Which keys outside the bit mask has the key set?
/// @param[out] otherKeys  room for 20 entries. Null: -1 after the exchange, with `*num` as received.
/// @param[out] num        the number of keys, at most 20; 0 or negative if the browser host gave that.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetOtherKeys(int appid, int orgid, int* otherKeys, int* num);
/// Which keys outside the bit mask may it have at most? As Zunt_RYN_Plugin_GetOtherKeys().
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetMaxiMumOtherKeys(int appid, int orgid, int* otherKeys, int* num);
/// Says whether the application supports a pointer.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_SetSupportsPointer(int appid, int orgid, bool pointer);
/// Does the application support a pointer?
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetSupportsPointer(int appid, int orgid, bool* pointer);
/// Sets the key set. Writes the request to standard output, best effort: what cannot be written is sent all
/// the same.
/// @param otherKeys  `keynum` key codes, of which the browser keeps 20; null writes a line to standard
///                   output and sends no key.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_SetValue(int appid, int orgid, int value, const int* otherKeys,
                                              int keynum);
/// What does the key look like?
/// @param[out] icon  replaced by the icon of the key.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetKeyIcon(int appid, int orgid, int code, std::string& icon);
/// What is the key called?
/// @param[out] label  replaced by the label of the key.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_GetKeyLabel(int appid, int orgid, int code, std::string& label);

/// May the tab's application use the video/broadcast resource?
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_Get_VB_Resouce_Allowed(int tabid, bool* allowed);
/// Makes the tab's broadcast-related application broadcast-independent.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_SetBRAppToBI(int tabid);
/// Makes the tab's broadcast-independent application broadcast-related.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_SetBIAppToBR(int tabid);
/// Of which type is the tab's application?
/// @param[out] appType  the numbering is the browser host's.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_Get_APP_TYPE(int tabid, int* appType);
/// Did the browser consume this key press?
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_KeyConsumedByBrowser(int tabid, int keyCode, bool* consumed);

/// May the operator application be uninstalled?
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_OpApp_Uninstall_Judge(bool* flag);
/// @}

/// @name Requests with a result of their own
/// As the requests above, but they return the browser host's own result in place of 0. A result of -1, -3
/// or -4 cannot be told from a failure of the request.
/// @{

/// What is the operator application's status?
/// @param[out] status  replaced by the operator application's status, whatever the result.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_OpApp_GetStatus(std::string& status);
/// Sets the operator application's status.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_OpApp_SetStatus(std::string status);
/// Moves the operator application to the transient state.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_OpApp_RequestTransient();
/// Moves it to the foreground state.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_OpApp_RequestForeground();
/// Moves it to the background state.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_OpApp_RequestBackground();
/// How far is its update?
/// @param[out] status  the update's status, whatever the result.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_OpApp_GetUpdateStatus(int* status);
/// Starts its update.
HBBTV_RYN_EXPORT int Zunt_RYN_Plugin_OpApp_RequestUpdate();
/// @}

#endif  // HBBTV_RYN_PLUGIN_H
