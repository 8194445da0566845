// libtavo-trace.so in the place of libtavo.so: what callers see is the same, and it is recorded.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <functional>

#include <QJsonDocument>

#include "tests/support/declared_sizes.h"
#include "tests/support/plugin_fixture.h"

namespace {

constexpr int kRequests = 50;

class TraceTest : public test::PluginTest {
 protected:
  void SetUp() override {
    qputenv("TAVO_TRACE_FILE", file_);
    qputenv("TAVO_TRACE_LIMIT", "1MiB");
    qunsetenv("TAVO_TRACE_LIBRARY");
    PluginTest::SetUp();
  }

  // Returns the exit status of a process for itself: a process decides once what it records.
  int Fork(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      body();
      fflush(nullptr);
      _exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return status;
  }

  // Asks a task so often, each time for the same value.
  void Talk(int requests, const cw::EncodableValue& value) {
    manager_ = tavo::ManagerWrapper::Create(nullptr, TAVO_TEST_TRACE);
    const Client client = Connect();
    for (int i = 0; i < requests; ++i) {
      EXPECT_EQ(value, *Request(client, "echo", value).GetResult());
    }
  }

  // The entries of both files, the older first. A line that is no object is a failure.
  std::vector<QJsonObject> GetEntries() const {
    std::vector<QJsonObject> entries;
    for (const char* end : {".1", ""}) {
      for (const QByteArray& line : test::Read(QFile::decodeName(file_ + end)).split('\n')) {
        if (line.trimmed().isEmpty()) continue;  // What a killed process has not used.
        entries.push_back(QJsonDocument::fromJson(line).object());
        EXPECT_FALSE(entries.back().isEmpty()) << line.toStdString();
      }
    }
    return entries;
  }

  static int Count(const std::vector<QJsonObject>& entries, const char* member, const char* text) {
    return static_cast<int>(std::count_if(entries.begin(), entries.end(), [&](const auto& entry) {
      return entry[member].toString() == text;
    }));
  }

  // Locks the file as a process that records there, until the descriptor is closed.
  static int Lock(const QByteArray& path) {
    const int file = open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    EXPECT_EQ(0, fcntl(file, F_OFD_SETLK, &lock));
    return file;
  }

