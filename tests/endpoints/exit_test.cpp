// What a host does when it is about to be gone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <list>
#include <string>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "tools/support/child_process.h"

namespace hbbtv_ryn::test {
namespace {

constexpr int kWrong = 3;

void askOrFail() {
  bool may_uninstall = false;
  if (Zunt_RYN_Plugin_OpApp_Uninstall_Judge(&may_uninstall) != 0 || !may_uninstall) std::_Exit(kWrong);
  // Blocks as jsoncpp takes them: an allocator that was written to behind its back notices here.
  std::list<std::string>(100, std::string(512, 'x'));
}

bool g_armed = false;
const struct AsksWhenDestroyed {
  ~AsksWhenDestroyed() {
    if (g_armed) askOrFail();
  }
} g_asks_when_destroyed;

const ChildRole kAsksAtExit("asks at exit", [](Parent&) {
  if (Zunt_RYN_Plugin_Initialize() != 0) return kWrong;
  askOrFail();
  g_armed = true;
  return std::atexit(&askOrFail);
});

TEST(ExitTest, AHostMayAskFromItsExitHandlersAndStaticDestructors) {
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  EXPECT_EQ(0, ChildProcess(kAsksAtExit).wait());
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
}

}  // namespace
}  // namespace hbbtv_ryn::test
