#include "peer_transport.h"

namespace bench {
namespace {

template <Text text>
std::unique_ptr<Transport> rawQueue(const std::string&) {
  return makePeer(makeRawQueue(), text);
}

template <std::unique_ptr<Link> (*make)()>
std::unique_ptr<Transport> naive(const std::string&) {
  return makePeer(make(), Text::kNaive);
}

template <std::unique_ptr<Link> (*make)(const std::string&)>
std::unique_ptr<Transport> naive(const std::string& directory) {
  return makePeer(make(directory), Text::kNaive);
}

}  // namespace

const std::vector<Row>& rows() {
  static const std::vector<Row> all = {
      {"raw", "raw queue, no JSON", true, rawQueue<Text::kPlain>},
      {"raw-floor", "raw queue, StyledWriter", true, rawQueue<Text::kFloor>},
      {"raw-naive", "raw queue, toStyledString", true, rawQueue<Text::kNaive>},
      {"posix-mq", "POSIX message queue", false, naive<makePosixMq>},
      {"seqpacket", "UNIX SOCK_SEQPACKET", false, naive<makeSeqpacket>},
      {"sdbus-p2p", "sd-bus peer to peer", false, naive<makeSdBusPeerToPeer>},
      {"zeromq", "ZeroMQ", false, naive<makeZeroMq>},
      {"nng", "nng", false, naive<makeNng>},
      {"sdbus-daemon", "sd-bus, bus daemon", false, naive<makeSdBusThroughDaemon>},
  };
  return all;
}

}  // namespace bench
