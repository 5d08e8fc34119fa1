#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "hbbtv_ryn/log.h"
#include "support/output_capture.h"
#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {
namespace {

// How far the local time is ahead of UTC, in minutes. Not asked of the process, which may have it wrong.
int g_zone_minutes = 0;

/// What a call writes, "@" in place of a prefix that is as it should be.
template <typename Call>
std::string written(Call call) {
  const OutputCapture output(stdout);
  call();
  std::string text = output.text();
  const auto stamp_at = text.find("timestamp=");
  if (stamp_at == std::string::npos) return text;
  const std::time_t stamp = std::stol(text.substr(stamp_at + std::strlen("timestamp=")));
  EXPECT_LE(std::time(nullptr) - stamp, kDeadline.count());
  std::tm local{};
  const std::time_t shifted = stamp + 60 * g_zone_minutes;
  gmtime_r(&shifted, &local);
  std::ostringstream prefix;
  prefix << "time=" << local.tm_mday << '/' << local.tm_mon + 1 << '/' << local.tm_year + 1900 << ' '
         << local.tm_hour << ':' << local.tm_min << ':' << local.tm_sec << ",timestamp=" << stamp
         << ",pid=" << getpid() << ",tid=" << syscall(SYS_gettid) << ",logtype=";
  const auto at = text.find(prefix.str());
  return at == std::string::npos ? text : text.replace(at, prefix.str().size(), "@");
}

std::string record(int type, const char* key, const void* value, const char* file = "/opt/app/worker.cpp") {
  return written([&] { zunt_log_print(type, "net", file, "run", 42, key, value); });
}

class LogRecordTest : public testing::Test {
 protected:
  LogRecordTest() { setenv("TZ", "UTC", 1); }
  ~LogRecordTest() override { clear_modules_list(); }
};

TEST_F(LogRecordTest, AFullModuleWritesEveryRecordAndMessage) {
  insert_modules_list("net", 1);
  const int number = -7;
  const std::string text(3000, 'x');
  const std::string place = "@info File:worker.cpp Function: run(), line: 42";
  const struct {
    std::string expected;
    int type;
    const char* key = nullptr;
    const void* value = nullptr;
    const char* file = "/opt/app/worker.cpp";
  } records[] = {
      {"\033[32m@info File: worker.cpp Function: run() Enter!\n\033[0m", LOG_TYPE_ENTER},
      {"\033[32m@info File: worker.cpp Function: run() Leave!\n\033[0m", LOG_TYPE_LEAVE},
      {"\033[31m" + place + "\n\033[0m", LOG_TYPE_ERROR},
      {"\033[32m" + place + ", size:-7\n\033[0m", LOG_TYPE_INT, "size", &number},
      {"\033[32m" + place + ", url:http://%s/\n\033[0m", LOG_TYPE_STRING, "url", "http://%s/"},
      {"\033[32m" + place + ", t:" + text + "\n\033[0m", LOG_TYPE_STRING, "t", text.c_str()},
      {"\033[32m" + place + ", :0\n\033[0m", LOG_TYPE_INT, nullptr, nullptr, "worker.cpp"},
      {"\033[32m@info File: Function: run(), line: 42, :\n\033[0m", LOG_TYPE_STRING, nullptr, nullptr,
       "d/"},
      {"", LOG_TYPE_MAX},
      {"", -1},
      {"log type set err, out of max enum value\n", LOG_TYPE_MAX + 1},
  };
  for (const auto& each : records) {
    EXPECT_EQ(each.expected, record(each.type, each.key, each.value, each.file));
  }
  EXPECT_EQ(place + ", " + text.substr(0, 2047),
            written([&] { zunt_log("net", "/opt/app/worker.cpp", "run", 42, "%s", text.c_str()); }));
  EXPECT_EQ("\033[31m@error File: Function: (), line: 0\n\033[0m", written([] {
              zunt_log_print(LOG_TYPE_ERROR, nullptr, nullptr, nullptr, 0, nullptr, nullptr);
            }));
}

TEST_F(LogRecordTest, OtherModulesWriteOnlyTheirErrorsInLocalTime) {
  const struct {
    const char* listed;
    unsigned value;
    const char* zone;
    int zone_minutes;
  } situations[] = {{"", 1, "XXX-11:30", 690}, {"ne|neta|ui", 1, "XXX+3", -180}, {"net", 7, "UTC", 0}};
  for (const auto& situation : situations) {
    SCOPED_TRACE(situation.listed);
    setenv("TZ", situation.zone, 1);
    g_zone_minutes = situation.zone_minutes;
    insert_modules_list(situation.listed, situation.value);
    EXPECT_EQ("\033[31m@error File:worker.cpp Function: run(), line: 42\n\033[0m",
              record(LOG_TYPE_ERROR, nullptr, nullptr));
    for (const int type : {LOG_TYPE_ENTER, LOG_TYPE_LEAVE, LOG_TYPE_INT, LOG_TYPE_STRING}) {
      EXPECT_EQ("", record(type, "key", "value"));
    }
    EXPECT_EQ("", written([] { zunt_log("net", "f", "g", 1, "%s", "text"); }));
  }
}

TEST_F(LogRecordTest, NeitherLinesNorEditsOfManyThreadsMix) {
  constexpr int kLines = 200;
  constexpr int kEdits = 20000;
  const std::string letters = "abcd";
  const auto onThreads = [&](auto body) {
    std::vector<std::thread> threads;
    for (const char letter : letters) threads.emplace_back(body, std::string(3000, letter));
    for (auto& thread : threads) thread.join();
  };
  insert_modules_list("net", 1);
  std::string text;
  {
    const OutputCapture output(stdout);
    onThreads([](const std::string& value) {
      for (int i = 0; i < kLines; ++i) {
        zunt_log_print(LOG_TYPE_STRING, "net", "f", "g", 1, "k", value.c_str());
      }
    });
    text = output.text();
  }
  for (const char letter : letters) {
    const std::string whole =
        " File:f Function: g(), line: 1, k:" + std::string(3000, letter) + "\n\033[0m";
    EXPECT_EQ(kLines, occurrences(text, whole)) << letter;
  }
  onThreads([](const std::string&) {
    for (int i = 0; i < kEdits; ++i) {
      insert_modules_list("a|b|z", static_cast<unsigned>(i % 2));
      char names[1025];
      get_modules_list(names);
      const std::string listed = names;
      ASSERT_TRUE(listed == "net" || listed == "a|b|net|z") << listed;
    }
  });
}

TEST_F(LogRecordTest, AnOutputThatFailsIsNotTheCallersConcern) {
  insert_modules_list("net", 1);
  const std::string text(20000, 'x');
  int left = 0;
  {
    const OutputCapture output(stdout);  // puts the descriptor back
    const int full = open("/dev/full", O_WRONLY);
    dup2(full, STDOUT_FILENO);
    close(full);
    errno = EDOM;
    zunt_log("net", "f", "g", 1, "%s", text.c_str());
    zunt_log_print(LOG_TYPE_STRING, "net", "f", "g", 1, "k", text.c_str());
    left = errno;
  }
  EXPECT_EQ(EDOM, left);
}

}  // namespace
}  // namespace hbbtv_ryn::test
