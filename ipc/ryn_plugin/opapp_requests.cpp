// Questions and commands about the operator application. Most return the browser host's own result.

#include "ipc/protocol/envelope.h"
#include "ipc/ryn_plugin/requests.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

namespace {

int askResult(const Draft& question) {
  return ask(question, [](const Json::Value& reply) { return integer(reply, key::kRet); });
}

}  // namespace

int Zunt_RYN_Plugin_OpApp_Uninstall_Judge(bool* flag) {
  return askBoolean(Draft(Code::OpApp_Uninstall_Judge), key::kFlag, flag);
}

int Zunt_RYN_Plugin_OpApp_GetStatus(std::string& status) {
  return ask(Draft(Code::OpApp_GetStatus), [&](const Json::Value& reply) {
    const int result = integer(reply, key::kRet);
    status = string(reply, key::kStatus);
    return result;
  });
}

int Zunt_RYN_Plugin_OpApp_SetStatus(std::string status) {
  return askResult(Draft(Code::OpApp_SetStatus).string(key::kStatus, status));
}

int Zunt_RYN_Plugin_OpApp_RequestTransient() {
  return askResult(Draft(Code::OpApp_RequestTransient));
}

int Zunt_RYN_Plugin_OpApp_RequestForeground() {
  return askResult(Draft(Code::OpApp_RequestForeground));
}

int Zunt_RYN_Plugin_OpApp_RequestBackground() {
  return askResult(Draft(Code::OpApp_RequestBackground));
}

int Zunt_RYN_Plugin_OpApp_GetUpdateStatus(int* status) {
  return ask(Draft(Code::OpApp_GetUpdateStatus), [&](const Json::Value& reply) {
    const int result = integer(reply, key::kRet);
    *status = integer(reply, key::kStatus);
    return result;
  });
}

int Zunt_RYN_Plugin_OpApp_RequestUpdate() {
  return askResult(Draft(Code::OpApp_RequestUpdate));
}
