// The library's channel without its endpoints: what the library adds to the queue before any JSON.
#include <hbbtv_ryn/ipc.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "peer_transport.h"

namespace bench {
namespace {

// Any pair of keys will do in a namespace of our own.
constexpr key_t kRequestKey = 1;
constexpr key_t kOneWayKey = 3;
constexpr long kType = 1;

void checkChannel(int result, const char* what) {
  if (result != 0) throw std::runtime_error(std::string(what) + " returns " + std::to_string(result));
}

// The channel only reads the text.
IpcMessage messageOf(const std::string& text) {
  return {static_cast<int32_t>(text.size()), const_cast<char*>(text.data())};
}

class Channel final : public Link {
 public:
  void serve() override {
    for (;;) pause();
  }

  void openSender() override {
    checkChannel(zunt_ipc_client_create(kRequestKey, kType, 1, IPC_CHUNK_SIZE, &requests_),
                 "zunt_ipc_client_create");
    checkChannel(zunt_ipc_client_create(kOneWayKey, kType, 0, IPC_CHUNK_SIZE, &one_way_),
                 "zunt_ipc_client_create");
  }

  void exchange(const std::string& request, std::string& reply) override {
    const IpcMessage message = messageOf(request);
    IpcMessage answered{0, nullptr};
    checkChannel(zunt_ipc_client_send_sync_with_params(requests_, &message, &answered),
                 "zunt_ipc_client_send_sync_with_params");
    reply.assign(answered.text, static_cast<std::size_t>(answered.length));
    std::free(answered.text);
  }

  void post(const std::string& text) override {
    const IpcMessage message = messageOf(text);
    checkChannel(zunt_ipc_client_send(one_way_, &message), "zunt_ipc_client_send");
  }

 private:
  void openReceiver() override {
    makeServer(kRequestKey, 1);
    makeServer(kOneWayKey, 0);
  }

  void makeServer(key_t key, int with_reply) {
    IpcServer* server = nullptr;
    checkChannel(zunt_ipc_server_create(key, kType, with_reply, IPC_CHUNK_SIZE, &server),
                 "zunt_ipc_server_create");
    checkChannel(zunt_ipc_server_register_callback(server, &Channel::onMessage, this),
                 "zunt_ipc_server_register_callback");
  }

  static IpcMessage* onMessage(const IpcMessage* message, void* self) {
    auto& channel = *static_cast<Channel*>(self);
    channel.message_.assign(message->text, static_cast<std::size_t>(message->length));
    if (!channel.respond_(channel.message_, channel.reply_)) return nullptr;
    return new IpcMessage{static_cast<int32_t>(channel.reply_.size()), strdup(channel.reply_.c_str())};
  }

  IpcClient* requests_ = nullptr;
  IpcClient* one_way_ = nullptr;
  // Used by one receive thread only: a run either asks or notifies.
  std::string message_;
  std::string reply_;
};

}  // namespace

std::unique_ptr<Link> makeChannel() {
  return std::make_unique<Channel>();
}

}  // namespace bench
