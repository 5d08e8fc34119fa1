/// @file
/// The application model of the examples as a simulated browser.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_APP_MODEL_PEER_H
#define HBBTV_RYN_TOOLS_RYNCTL_APP_MODEL_PEER_H

#include "examples/app_model.h"
#include "simulated_peer.h"

namespace hbbtv_ryn::rynctl {

/// Creates, shows and destroys applications as it is asked, and reports what becomes of them. What the
/// model does not know is answered as by a host without handlers. Not synchronised.
class AppModelPeer {
 public:
  Response respond(const Message& message, const Json::Value& request);

 private:
  void create(const Json::Value& request, Response* response);
  void destroy(example::AppId id, Response* response);
  void listChildren(example::AppId id, Json::Value* reply) const;

  example::AppModel apps_;
  std::string operator_state_ = "background";
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_APP_MODEL_PEER_H