  const QByteArray file_ = QFile::encodeName(directory_.filePath("trace"));
};

template <typename Table>
using LoaderOf = ForgeResult (*)(Table*, uint32_t);

// The same bytes, but for the addresses of entries.
template <typename Table>
void CompareTables(LoaderOf<Table> real, LoaderOf<Table> traced) {
  ASSERT_TRUE(real && traced);
  for (uint32_t size = 0; size <= sizeof(Table) + 2 * test::kField; ++size) {
    std::vector<uint8_t> memory[2];
    for (auto& bytes : memory) bytes.assign(sizeof(Table) + 64, 0xA5);
    EXPECT_EQ(real(reinterpret_cast<Table*>(memory[0].data()), size),
              traced(reinterpret_cast<Table*>(memory[1].data()), size));
    for (size_t field = 1; field < test::kFields<Table> && test::Covers(size, field); ++field) {
      uint8_t* entries[2];
      for (int i = 0; i < 2; ++i) entries[i] = memory[i].data() + field * test::kField;
      const std::vector<uint8_t> null(test::kField, 0);
      const auto is_null = [&](uint8_t* at) { return std::equal(null.begin(), null.end(), at); };
      EXPECT_EQ(is_null(entries[0]), is_null(entries[1])) << size << ", field " << field;
      std::copy_n(entries[0], test::kField, entries[1]);
    }
    EXPECT_EQ(memory[0], memory[1]) << size;
  }
  EXPECT_EQ(real(nullptr, sizeof(Table)), traced(nullptr, sizeof(Table)));
}

LoaderOf<TAVOProcTable> LoaderOfLibrary(const char* path) {
  void* const library = dlopen(path, RTLD_NOW);
  EXPECT_TRUE(library) << dlerror();
  return reinterpret_cast<LoaderOf<TAVOProcTable>>(dlsym(library, "TAVOProcTableLoad"));
}

TEST_F(TraceTest, TablesAreThoseOfTheRealLibraryAtEverySize) {
  const auto compare = [] {
    const auto real = LoaderOfLibrary(TAVO_TEST_LIBS "/libtavo.so");
    const auto traced = LoaderOfLibrary(TAVO_TEST_TRACE "/libtavo.so");
    CompareTables(real, traced);
    TAVOProcTable tables[2] = {};
    real(&tables[0], sizeof tables[0]);
    traced(&tables[1], sizeof tables[1]);
    EXPECT_EQ(!qEnvironmentVariableIsSet("TAVO_TRACE_FILE"),
              tables[0].RpcClientProcTableLoad == tables[1].RpcClientProcTableLoad);
    CompareTables(tables[0].RpcClientProcTableLoad, tables[1].RpcClientProcTableLoad);
    CompareTables(tables[0].RpcServerProcTableLoad, tables[1].RpcServerProcTableLoad);
    CompareTables(tables[0].IntentManagerProcTableLoad, tables[1].IntentManagerProcTableLoad);
  };
  EXPECT_EQ(0, Fork(compare));
  qputenv("TAVO_TRACE_LIBRARY", TAVO_TEST_LIBS "/libtavo.so");
  EXPECT_EQ(0, Fork(compare));
  QFile::remove(QFile::decodeName(file_));
  qunsetenv("TAVO_TRACE_FILE");  // Then the tables are the real ones, and there is no file.
  EXPECT_EQ(0, Fork(compare));
  EXPECT_TRUE(GetEntries().empty());
}

TEST_F(TraceTest, ConversationIsRecordedOnceForTheTools) {
  EXPECT_EQ(0, Fork([this] {
              Talk(2, "hey");
              manager_.reset();
            }));
  const auto entries = GetEntries();
  ASSERT_EQ(8u, entries.size());  // With the handshake; the task's end records nothing.
  EXPECT_EQ("start", entries.front()["event"].toString());
  EXPECT_EQ("end", entries.back()["event"].toString());
  EXPECT_EQ(3, Count(entries, "direction", "to"));
  EXPECT_EQ(3, Count(entries, "direction", "from"));
  EXPECT_EQ(8, Count(entries, "connection", qPrintable(entries[0]["connection"].toString())));
  const std::pair<const char*, std::vector<const char*>> readers[] = {
      {TAVO_TEST_TOOL " monitor ",
       {" wrapper_task -- started\n", " wrapper_task -> echo ", " \"hey\"\n",
        " wrapper_task -- end\n", "6 messages, 3 answers", " 0 requests"}},
      {TAVO_TEST_TOOL " replay --against wrapper_task ",
       {"2 messages sent, 2 answers and 0 notifications compared: 0 differences\n"}},
  };
  for (const auto& [command, parts] : readers) {
    FILE* const reader = popen((command + file_).constData(), "r");
    std::string lines(4096, '\0');
    lines.resize(fread(lines.data(), 1, lines.size(), reader));
    EXPECT_EQ(0, pclose(reader));
    for (const char* part : parts) {
      EXPECT_NE(std::string::npos, lines.find(part)) << part << " is not in\n" << lines;
    }
  }
  EXPECT_EQ(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser,
            QFile::permissions(QFile::decodeName(file_)));
}

TEST_F(TraceTest, RingIsBoundedAndTellsOfWhatDoesNotFit) {
  qputenv("TAVO_TRACE_LIMIT", "64KiB");
  EXPECT_EQ(0, Fork([this] {
              ASSERT_EQ(0, chdir(qPrintable(directory_.path())));
              qputenv("TAVO_TRACE_FILE", "trace");
              manager_ = tavo::ManagerWrapper::Create(nullptr, TAVO_TEST_TRACE);
              ASSERT_EQ(0, chdir("/proc"));  // Where no file can be made.
              qputenv("TAVO_TRACE_FILE", file_);
              const Client client = Connect();
              const QByteArray saved = file_ + ".saved";
              const QByteArray copy =
                  "mv " + file_ + ' ' + saved + " && cp -p " + saved + ' ' + file_;
              for (int i = 0; i < kRequests; ++i) {
                EXPECT_EQ(0, system(copy.constData()));  // The copy is as full as the open file.
                Request(client, "echo", std::vector<uint8_t>(4096, 7)).GetResult();
              }
            }));
  for (const char* end : {"", ".1"}) {
    const auto size = QFileInfo(QFile::decodeName(file_ + end)).size();
    EXPECT_TRUE(size > 0 && size <= 32 << 10) << end << " has " << size;
  }
  EXPECT_LT(GetEntries().size(), size_t{kRequests});
  qputenv("TAVO_DESK_OPEN_URI", "fail");
  EXPECT_EQ(0, Fork([this] {
              Talk(1, std::vector<uint8_t>(1 << 20, 7));
              EXPECT_FALSE(test::Await<bool>([&](auto&& done) {
                manager_->GetIntentManager()->OpenUri(std::string(6 << 10, '\1'), done);
              }));
            }));
  const auto entries = GetEntries();
  const auto is_short = [](const QJsonObject& entry) {
    return entry["message"].isNull() && entry["size"].toInt() > 1 << 20 &&
           entry["head"].toString().size() == 1 << 10;
  };
  EXPECT_EQ(2, std::count_if(entries.begin(), entries.end(), is_short));
  EXPECT_EQ("OpenURI", entries.back()["intent"].toString());
  EXPECT_EQ(6 << 10, entries.back()["size"].toInt());
  EXPECT_EQ(4 << 10, entries.back()["parameters"].toObject()["uri"].toString().size());
  qputenv("TAVO_TRACE_LIMIT", "1GiB");  // Too much for the addresses of 32 bits.
  EXPECT_EQ(0, Fork([&] {
              Talk(1, 1);
              EXPECT_FALSE(test::Read("/proc/self/maps").contains(file_));
              EXPECT_TRUE(test::Read(QFile::decodeName(file_)).endsWith("}\n"));
              EXPECT_LT(entries.size(), GetEntries().size());
            }));
}

TEST_F(TraceTest, FilesMayBeMovedRemovedAndTaken) {
  EXPECT_EQ(0, Fork([this] {
              const QString moved = directory_.filePath("moved");
              manager_ = tavo::ManagerWrapper::Create(nullptr, TAVO_TEST_TRACE);
              const Client client = Connect();
              EXPECT_TRUE(QFile::rename(QFile::decodeName(file_), moved));
              std::ofstream(moved.toStdString(), std::ios::app) << "NOTE\n";
              EXPECT_EQ(1, *Request(client, "echo", 1).GetResult());
              EXPECT_TRUE(test::Read(moved).endsWith("NOTE\n"));
              QFile::remove(QFile::decodeName(file_));
              const int taken = Lock(file_);
              EXPECT_EQ(1, *Request(client, "echo", 1).GetResult());
              EXPECT_EQ("", test::Read(QFile::decodeName(file_)));
              close(taken);
              Connect();
              EXPECT_EQ(1, Count(GetEntries(), "event", "start"));
            }));
}

// A killed process loses nothing. A line that somebody could not finish stays one. A helper that
// outlives the process does not keep the file.
TEST_F(TraceTest, KilledProcessHasRecordedEverything) {
  std::ofstream(file_.constData()) << "{\"event\":\"torn\"}\n{\"torn\":";
  chmod(file_, 0600);
  int ends[2];  // The second is the helper's, which ends when the first is closed.
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
  const int status = Fork([&] {
    Talk(kRequests, 1);
    char byte = 0;
    if (fork() != 0) {
      recv(ends[0], &byte, 1, 0);  // The helper runs.
      kill(getpid(), SIGKILL);
    }
    close(ends[0]);
    send(ends[1], &byte, 1, 0);
    recv(ends[1], &byte, 1, 0);
    _exit(0);
  });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_EQ(0, Fork([this] { Talk(1, 1); }));
  for (const int end : ends) close(end);
  QFile file(QFile::decodeName(file_));
  ASSERT_TRUE(file.open(QIODevice::ReadOnly));
  const QByteArray text = file.readAll();
  EXPECT_EQ(kRequests + 3, text.count("\"direction\":\"from\""));
  EXPECT_TRUE(text.contains("{\"torn\":\n{\"event\":\"start\"") && text.trimmed().endsWith("}"));
}

TEST_F(TraceTest, FileThatCannotBeUsedIsToldAndTheConversationGoesOn) {
  const QByteArray link = file_ + ".link";
  QFile::link(QFile::decodeName(file_), QFile::decodeName(link));
  const QByteArray open_file = file_ + ".open";
  std::ofstream(open_file.constData()) << "";
  chmod(open_file, 0644);
  const QByteArray locked_file = file_ + ".locked";
  const int locked = Lock(locked_file);
  const struct {
    QByteArray path;
    rlim_t max_size;
    const char* told;
  } rows[] = {{"/dev/full", RLIM_INFINITY, "it is no regular file"},
              {link, RLIM_INFINITY, "it is a symbolic link: name the file itself"},
              {open_file, RLIM_INFINITY, "other users may open it: give it mode 0600"},
              {locked_file, RLIM_INFINITY, "another process records there"},
              {file_, 1000, "File too large"}};
  for (const auto& row : rows) {
    EXPECT_EQ(0, Fork([&] {
                qputenv("TAVO_TRACE_FILE", row.path);
                const rlimit limit{row.max_size, row.max_size};
                setrlimit(RLIMIT_FSIZE, &limit);
                testing::internal::CaptureStderr();
                Talk(2, 1);
                const std::string told = testing::internal::GetCapturedStderr();
                EXPECT_NE(std::string::npos, told.find(row.told)) << row.told << ": " << told;
              }));
  }
  close(locked);
}

}  // namespace
