#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "hbbtv_ryn/log.h"
#include "support/deadline.h"
#include "support/output_capture.h"

namespace hbbtv_ryn::test {
namespace {

/// What a call writes, "@" in place of its prefix.
template <typename Call>
std::string written(Call call) {
  const OutputCapture output(stdout);
  call();
  const std::regex prefix("time=[0-9/]+ [0-9:]+,timestamp=[0-9]+,pid=" + std::to_string(getpid()) +
                          ",tid=" + std::to_string(syscall(SYS_gettid)) + ",logtype=");
  return std::regex_replace(output.text(), prefix, "@");
}

std::string record(int type, const char* key, const void* value, const char* file = "/opt/app/worker.cpp") {
  return written([&] { zunt_log_print(type, "net", file, "run", 42, key, value); });
}

class LogRecordTest : public testing::Test {
 protected:
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

TEST_F(LogRecordTest, OtherModulesWriteOnlyTheirErrors) {
  const std::pair<const char*, unsigned> lists[] = {{"", 1}, {"ne|neta|ui", 1}, {"net", 7}};
  for (const auto& [names, value] : lists) {
    SCOPED_TRACE(names);
    insert_modules_list(names, value);
    EXPECT_EQ("\033[31m@error File:worker.cpp Function: run(), line: 42\n\033[0m",
              record(LOG_TYPE_ERROR, nullptr, nullptr));
    for (const int type : {LOG_TYPE_ENTER, LOG_TYPE_LEAVE, LOG_TYPE_INT, LOG_TYPE_STRING}) {
      EXPECT_EQ("", record(type, "key", "value"));
    }
    EXPECT_EQ("", written([] { zunt_log("net", "f", "g", 1, "%s", "text"); }));
  }
}

TEST_F(LogRecordTest, TheTimeIsLocal) {
  for (const char* zone : {"XXX-11:30", "XXX+3"}) {
    setenv("TZ", zone, 1);
    const OutputCapture output(stdout);
    zunt_log_print(LOG_TYPE_ERROR, "net", "f", "g", 1, nullptr, nullptr);
    const std::string text = output.text();
    const std::time_t stamp = std::stol(text.substr(text.find("timestamp=") + std::strlen("timestamp=")));
    std::tm local{};
    localtime_r(&stamp, &local);
    std::ostringstream time;
    time << "\033[31mtime=" << local.tm_mday << '/' << local.tm_mon + 1 << '/' << local.tm_year + 1900
         << ' ' << local.tm_hour << ':' << local.tm_min << ':' << local.tm_sec << ",timestamp=";
    EXPECT_EQ(time.str(), text.substr(0, time.str().size()));
    EXPECT_LE(std::time(nullptr) - stamp, kDeadline.count());
  }
}

TEST_F(LogRecordTest, NeitherLinesNorEditsOfManyThreadsMix) {
  constexpr int kLines = 200;
  const OutputCapture output(stdout);
  const char letters[] = {'a', 'b', 'c', 'd'};
  std::vector<std::thread> threads;
  insert_modules_list("net", 1);
  for (const char letter : letters) {
    threads.emplace_back([text = std::string(3000, letter)] {
      for (int i = 0; i < kLines; ++i) {
        insert_modules_list("a|b|z", i % 2);
        zunt_log_print(LOG_TYPE_STRING, "net", "f", "g", 1, "k", text.c_str());
        char names[1025];
        get_modules_list(names);
        const std::string listed = names;
        EXPECT_TRUE(listed == "net" || listed == "a|b|net|z") << listed;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (const char letter : letters) {
    const std::string whole =
        " File:f Function: g(), line: 1, k:" + std::string(3000, letter) + "\n\033[0m";
    EXPECT_EQ(kLines, occurrences(output.text(), whole)) << letter;
  }
}

TEST_F(LogRecordTest, AnOutputThatFailsIsNotTheCallersConcern) {
  insert_modules_list("net", 1);
  const std::string text(20000, 'x');
  const OutputCapture output(stdout);  // puts the descriptor back
  const int full = open("/dev/full", O_WRONLY);
  dup2(full, STDOUT_FILENO);
  close(full);
  errno = EDOM;
  zunt_log("net", "f", "g", 1, "%s", text.c_str());
  EXPECT_EQ(EDOM, errno);
  zunt_log_print(LOG_TYPE_STRING, "net", "f", "g", 1, "k", text.c_str());
  EXPECT_EQ(EDOM, errno);
}

}  // namespace
}  // namespace hbbtv_ryn::test
