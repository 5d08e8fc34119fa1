// The applications of a make-believe browser: what a real one would keep in its engine.
//
// Knows nothing of the library. Not synchronised: the handlers of a browser host run one at a time.
#ifndef HBBTV_RYN_DEMO_APP_MODEL_H
#define HBBTV_RYN_DEMO_APP_MODEL_H

#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace demo {

using AppId = std::pair<int, int>;  // appid, orgid
inline constexpr AppId kNoApp{0, 0};

struct App {
  AppId owner = kNoApp;
  std::string url;
  bool operator_app = false;
  bool visible = false;
  bool active = false;
  bool focus = false;
  bool pointer = false;
  int key_set = 0;
  std::vector<int> other_keys;
};

class AppModel {
 public:
  // The organisation is the "org" parameter of the URL, or that of the application it is created for.
  AppId create(AppId creator, const std::string& url, bool child, bool operator_app) {
    const AppId id{next_appid_++, organisationOf(url, creator.second)};
    App& app = apps_[id];
    app.owner = child ? creator : kNoApp;
    app.url = url;
    app.operator_app = operator_app;
    current_ = id;
    return id;
  }

  // Children go with their owner. Returns what has gone, the owner last.
  std::vector<AppId> destroy(AppId id) {
    std::vector<AppId> gone;
    if (find(id) == nullptr) return gone;
    for (const AppId& child : childrenOf(id)) {
      for (const AppId& each : destroy(child)) gone.push_back(each);
    }
    apps_.erase(id);
    gone.push_back(id);
    if (current_ == id) current_ = apps_.empty() ? kNoApp : apps_.rbegin()->first;
    return gone;
  }

  App* find(AppId id) {
    const auto found = apps_.find(id);
    return found == apps_.end() ? nullptr : &found->second;
  }

  // The application with this number, whatever its organisation.
  AppId byNumber(int appid) const {
    const auto found = apps_.lower_bound({appid, 0});
    return found != apps_.end() && found->first.first == appid ? found->first : kNoApp;
  }

  std::vector<AppId> childrenOf(AppId owner) const {
    std::vector<AppId> children;
    for (const auto& [id, app] : apps_) {
      if (app.owner == owner && owner != kNoApp) children.push_back(id);
    }
    return children;
  }

  AppId current() const { return current_; }

 private:
  static int organisationOf(const std::string& url, int otherwise) {
    const auto at = url.find("org=");
    return at == std::string::npos ? otherwise
                                   : static_cast<int>(std::strtol(url.c_str() + at + 4, nullptr, 10));
  }

  std::map<AppId, App> apps_;
  AppId current_ = kNoApp;
  int next_appid_ = 1;
};

}  // namespace demo

#endif  // HBBTV_RYN_DEMO_APP_MODEL_H
