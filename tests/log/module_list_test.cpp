#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "hbbtv_ryn/log.h"
#include "log/module_level.h"
#include "support/output_capture.h"

namespace hbbtv_ryn::test {
namespace {

ModuleSwitch g_trace_switch{"trace"};

constexpr unsigned kOff = 0;
constexpr unsigned kFull = 1;
constexpr unsigned kErrors = 2;

class ModuleListTest : public testing::Test {
 protected:
  ModuleListTest() { clear_modules_list(); }
  ~ModuleListTest() override { clear_modules_list(); }

  static std::string listed() {
    std::array<char, 1025> names{};
    get_modules_list(names.data());
    return names.data();
  }

  /// What one edit writes.
  static std::string edit(const std::string& names, unsigned value) {
    const OutputCapture output(stdout);
    EXPECT_EQ(0, insert_modules_list(names.c_str(), value));
    return output.text();
  }

  /// "m00|m01|...", in byte order.
  static std::string numbered(int count) {
    std::string names;
    for (int i = 0; i < count; ++i) names += (i == 0 ? "m" : "|m") + std::to_string(10 + i);
    return names;
  }
};

TEST_F(ModuleListTest, NamesAreKeptInByteOrder) {
  edit("ui|net||\xc3\xa9|n|Z||net", kFull);
  EXPECT_EQ("Z|n|net|ui|\xc3\xa9", listed());
  edit("|n|absent|", kOff);
  EXPECT_EQ("Z|net|ui|\xc3\xa9", listed());
  edit("", kFull);
  edit("|||", kFull);
  EXPECT_EQ("Z|net|ui|\xc3\xa9", listed());
  EXPECT_EQ(0, clear_modules_list());
  EXPECT_EQ("", listed());
}

TEST_F(ModuleListTest, OnlyTheValueOneMeansFullOutput) {
  EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel("net"));
  edit("net", kFull);
  EXPECT_EQ(LOG_LEVEL_INFO, zunt_log_getLevel("net"));
  EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel("ne"));
  EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel("netx"));
  EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel(""));
  EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel(nullptr));
  for (const unsigned value : {kErrors, 255U, 257U, ~0U}) {
    edit("net", value);
    EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel("net")) << value;
    EXPECT_EQ("net", listed());
  }
}

TEST_F(ModuleListTest, ListingFillsTheWholeBufferOrNothing) {
  std::array<char, 1026> names;
  names.fill('#');
  EXPECT_EQ(0, get_modules_list(names.data()));
  EXPECT_EQ(std::string(1026, '#'), std::string(names.data(), names.size()));
  edit("net|ui", kFull);
  EXPECT_EQ(2, get_modules_list(names.data()));
  EXPECT_EQ("net|ui" + std::string(1019, '\0') + "#", std::string(names.data(), names.size()));
  EXPECT_EQ(0, get_modules_list(nullptr));
  EXPECT_EQ(-1, insert_modules_list(nullptr, kFull));
}

TEST_F(ModuleListTest, LongNamesAreRefusedOneByOne) {
  const std::string longest(32, 'a');
  const std::string longer(33, 'b');
  EXPECT_EQ("module:" + longer + " set error, length is 33, out of max length:32\n",
            edit("net|" + longer + "|" + longest, kFull));
  EXPECT_EQ(longest + "|net", listed());
  // The refusal does not depend on what is done with the name.
  EXPECT_EQ("module:" + longer + " set error, length is 33, out of max length:32\n", edit(longer, kOff));

  const std::string endless(1500, 'c');
  EXPECT_EQ("module:" + endless.substr(0, 1024) + " set error, length is 1024, out of max length:32\n",
            edit(endless, kFull));

  std::string most;
  while (most.size() < 1024) most += longer + "|";
  EXPECT_EQ(30, occurrences(edit(most, kFull), " set error, length is 33,"));
  // What the 1024 bytes cut off the last name is a name as well.
  EXPECT_EQ(longest + "|bbbb|net", listed());
}

TEST_F(ModuleListTest, AFullListStopsAnEditAtItsFirstName) {
  EXPECT_EQ("", edit(numbered(20), kFull));
  const std::string longer(33, 'b');
  EXPECT_EQ("module:" + longer + " set error, length is 33, out of max length:32\n" +
                "module:m10 set error, module_list map has number:20\n",
            edit(longer + "|m10|m11|" + longer, kErrors));
  EXPECT_EQ(LOG_LEVEL_INFO, zunt_log_getLevel("m10"));
  EXPECT_EQ(numbered(20), listed());

  EXPECT_EQ("", edit("m10|m29", kOff));
  EXPECT_EQ("module:b set error, module_list map has number:20\n", edit("z|m11|a|b|c", kErrors));
  EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel("m11"));
  EXPECT_EQ("a|" + numbered(19).substr(4) + "|z", listed());
}

TEST_F(ModuleListTest, ASwitchFollowsItsModule) {
  EXPECT_FALSE(g_trace_switch.on());
  edit("net|trace|ui", kFull);
  EXPECT_TRUE(g_trace_switch.on());
  static ModuleSwitch late("trace");
  static ModuleSwitch other("tracer");
  EXPECT_TRUE(late.on());
  EXPECT_FALSE(other.on());
  edit("trace", kErrors);
  EXPECT_FALSE(g_trace_switch.on());
  edit("trace|tracer", kFull);
  EXPECT_TRUE(g_trace_switch.on());
  EXPECT_TRUE(late.on());
  EXPECT_TRUE(other.on());
  edit("trace", kOff);
  EXPECT_FALSE(g_trace_switch.on());
  EXPECT_TRUE(other.on());
  clear_modules_list();
  EXPECT_FALSE(other.on());
}

TEST_F(ModuleListTest, LookUpsSeeWholeEdits) {
  std::atomic<bool> done{false};
  std::thread editor([&] {
    for (int i = 0; i < 2000; ++i) {
      insert_modules_list("a|b|y|z", kFull);
      clear_modules_list();
    }
    done = true;
  });
  while (!done) {
    const std::string names = listed();
    EXPECT_TRUE(names.empty() || names == "a|b|y|z") << names;
    zunt_log_getLevel("y");
    g_trace_switch.on();
  }
  editor.join();
}

}  // namespace
}  // namespace hbbtv_ryn::test
