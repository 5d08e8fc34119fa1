#include <gtest/gtest.h>

#include <array>
#include <string>

#include "hbbtv_ryn/log.h"
#include "log/module_switch.h"
#include "support/output_capture.h"

namespace hbbtv_ryn::test {
namespace {

ModuleSwitch g_trace_switch{"trace"};

constexpr unsigned kOff = 0;
constexpr unsigned kFull = 1;
constexpr unsigned kErrors = 2;

std::string listed() {
  std::array<char, 1025> names{};
  get_modules_list(names.data());
  return names.data();
}

/// What one edit writes.
std::string edit(const std::string& names, unsigned value) {
  const OutputCapture output(stdout);
  EXPECT_EQ(0, insert_modules_list(names.c_str(), value));
  return output.text();
}

std::string tooLong(const std::string& name) {
  return "module:" + name + " set error, length is " + std::to_string(name.size()) +
         ", out of max length:32\n";
}

class ModuleListTest : public testing::Test {
 protected:
  ModuleListTest() { clear_modules_list(); }
};

TEST_F(ModuleListTest, NamesAreKeptInByteOrderAndOnlyTheValueOneMeansFullOutput) {
  edit("ui|net||\xc3\xa9|n|Z||net", kFull);
  EXPECT_EQ("Z|n|net|ui|\xc3\xa9", listed());
  edit("|n|absent|", kOff);
  edit("|||", kFull);
  EXPECT_EQ("Z|net|ui|\xc3\xa9", listed());
  EXPECT_EQ(LOG_LEVEL_INFO, zunt_log_getLevel("net"));
  for (const char* other : {"ne", "netx", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel(other));
  }
  for (const unsigned value : {kErrors, 255U, 257U, ~0U}) {
    edit("net", value);
    EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel("net")) << value;
  }
  EXPECT_EQ("Z|net|ui|\xc3\xa9", listed());
}

TEST_F(ModuleListTest, ListingFillsTheWholeBufferOrNothing) {
  std::string names(1026, '#');
  EXPECT_EQ(0, get_modules_list(names.data()));
  EXPECT_EQ(std::string(1026, '#'), names);
  edit("net|ui", kFull);
  EXPECT_EQ(2, get_modules_list(names.data()));
  EXPECT_EQ("net|ui" + std::string(1019, '\0') + "#", names);
  EXPECT_EQ(0, get_modules_list(nullptr));
  EXPECT_EQ(-1, insert_modules_list(nullptr, kFull));
}

TEST_F(ModuleListTest, LongNamesAreRefusedOneByOne) {
  const std::string longest(32, 'a');
  const std::string longer(33, 'b');
  EXPECT_EQ(tooLong(longer), edit("net|" + longer + "|" + longest, kFull));
  EXPECT_EQ(longest + "|net", listed());
  EXPECT_EQ(tooLong(std::string(1024, 'c')), edit(std::string(1500, 'c'), kOff));
  std::string most;
  while (most.size() < 1024) most += longer + "|";
  EXPECT_EQ(30, occurrences(edit(most, kFull), tooLong(longer)));
  // What the 1024 bytes cut off the last name is a name as well.
  EXPECT_EQ(longest + "|bbbb|net", listed());
}

TEST_F(ModuleListTest, AFullListStopsAnEditAtItsFirstName) {
  const std::string middle = "m01|m02|m03|m04|m05|m06|m07|m08|m09|m10|m11|m12|m13|m14|m15|m16|m17|m18";
  const std::string longer(33, 'b');
  EXPECT_EQ("", edit("m00|" + middle + "|m19", kFull));
  EXPECT_EQ(tooLong(longer) + "module:m00 set error, module_list map has number:20\n",
            edit(longer + "|m00|m01|" + longer, kErrors));
  EXPECT_EQ(LOG_LEVEL_INFO, zunt_log_getLevel("m00"));

  EXPECT_EQ("", edit("m00|m19", kOff));
  EXPECT_EQ("module:b set error, module_list map has number:20\n", edit("z|m01|a|b|c", kErrors));
  EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel("m01"));
  EXPECT_EQ("a|" + middle + "|z", listed());
}

TEST_F(ModuleListTest, ASwitchFollowsItsModule) {
  EXPECT_FALSE(g_trace_switch.on());
  edit("net|trace|ui", kFull);
  static ModuleSwitch late("trace");
  static ModuleSwitch other("tracer");
  EXPECT_TRUE(g_trace_switch.on() && late.on() && !other.on());
  edit("trace|tracer", kErrors);
  EXPECT_FALSE(g_trace_switch.on() || late.on() || other.on());
  edit("trace|tracer", kFull);
  edit("trace", kOff);
  EXPECT_TRUE(!g_trace_switch.on() && !late.on() && other.on());
  clear_modules_list();
  EXPECT_FALSE(other.on());
}

}  // namespace
}  // namespace hbbtv_ryn::test
