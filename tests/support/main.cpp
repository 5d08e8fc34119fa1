#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "tools/support/child_process.h"
#include "tools/support/isolation.h"

namespace {

// A test that hangs says so, and ends, before ctest gives it up.
constexpr unsigned kTestSeconds = 90;

void giveUp(int /*signal*/) {
  constexpr char kText[] = "this test hangs: giving up its process\n";
  static_cast<void>(!write(STDERR_FILENO, kText, sizeof kText - 1));
  std::_Exit(EXIT_FAILURE);
}

class EachTest : public testing::EmptyTestEventListener {
  void OnTestProgramStart(const testing::UnitTest&) override {
    hbbtv_ryn::test::isolateProcess();
    std::signal(SIGALRM, &giveUp);
  }
  void OnTestStart(const testing::TestInfo&) override {
    hbbtv_ryn::test::isolateTest();
    alarm(kTestSeconds);
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (const auto exit_code = hbbtv_ryn::test::runAsChild(argc, argv)) return *exit_code;
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new EachTest);
  return RUN_ALL_TESTS();
}
