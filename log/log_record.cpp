#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "hbbtv_ryn/log.h"
#include "log/output.h"

namespace {

using hbbtv_ryn::writeOut;

constexpr std::size_t kPrefixBytes = 100;
constexpr std::size_t kMessageBytes = 2048;

// Set while a thread reads the time zone.
std::atomic_flag g_reading_time_zone = ATOMIC_FLAG_INIT;

/// localtime() follows a changed time zone and shares its result between threads; localtime_r() does
/// neither. A thread that finds another one at it goes on with the zone as it was.
void followTimeZone() {
  if (g_reading_time_zone.test_and_set(std::memory_order_acquire)) return;
  tzset();
  g_reading_time_zone.clear(std::memory_order_release);
}

/// The head of every line. The level, not the record's type, gives its last word.
class Prefix {
 public:
  explicit Prefix(int level) {
    const std::time_t now = std::time(nullptr);
    followTimeZone();
    std::tm local{};
    localtime_r(&now, &local);
    constexpr int kFirstYear = 1900;
    const int length =
        std::snprintf(text_, sizeof text_, "time=%d/%d/%d %d:%d:%d,timestamp=%ld,pid=%d,tid=%ld,logtype=%s",
                      local.tm_mday, local.tm_mon + 1, local.tm_year + kFirstYear, local.tm_hour,
                      local.tm_min, local.tm_sec, static_cast<long>(now), static_cast<int>(getpid()),
                      syscall(SYS_gettid), level == LOG_LEVEL_INFO ? "info" : "error");
    if (length < 0) text_[0] = '\0';
  }

  const char* text() const { return text_; }

 private:
  char text_[kPrefixBytes] = {};
};

const char* orEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

const char* baseName(const char* file) {
  if (file == nullptr) return "";
  const char* slash = std::strrchr(file, '/');
  return slash == nullptr ? file : slash + 1;
}

int intAt(const void* value) {
  int number = 0;
  if (value != nullptr) std::memcpy(&number, value, sizeof number);
  return number;
}

/// Only error records are written below LOG_LEVEL_INFO.
bool admitted(int type, int level) {
  if (type < LOG_TYPE_ENTER || type >= LOG_TYPE_MAX) return false;
  return type == LOG_TYPE_ERROR || level == LOG_LEVEL_INFO;
}

}  // namespace

void zunt_log_print(int type, const char* module, const char* file, const char* function, int line,
                    const char* key, const void* value) {
  if (type > LOG_TYPE_MAX) {
    writeOut("log type set err, out of max enum value\n");
    return;
  }
  const int level = zunt_log_getLevel(module);
  if (!admitted(type, level)) return;

  const int callers_errno = errno;
  const Prefix prefix(level);
  const char* const name = baseName(file);
  const char* const caller = orEmpty(function);
  // The colour is reset behind the newline, so that the reset begins the next line of output.
  switch (type) {
    case LOG_TYPE_ENTER:
      writeOut("\033[32m%s File: %s Function: %s() Enter!\n\033[0m", prefix.text(), name, caller);
      break;
    case LOG_TYPE_LEAVE:
      writeOut("\033[32m%s File: %s Function: %s() Leave!\n\033[0m", prefix.text(), name, caller);
      break;
    case LOG_TYPE_ERROR:
      writeOut("\033[31m%s File:%s Function: %s(), line: %d\n\033[0m", prefix.text(), name, caller, line);
      break;
    case LOG_TYPE_INT:
      writeOut("\033[32m%s File:%s Function: %s(), line: %d, %s:%d\n\033[0m", prefix.text(), name, caller,
               line, orEmpty(key), intAt(value));
      break;
    case LOG_TYPE_STRING:
      writeOut("\033[32m%s File:%s Function: %s(), line: %d, %s:%s\n\033[0m", prefix.text(), name, caller,
               line, orEmpty(key), orEmpty(static_cast<const char*>(value)));
      break;
    default:
      break;
  }
  errno = callers_errno;
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the interface's signature
void zunt_log(const char* module, const char* file, const char* function, int line, const char* format,
              ...) {
  const int level = zunt_log_getLevel(module);
  if (level != LOG_LEVEL_INFO || format == nullptr) return;

  const int callers_errno = errno;
  char message[kMessageBytes] = {};
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see va_start() here
  if (std::vsnprintf(message, sizeof message, format, arguments) < 0) message[0] = '\0';
  va_end(arguments);
  const Prefix prefix(level);
  writeOut("%s File:%s Function: %s(), line: %d, %s", prefix.text(), baseName(file), orEmpty(function),
           line, message);
  errno = callers_errno;
}
