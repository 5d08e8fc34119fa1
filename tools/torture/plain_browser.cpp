#include <json/json.h>

#include <algorithm>
#include <set>

#include "tools/support/plain_server.h"
#include "tools/torture/answers.h"
#include "tools/torture/roles.h"

namespace hbbtv_ryn::test {
namespace {

std::string answerTo(const std::string& request) {
  Json::Value members;
  Json::Reader().parse(request, members);
  Json::Value answer;
  switch (members["t"].asInt()) {
    case 237:
      answer["t"] = 238;
      answer["label"] = labelFor(members["appid"].asInt(), members["orgid"].asInt());
      break;
    case 280:
      answer["ret"] = numberFor(members["status"].asString());
      break;
  }
  return answer.toStyledString();
}

}  // namespace

const ChildRole kPlainBrowser("plain browser", [](Parent& parent) {
  PlainServer server(kRequestKey, 1, &answerTo);
  parent.hear();
  const std::set<int> known{IPC_KIND_ONEWAY, IPC_KIND_REQUEST, IPC_KIND_FAILURE};
  const std::set<int> met = server.finish();
  return std::includes(known.begin(), known.end(), met.begin(), met.end()) ? 0 : 1;
});

}  // namespace hbbtv_ryn::test
