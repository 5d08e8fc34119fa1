#include "peer_transport.h"

namespace bench {
namespace {

template <std::unique_ptr<Link> (*make)(), Text text = Text::kNaive>
std::unique_ptr<Transport> peer(const std::string&) {
  return makePeer(make(), text);
}

template <std::unique_ptr<Link> (*make)(const std::string&)>
std::unique_ptr<Transport> peer(const std::string& directory) {
  return makePeer(make(directory), Text::kNaive);
}

}  // namespace

const std::vector<Row>& rows() {
  constexpr Queue kSystemV = Queue::kSystemV;
  constexpr Queue kSleeping = Queue::kSystemVSleeping;
  constexpr Queue kOther = Queue::kOther;
  static const std::vector<Row> all = {
      {"library", "library", kSleeping, makeLibrary},
      {"channel", "library's channel, no JSON", kSleeping, peer<makeChannel, Text::kPlain>},
      {"raw", "raw queue, no JSON", kSystemV, peer<makeRawQueue, Text::kPlain>},
      {"raw-floor", "raw queue, StyledWriter", kSystemV, peer<makeRawQueue, Text::kFloor>},
      {"raw-naive", "raw queue, toStyledString", kSystemV, peer<makeRawQueue, Text::kNaive>},
      {"posix-mq", "POSIX message queue", kOther, peer<makePosixMq>},
      {"seqpacket", "UNIX SOCK_SEQPACKET", kOther, peer<makeSeqpacket>},
      {"sdbus-p2p", "sd-bus peer to peer", kOther, peer<makeSdBusPeerToPeer>},
      {"zeromq", "ZeroMQ", kOther, peer<makeZeroMq>},
      {"nng", "nng", kOther, peer<makeNng>},
      {"sdbus-daemon", "sd-bus, bus daemon", kOther, peer<makeSdBusThroughDaemon>},
  };
  return all;
}

}  // namespace bench
