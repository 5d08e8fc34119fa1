// Clients and servers of the channel that release themselves, and requests as texts.
#ifndef HBBTV_RYN_TESTS_IPC_CHANNEL_HANDLES_H
#define HBBTV_RYN_TESTS_IPC_CHANNEL_HANDLES_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "hbbtv_ryn/ipc.h"
#include "tools/support/child_process.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {

inline constexpr key_t kKey = kRequestKey;
inline constexpr long kChannel = 1;

/// The message points into the text, so the text must outlive it.
inline IpcMessage messageOf(const std::string& text) {
  return {static_cast<int32_t>(text.size()), const_cast<char*>(text.data())};
}
IpcMessage messageOf(std::string&&) = delete;

/// A reply as a server callback returns it.
inline IpcMessage* newReply(const std::string& text) {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return new IpcMessage{static_cast<int32_t>(text.size()), copy};
}

inline std::string textOf(const IpcMessage* request) {
  return {request->text, static_cast<std::size_t>(request->length)};
}

inline constexpr int kUntouched = -77;

struct Answer {
  int result;
  std::optional<std::string> text;  // up to its NUL; none when the out-record's text is null
  int length;                       // kUntouched when the call left it alone

  bool isProper(const std::string& expected) const {
    return result == 0 && text == expected && length == static_cast<int>(expected.size());
  }
  bool isFailureReply() const { return result == 0 && text == "a" && length == kUntouched; }
  /// What a caller sees whose server is gone, or whose exchange was broken off.
  bool isBrokenOff() const { return result == -1 && !text; }
};

class Client {
 public:
  explicit Client(int with_reply = 1, key_t key = kKey, long channel = kChannel,
                  int chunk_size = IPC_CHUNK_SIZE) {
    if (zunt_ipc_client_create(key, channel, with_reply, chunk_size, &handle_) != 0) {
      throw std::runtime_error("no client");
    }
  }
  ~Client() { zunt_ipc_client_destroy(handle_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  int send(const std::string& text) {
    const IpcMessage message = messageOf(text);
    return zunt_ipc_client_send(handle_, &message);
  }
  Answer ask(const std::string& text) {
    const IpcMessage request = messageOf(text);
    IpcMessage reply{kUntouched, nullptr};
    const int result = zunt_ipc_client_send_sync_with_params(handle_, &request, &reply);
    Answer answer{result, std::nullopt, reply.length};
    if (reply.text != nullptr) answer.text = reply.text;
    std::free(reply.text);
    return answer;
  }
  // Asks as often as this, each time something else, one question in eight longer than a record if so
  // wanted. How many of the answers were another question's, or lost.
  int notEchoed(int questions, bool long_ones = true) {
    int wrong = 0;
    for (int i = 0; i < questions; ++i) {
      const std::string text =
          std::to_string(++questions_) + std::string(long_ones && i % 8 == 7 ? 1500 : 1, '?');
      if (!ask(text).isProper(text)) ++wrong;
    }
    return wrong;
  }
  IpcClient* handle() { return handle_; }

 private:
  IpcClient* handle_ = nullptr;
  int questions_ = 0;
};

class Server {
 public:
  explicit Server(IpcServerCallback callback, void* user_data = nullptr, int with_reply = 1,
                  key_t key = kKey, long channel = kChannel, int chunk_size = IPC_CHUNK_SIZE) {
    if (zunt_ipc_server_create(key, channel, with_reply, chunk_size, &handle_) != 0) {
      throw std::runtime_error("no server");
    }
    if (callback != nullptr) zunt_ipc_server_register_callback(handle_, callback, user_data);
  }
  ~Server() { destroy(); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// -3 when it was destroyed before.
  int destroy() {
    IpcServer* handle = handle_;
    handle_ = nullptr;
    return zunt_ipc_server_destroy(handle);
  }
  IpcServer* handle() { return handle_; }

 private:
  IpcServer* handle_ = nullptr;
};

// Longer than a dead server may stay unnoticed.
inline constexpr std::chrono::milliseconds kLongerThanTheWatchNeeds{1500};

// Serves echoes, and a text that begins with "slow" only when the test says so.
extern const ChildRole kServerRole;

// Makes one request per text that it is told, and tells the answer.
extern const ChildRole kAsker;

inline IpcMessage* echo(const IpcMessage* request, void* /*user_data*/) {
  return newReply(textOf(request));
}

class ServerProcess : public ChildProcess {
 public:
  ServerProcess() : ChildProcess(kServerRole) { EXPECT_EQ("up", hear()); }
  void waitUntilTaken() { EXPECT_EQ("taken", hear()); }
  void release() { say("go on"); }
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_IPC_CHANNEL_HANDLES_H
