#include "hbbtv_ryn/request_registry.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

namespace {

struct RequestInfo_ {
  bool flag;
  std::string name;
  const void* owner;
  void* value;
};

// Oldest first. No lock: the hosts serialise their calls.
std::vector<RequestInfo_> g_request_list;

auto oldestMatch(bool flag, const std::string& name, const void* owner) {
  return std::find_if(g_request_list.begin(), g_request_list.end(), [&](const RequestInfo_& entry) {
    return entry.flag == flag && entry.owner == owner && entry.name == name;
  });
}

}  // namespace

int addRequest(bool flag, const std::string& name, const void* owner, void* value) {
  if (findRequest(flag, name, owner) == value) return 0;
  try {
    g_request_list.push_back({flag, name, owner, value});
  } catch (const std::exception&) {
    return -1;
  }
  return 0;
}

void* findRequest(bool flag, const std::string& name, const void* owner) {
  const auto match = oldestMatch(flag, name, owner);
  return match == g_request_list.end() ? nullptr : match->value;
}

int deleteRequest(bool flag, const std::string& name, const void* owner) {
  const auto match = oldestMatch(flag, name, owner);
  if (match == g_request_list.end()) return -1;
  g_request_list.erase(match);
  return 0;
}

int getRequestSize() {
  return static_cast<int>(g_request_list.size());
}

void* getRequestFirstItem() {
  return g_request_list.empty() ? nullptr : g_request_list.front().value;
}

int deleteAllRequest() {
  g_request_list.clear();
  return 0;
}
