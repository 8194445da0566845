#include "forge/logger.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace {

using forge::logger::details::LogLevel;
using forge::logger::details::Printer;

class LoggerTest : public test::TestBase {};

TEST_F(LoggerTest, WritesTagLocationAndMessageOfEachLevel) {
  const struct {
    LogLevel level;
    const char* location;
    const char* line;
  } rows[] = {
      {LogLevel::kInfo, " a/b:1 ", "[info] a/b:1 text 7\n"},
      {LogLevel::kWarn, " a/b:1 ", "[warn] a/b:1 text 7\n"},
      {LogLevel::kError, " a/b:1 ", "[error] a/b:1 text 7\n"},
      {LogLevel::kError, "", "[error]text 7\n"},
      {static_cast<LogLevel>(4), " a/b:1 ", " a/b:1 text 7\n"},
      {static_cast<LogLevel>(-1), "", "text 7\n"},
  };
  test::LogCapture log;
  EXPECT_THROW(Printer(LogLevel::kError, std::string_view(nullptr, 1)), std::logic_error);
  EXPECT_EQ("[error]", log.TakeText());
  for (const auto& row : rows) {
    Printer(row.level, row.location) << "text " << 7;
    EXPECT_EQ(row.line, log.TakeText());
  }
}

TEST_F(LoggerTest, StatementNamesItsFileBelowTheRootWithoutExtension) {
  test::LogCapture log;
  FORGE_LOG(kWarn) << "here";
  const int line = __LINE__ - 1;
  EXPECT_EQ("[warn] tests/forge/logger_test:" + std::to_string(line) + " here\n", log.TakeText());
  errno = EMFILE;  // isatty changes it.
  FORGE_LOG(kWarn) << "failed: " << std::strerror(errno);
  EXPECT_NE(std::string::npos, log.TakeText().find("failed: Too many open files"));
  EXPECT_EQ(EMFILE, errno);
}

TEST_F(LoggerTest, LocationTextIsMadeFromAnyPath) {
  using forge::logger::details::MakeLocation;
  EXPECT_EQ(" src/manager:40 ", MakeLocation("src/manager.cpp", 40).View());
  EXPECT_EQ(" a.b/c:4294967295 ", MakeLocation("a.b/c", 4294967295u).View());
  EXPECT_EQ(" x.test:100 ", MakeLocation("x.test.cpp", 100).View());
}

// The test for a terminal is made afresh for each sequence, so one process can show both forms.
TEST_F(LoggerTest, ColoursOnlyOnATerminal) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(slave, 0);
  const int saved = dup(STDOUT_FILENO);
  dup2(slave, STDOUT_FILENO);
  Printer(LogLevel::kError, " a/b:1 ") << "text";
  dup2(saved, STDOUT_FILENO);
  std::string line;
  for (char c = 0; c != '\n' && read(master, &c, 1) == 1;) line += c;
  for (const int descriptor : {saved, master, slave}) close(descriptor);
  EXPECT_EQ("\x1b[1;31m[error]\x1b[0m\x1b[90m a/b:1 \x1b[0mtext\r\n", line);

  test::LogCapture log;
  Printer(LogLevel::kInfo, " a/b:1 ") << "text";
  EXPECT_EQ("[info] a/b:1 text\n", log.TakeText());
}

TEST_F(LoggerTest, FatalLineIsOutBeforeTheProcessAborts) {
  // Standard output is sent to where the death test looks.
  EXPECT_DEATH(
      {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        FORGE_LOG(kFatal) << "the end";
      },
      "\\[fatal\\] tests/forge/logger_test:[0-9]+ the end\n");
}

}  // namespace
