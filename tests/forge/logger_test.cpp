#include "forge/logger.h"

#include <pty.h>

#include <cstring>
#include <stdexcept>

#include "tests/support/log_capture.h"

using namespace forge::logger::details;
using LoggerTest = test::LogTest;

TEST_F(LoggerTest, WritesTagLocationAndMessage) {
  const std::tuple<int, const char*, const char*> rows[] = {
      {0, " a:1 ", "[info] a:1 no 7\n"},
      {1, " a:1 ", "[warn] a:1 no 7\n"},
      {2, "", "[error]no 7\n"},
      {4, " a:1 ", " a:1 no 7\n"},
      {-1, "", "no 7\n"},
  };
  for (const auto& [level, location, line] : rows) {
    Printer(static_cast<LogLevel>(level), location) << "no " << 7;
    EXPECT_EQ(line, log_.TakeText());
  }
  EXPECT_THROW(Printer(LogLevel::kError, std::string_view(nullptr, 1)), std::logic_error);
  EXPECT_EQ("[error]", log_.TakeText());
}

TEST_F(LoggerTest, StatementNamesItsFileBelowTheRoot) {
  EXPECT_EQ(" a.b/c:4294967295 ", MakeLocation("a.b/c", 4294967295u).View());
  EXPECT_EQ(" x.test:100 ", MakeLocation("x.test.cpp", 100).View());
  errno = EMFILE;  // The test for a terminal changes it.
  FORGE_LOG(kWarn) << std::strerror(errno);
  EXPECT_EQ(EMFILE, errno);
  const std::string line = std::to_string(__LINE__ - 2);
  const std::string place = "tests/forge/logger_test:" + line;
  EXPECT_EQ("[warn] " + place + " Too many open files\n", log_.TakeText());
}

// The test for a terminal is made afresh for each sequence, so one process can show both forms.
TEST_F(LoggerTest, ColoursOnlyOnATerminal) {
  int master = -1;
  int terminal = -1;
  ASSERT_EQ(0, openpty(&master, &terminal, nullptr, nullptr, nullptr));
  const int saved = dup(STDOUT_FILENO);
  dup2(terminal, STDOUT_FILENO);
  Printer(LogLevel::kError, " a:1 ") << "text";
  dup2(saved, STDOUT_FILENO);
  char line[100] = {};
  EXPECT_LT(0, read(master, line, sizeof line));
  EXPECT_STREQ("\x1b[1;31m[error]\x1b[0m\x1b[90m a:1 \x1b[0mtext\r\n", line);
  for (const int descriptor : {saved, master, terminal}) close(descriptor);
}

TEST_F(LoggerTest, FatalLineIsOutBeforeTheProcessAborts) {
  const auto die = [] {
    dup2(STDERR_FILENO, STDOUT_FILENO);  // The death test looks there.
    FORGE_LOG(kFatal) << "end";
  };
  EXPECT_DEATH(die(), "^\\[fatal\\] \\S+:[0-9]+ end\n");
}
