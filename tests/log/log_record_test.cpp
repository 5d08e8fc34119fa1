#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "hbbtv_ryn/log.h"
#include "support/output_capture.h"

namespace hbbtv_ryn::test {
namespace {

/// Replaces every prefix by "<info>" or "<error>" after a check of its fields against the calling process.
class PrefixMask {
 public:
  PrefixMask() : m_earliest(std::time(nullptr)) {}

  std::string operator()(const std::string& text) const {
    std::string masked;
    std::size_t rest = 0;
    for (auto at = text.find("time="); at != std::string::npos; at = text.find("time=", rest)) {
      const auto end = text.find(' ', text.find("logtype=", at));
      masked += text.substr(rest, at - rest) + "<" + level(text.substr(at, end - at)) + ">";
      rest = end;
    }
    return masked + text.substr(rest);
  }

 private:
  std::string level(const std::string& prefix) const {
    const auto stamp_at = prefix.find("timestamp=");
    EXPECT_NE(std::string::npos, stamp_at) << prefix;
    const std::time_t stamp = std::stol(prefix.substr(stamp_at + std::strlen("timestamp=")));
    EXPECT_GE(stamp, m_earliest);
    EXPECT_LE(stamp, std::time(nullptr));
    std::tm local{};
    localtime_r(&stamp, &local);
    std::ostringstream expected;
    expected << "time=" << local.tm_mday << '/' << local.tm_mon + 1 << '/' << local.tm_year + 1900 << ' '
             << local.tm_hour << ':' << local.tm_min << ':' << local.tm_sec << ",timestamp=" << stamp
             << ",pid=" << getpid() << ",tid=" << syscall(SYS_gettid) << ",logtype=";
    EXPECT_EQ(expected.str(), prefix.substr(0, expected.str().size()));
    return prefix.substr(expected.str().size());
  }

  std::time_t m_earliest;
};

class LogRecordTest : public testing::Test {
 protected:
  LogRecordTest() { clear_modules_list(); }
  ~LogRecordTest() override { clear_modules_list(); }

  template <typename Call>
  static std::string written(Call call) {
    const PrefixMask mask;
    const OutputCapture output(stdout);
    call();
    return mask(output.text());
  }

  static std::string record(int type, const char* key = nullptr, const void* value = nullptr,
                            const char* file = "/opt/app/worker.cpp") {
    return written([&] { zunt_log_print(type, "net", file, "run", 42, key, value); });
  }

