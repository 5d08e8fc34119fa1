/// @file
/// Logging with a per-module filter that can be changed while the process runs.
///
/// Every line goes to standard output in one call, with a prefix of local time, Unix time, process id,
/// thread id and level. A module that is listed with value 1 writes everything; any other module writes
/// its error records only. The list is edited by insert_modules_list() and clear_modules_list(), or from
/// outside over loopback UDP once zunt_log_initialize(1) has started the control thread (see rynctl(1)
/// and docs/logging.md).
///
/// Any thread may call any of these functions. None lets an exception out, and no logging call fails or
/// waits for anything but standard output and the list's lock, which is held for a look-up or an edit
/// only. With an empty list a call that writes nothing costs one atomic load.
#ifndef HBBTV_RYN_LOG_H
#define HBBTV_RYN_LOG_H

#include "hbbtv_ryn/export.h"

/// What a module writes, as returned by zunt_log_getLevel().
enum {
  LOG_LEVEL_ERROR = 1,  ///< error records only: the module is not listed, or with another value than 1
  LOG_LEVEL_INFO = 2,   ///< every record and message: the module is listed with value 1
};

/// Record types of zunt_log_print().
enum {
  LOG_TYPE_ENTER = 0,   ///< a function was entered; written at LOG_LEVEL_INFO
  LOG_TYPE_LEAVE = 1,   ///< a function was left; written at LOG_LEVEL_INFO
  LOG_TYPE_ERROR = 2,   ///< an error at a source line; always written
  LOG_TYPE_INT = 3,     ///< a named integer; written at LOG_LEVEL_INFO
  LOG_TYPE_STRING = 4,  ///< a named string; written at LOG_LEVEL_INFO
  LOG_TYPE_MAX = 5,     ///< accepted, writes nothing
};

/// The last command datagram that the control thread took, all 1025 bytes of it (those past the received
/// length are zero); zero before the first. A control thread may be writing it while you read, and there is
/// no lock to take: for a debugger's eyes, not for decisions.
HBBTV_RYN_EXPORT extern char g_modules_info[1025];

/// Starts the control thread, which reports the module list to 127.0.0.1, UDP port 54321, once a second
/// and applies at most one command a second. It runs until the process ends.
///
/// @param mode  0: nothing is done; 1: the thread is started (each call starts one more).
/// @return 0, also when the thread could not be started; -1 for any other mode.
HBBTV_RYN_EXPORT int zunt_log_initialize(int mode);

/// Counterpart of zunt_log_initialize(). Stops and releases nothing.
///
/// @param mode  0 or 1.
/// @return 0; -1 for any other mode.
HBBTV_RYN_EXPORT int zunt_log_finalize(int mode);

/// @param module  a module name; null counts as not listed.
/// @return LOG_LEVEL_INFO when the module is listed with value 1, else LOG_LEVEL_ERROR.
HBBTV_RYN_EXPORT int zunt_log_getLevel(const char* module);

/// Writes a typed record as one line, if the module's level admits it.
///
/// A type above LOG_TYPE_MAX writes "log type set err, out of max enum value"; a negative one nothing.
///
/// @param type      LOG_TYPE_*.
/// @param module    the writing module.
/// @param file      source file; only what follows its last '/' is written. Null counts as empty.
/// @param function  function name. Null counts as empty.
/// @param line      source line.
/// @param key       name of the value, for LOG_TYPE_INT and LOG_TYPE_STRING. Null counts as empty.
/// @param value     LOG_TYPE_INT: points to an int; LOG_TYPE_STRING: a NUL-terminated string. A null value
///                  writes 0 or the empty string. Read during the call only.
HBBTV_RYN_EXPORT void zunt_log_print(int type, const char* module, const char* file, const char* function,
                                     int line, const char* key, const void* value);

/// Writes a formatted message, if the module's level is LOG_LEVEL_INFO. No newline is added.
///
/// @param module    the writing module.
/// @param file      source file; only what follows its last '/' is written.
/// @param function  function name.
/// @param line      source line.
/// @param format    printf() format of the message, which is cut to 2047 bytes.
HBBTV_RYN_EXPORT void zunt_log(const char* module, const char* file, const char* function, int line,
                               const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 5, 6)))
#endif
    ;

/// Adds, changes or removes modules.
///
/// Names longer than 32 bytes are refused with a line on standard output. With 20 modules listed and a
/// value other than 0 the first name is refused with a line on standard output and the rest is ignored.
///
/// @param names  names separated by '|', at most 1024 bytes (what follows is ignored); empty pieces are
///               skipped.
/// @param value  0 removes; 1 lists for full output; any other value lists for error records only.
/// @return 0, also when names were refused; -1 for null names.
HBBTV_RYN_EXPORT int insert_modules_list(const char* names, unsigned int value);

/// Writes the listed names, in byte order, joined by '|'.
///
/// @param[out] names  the caller's buffer of 1025 bytes, all of which are written: the text, a NUL and
///                    zeros. Untouched when the list is empty.
/// @return the number of modules; 0 also for a null buffer.
HBBTV_RYN_EXPORT int get_modules_list(char* names);

/// Empties the list.
/// @return 0.
HBBTV_RYN_EXPORT int clear_modules_list();

#endif  // HBBTV_RYN_LOG_H
