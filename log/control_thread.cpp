#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <mutex>

#include "base/loopback.h"
#include "base/signal_free_thread.h"
#include "hbbtv_ryn/log.h"
#include "log/control_command.h"
#include "log/control_protocol.h"

using hbbtv_ryn::kLogCommandBytes;

char g_modules_info[kLogCommandBytes];

namespace {

// Orders the writers of g_modules_info, for a host that starts several control threads. Readers take no
// lock.
std::mutex g_modules_info_writers;

void sendReport(int control) {
  char names[kLogCommandBytes] = {};
  get_modules_list(names);
  const sockaddr_in tool = hbbtv_ryn::loopbackAddress(hbbtv_ryn::kLogReportPort);
  // Nobody may be listening: nothing is lost then.
  (void)sendto(control, names, std::strlen(names), 0, reinterpret_cast<const sockaddr*>(&tool),
               sizeof tool);
}

/// @return whether a command came. `command` is zero past its end.
bool takeCommand(int control, char (&command)[kLogCommandBytes]) {
  std::memset(command, 0, sizeof command);
  return recvfrom(control, command, sizeof command, MSG_DONTWAIT, nullptr, nullptr) > 0;
}

void* log_control_thread(void* /*unused*/) {
  pthread_setname_np(pthread_self(), "ryn_log_control");
  const int control = hbbtv_ryn::openLoopbackSocket();
  char command[kLogCommandBytes];
  for (;;) {
    sendReport(control);
    sleep(hbbtv_ryn::kLogCycleSeconds);
    if (takeCommand(control, command)) hbbtv_ryn::applyLogCommand(command);
  }
}

void startControlThread() {
  pthread_t thread{};
  if (hbbtv_ryn::createSignalFreeThread(&thread, &log_control_thread, nullptr) == 0) pthread_detach(thread);
}

bool knownMode(int mode) {
  return mode == 0 || mode == 1;
}

}  // namespace

void hbbtv_ryn::applyLogCommand(const char (&command)[kLogCommandBytes]) {
  {
    const std::lock_guard<std::mutex> guard(g_modules_info_writers);
    std::memcpy(g_modules_info, command, sizeof command);
  }
  if (std::memchr(command, '\0', kLogCommandTextBytes) == nullptr) return;
  if (std::strcmp(command, kLogClearCommand) == 0) {
    clear_modules_list();
  } else {
    insert_modules_list(command, static_cast<unsigned char>(command[kLogCommandTextBytes]));
  }
}

int zunt_log_initialize(int mode) {
  if (!knownMode(mode)) return -1;
  if (mode == 1) startControlThread();
  return 0;
}

int zunt_log_finalize(int mode) {
  return knownMode(mode) ? 0 : -1;
}