  static std::string message(const char* format, const char* argument) {
    return written([&] { zunt_log("net", "/opt/app/worker.cpp", "run", 42, format, argument); });
  }
};

TEST_F(LogRecordTest, AFullModuleWritesEveryRecordAndMessage) {
  insert_modules_list("net", 1);
  const int number = -7;
  EXPECT_EQ("\033[32m<info> File: worker.cpp Function: run() Enter!\n\033[0m", record(LOG_TYPE_ENTER));
  EXPECT_EQ("\033[32m<info> File: worker.cpp Function: run() Leave!\n\033[0m", record(LOG_TYPE_LEAVE));
  EXPECT_EQ("\033[31m<info> File:worker.cpp Function: run(), line: 42\n\033[0m", record(LOG_TYPE_ERROR));
  EXPECT_EQ("\033[32m<info> File:worker.cpp Function: run(), line: 42, size:-7\n\033[0m",
            record(LOG_TYPE_INT, "size", &number));
  EXPECT_EQ("\033[32m<info> File:worker.cpp Function: run(), line: 42, url:http://%s/\n\033[0m",
            record(LOG_TYPE_STRING, "url", "http://%s/"));
  EXPECT_EQ("<info> File:worker.cpp Function: run(), line: 42, got one", message("got %s", "one"));
}

TEST_F(LogRecordTest, OtherModulesWriteOnlyTheirErrors) {
  const int number = 7;
  const std::string error = "\033[31m<error> File:worker.cpp Function: run(), line: 42\n\033[0m";
  const auto expectErrorsOnly = [&](const char* situation) {
    SCOPED_TRACE(situation);
    EXPECT_EQ(error, record(LOG_TYPE_ERROR));
    EXPECT_EQ("", record(LOG_TYPE_ENTER));
    EXPECT_EQ("", record(LOG_TYPE_LEAVE));
    EXPECT_EQ("", record(LOG_TYPE_INT, "size", &number));
    EXPECT_EQ("", record(LOG_TYPE_STRING, "url", "x"));
    EXPECT_EQ("", message("got %s", "one"));
  };
  expectErrorsOnly("empty list");
  insert_modules_list("ne|neta|ui", 1);
  expectErrorsOnly("only others listed");
  insert_modules_list("net", 7);
  expectErrorsOnly("listed with a value other than 1");
}

TEST_F(LogRecordTest, TypesThatAreNoRecordWriteNone) {
  insert_modules_list("net", 1);
  EXPECT_EQ("", record(LOG_TYPE_MAX));
  EXPECT_EQ("", record(-1));
  EXPECT_EQ("log type set err, out of max enum value\n", record(LOG_TYPE_MAX + 1));
}

TEST_F(LogRecordTest, MissingArgumentsAreWrittenAsEmpty) {
  insert_modules_list("net", 1);
  EXPECT_EQ("\033[32m<info> File:local Function: run(), line: 42, :0\n\033[0m",
            record(LOG_TYPE_INT, nullptr, nullptr, "local"));
  EXPECT_EQ("\033[32m<info> File: Function: run(), line: 42, :\n\033[0m",
            record(LOG_TYPE_STRING, nullptr, nullptr, "directory/"));
  EXPECT_EQ("\033[31m<error> File: Function: (), line: 0\n\033[0m", written([] {
              zunt_log_print(LOG_TYPE_ERROR, nullptr, nullptr, nullptr, 0, nullptr, nullptr);
            }));
}

TEST_F(LogRecordTest, OnlyAMessageIsCut) {
  insert_modules_list("net", 1);
  const std::string text(3000, 'x');
  EXPECT_EQ("<info> File:worker.cpp Function: run(), line: 42, " + text.substr(0, 2047),
            message("%s", text.c_str()));
  EXPECT_EQ("\033[32m<info> File:worker.cpp Function: run(), line: 42, t:" + text + "\n\033[0m",
            record(LOG_TYPE_STRING, "t", text.c_str()));
}

TEST_F(LogRecordTest, TheTimeFollowsTheTimeZone) {
  for (const char* zone : {"XXX-11:30", "XXX+3"}) {
    setenv("TZ", zone, 1);
    record(LOG_TYPE_ERROR);  // the mask compares
  }
  unsetenv("TZ");
  tzset();
}

TEST_F(LogRecordTest, LinesOfManyThreadsDoNotMix) {
  insert_modules_list("net", 1);
  constexpr int kThreads = 4;
  constexpr int kLines = 200;
  const OutputCapture output(stdout);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([text = std::string(3000, static_cast<char>('a' + i))] {
      for (int line = 0; line < kLines; ++line) {
        zunt_log_print(LOG_TYPE_STRING, "net", "f", "g", line, "k", text.c_str());
      }
    });
  }
  for (auto& thread : threads) thread.join();

  const std::string text = output.text();
  std::size_t whole = 0;
  std::size_t start = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    const std::string line = text.substr(start, end - start);
    const std::string value = line.substr(line.rfind(':') + 1);
    if (value == std::string(3000, value.at(0)) && occurrences(line, "time=") == 1) ++whole;
    start = end + 1;
  }
  EXPECT_EQ("\033[0m", text.substr(start));
  EXPECT_EQ(static_cast<std::size_t>(kThreads * kLines), whole);
}

TEST_F(LogRecordTest, AnOutputThatFailsIsNotTheCallersConcern) {
  insert_modules_list("net", 1);
  std::fflush(stdout);
  const int original = dup(STDOUT_FILENO);
  const int full = open("/dev/full", O_WRONLY);
  dup2(full, STDOUT_FILENO);
  errno = EDOM;
  zunt_log_print(LOG_TYPE_ERROR, "net", "f", "g", 1, nullptr, nullptr);
  zunt_log("net", "f", "g", 1, "%s", std::string(20000, 'x').c_str());
  EXPECT_EQ(EDOM, errno);
  zunt_log_print(LOG_TYPE_STRING, "net", "f", "g", 1, "k", std::string(20000, 'x').c_str());
  EXPECT_EQ(EDOM, errno);
  std::fflush(stdout);
  dup2(original, STDOUT_FILENO);
  close(original);
  close(full);
  std::clearerr(stdout);
}

}  // namespace
}  // namespace hbbtv_ryn::test
