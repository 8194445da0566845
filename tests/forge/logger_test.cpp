#include "forge/logger.h"

#include <unistd.h>

#include "tests/support/log_capture.h"

using namespace forge::logger::details;
using LoggerTest = test::LogTest;

TEST_F(LoggerTest, WritesTagLocationAndMessage) {
  const std::tuple<int, const char*, const char*> rows[] = {
      {0, " a:1 ", "[info] a:1 no 7\n"},
      {1, " a:1 ", "[warn] a:1 no 7\n"},
      {2, "", "[error]no 7\n"},
      {4, " a:1 ", " a:1 no 7\n"},
  };
  for (const auto& [level, location, line] : rows) {
    Printer(static_cast<LogLevel>(level), location) << "no " << 7;
    EXPECT_EQ(line, log_.TakeText());
  }
}

TEST_F(LoggerTest, StatementNamesItsFileBelowTheRoot) {
  EXPECT_EQ(" a.b/c:4294967295 ", MakeLocation("a.b/c", 4294967295u).View());
  EXPECT_EQ(" x.test:100 ", MakeLocation("x.test.cpp", 100).View());
  errno = EMFILE;  // The test for a terminal changes it.
  FORGE_LOG(kWarn) << 7;
  EXPECT_EQ(EMFILE, errno);
  const std::string line = std::to_string(__LINE__ - 2);
  EXPECT_EQ("[warn] tests/forge/logger_test:" + line + " 7\n", log_.TakeText());
}

TEST_F(LoggerTest, FatalLineIsOutBeforeTheProcessAborts) {
  const auto die = [] {
    dup2(STDERR_FILENO, STDOUT_FILENO);  // The death test looks there.
    FORGE_LOG(kFatal) << "end";
  };
  EXPECT_DEATH(die(), "^\\[fatal\\] \\S+:[0-9]+ end\n");
}
