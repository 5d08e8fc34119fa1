// What is refused before anything is touched, at every function of the channel.
#include <gtest/gtest.h>

#include <utility>

#include "ipc/channel_handles.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

TEST(RefusalTest, LeavesQueuesAndOutParametersAlone) {
  RawPeer peer(kKey);
  Client client;
  Client zero_chunk(1, kKey, kChannel, 0);
  char bytes[] = "text";
  const IpcMessage good{4, bytes}, empty{0, bytes}, negative{-1, bytes}, textless{4, nullptr};
  const std::string longer(IPC_MAX_MESSAGE + 1, 'x');
  const IpcMessage too_long = messageOf(longer);
  IpcMessage reply{kUntouched, nullptr};
  IpcRecord record{};
  char* text = static_cast<char*>(std::malloc(kRawPayload));
  int capacity = kRawPayload, zero = 0;

  const auto cut = [&](long channel, int chunk_size, const IpcMessage* message) {
    return ipc_snd_internal(peer.requests.id(), channel, chunk_size, message, IPC_KIND_ONEWAY);
  };
  const auto join = [&](IpcRecord* into, char** joined, int* room) {
    return ipc_rcv_internal(peer.requests.id(), kChannel, IPC_CHUNK_SIZE, into, joined, room);
  };
  const auto expectRefused = [&](int told, int asked, IpcClient* by, const IpcMessage* message) {
    EXPECT_EQ(told, zunt_ipc_client_send(by, message));
    EXPECT_EQ(asked, zunt_ipc_client_send_sync_with_params(by, message, &reply));
    EXPECT_EQ(asked, zunt_ipc_client_send_sync_with_callback(by, message, nullptr));
  };
  for (const IpcMessage* bad : {static_cast<const IpcMessage*>(nullptr), &negative, &textless}) {
    EXPECT_EQ(-3, cut(kChannel, IPC_CHUNK_SIZE, bad));
  }
  EXPECT_EQ(-3, cut(kChannel, 0, &good));
  EXPECT_EQ(-3, cut(-1, IPC_CHUNK_SIZE, &good));
  expectRefused(-3, -3, nullptr, &good);
  expectRefused(-3, -3, client.handle(), nullptr);
  expectRefused(-3, -3, client.handle(), &empty);
  expectRefused(-1, -3, zero_chunk.handle(), &good);
  for (const IpcMessage* bad : {&negative, &textless, &too_long})
    expectRefused(-1, -1, client.handle(), bad);
  EXPECT_EQ(-3, zunt_ipc_client_send_sync_with_params(client.handle(), &good, nullptr));
  EXPECT_EQ(-3, zunt_ipc_client_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, nullptr));
  EXPECT_EQ(-3, zunt_ipc_client_destroy(nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_register_callback(nullptr, nullptr, nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_unregister_callback(nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_destroy(nullptr));
  EXPECT_EQ(kUntouched, reply.length);
  EXPECT_EQ(0U, peer.requests.depth());

  peer.requests.send(rawRecord(IPC_KIND_ONEWAY, std::string(kRawPayload, 'x')));
  EXPECT_EQ(-3, join(nullptr, &text, &capacity));
  EXPECT_EQ(-3, join(&record, nullptr, &capacity));
  EXPECT_EQ(-3, join(&record, &text, nullptr));
  EXPECT_EQ(-3, join(&record, &text, &zero));
  EXPECT_EQ(1U, peer.requests.depth());
  std::free(std::exchange(text, nullptr));
  EXPECT_EQ(-4, join(&record, &text, &capacity));  // a buffer that has to grow, and is not there
}

}  // namespace
}  // namespace hbbtv_ryn::test
