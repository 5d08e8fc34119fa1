#include <gtest/gtest.h>

#include "tools/support/child_process.h"
#include "tools/support/isolation.h"

namespace {

class Isolation : public testing::EmptyTestEventListener {
  void OnTestProgramStart(const testing::UnitTest&) override { hbbtv_ryn::test::isolateProcess(); }
  void OnTestStart(const testing::TestInfo&) override { hbbtv_ryn::test::isolateTest(); }
};

}  // namespace

int main(int argc, char** argv) {
  if (const auto exit_code = hbbtv_ryn::test::runAsChild(argc, argv)) return *exit_code;
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new Isolation);
  return RUN_ALL_TESTS();
}
