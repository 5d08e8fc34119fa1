// What a host does when it is about to be gone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <vector>

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
  std::vector<std::unique_ptr<char[]>> blocks;
  for (int i = 0; i < 100; ++i) blocks.emplace_back(new char[512]);
}

struct AsksWhenDestroyed {
  bool armed = false;
  ~AsksWhenDestroyed() {
    if (armed) askOrFail();
  }
};
AsksWhenDestroyed g_asks_when_destroyed;

const ChildRole kAsksAtExit("asks at exit", [](Parent&) {
  if (Zunt_RYN_Plugin_Initialize() != 0) return kWrong;
  askOrFail();
  g_asks_when_destroyed.armed = true;
  return std::atexit(&askOrFail);
});

TEST(ExitTest, AHostMayAskFromItsExitHandlersAndStaticDestructors) {
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  EXPECT_EQ(0, ChildProcess(kAsksAtExit).wait());
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
}

}  // namespace
}  // namespace hbbtv_ryn::test
