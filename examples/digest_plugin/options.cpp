#include "options.h"

#include <stdexcept>

#include <QCommandLineParser>

namespace digest {
namespace {

constexpr char kAbout[] =
    "\nPrints the SHA-256 digest of each regular file below the directories (default: the current\n"
    "one), as sha256sum does. The digests are made by the task \"digest\", which is found through\n"
    "TAVO_DESK_PATH. Symbolic links below the directories are left out; a file may be named, too.\n"
    "\n"
    "Run it by: tavo-embed libdigest_plugin.so -- [OPTION | DIRECTORY]... [-- DIRECTORY...]\n"
    "\n"
    "Standard error shows the progress: a bar on a terminal, without colour when NO_COLOR is set,\n"
    "elsewhere a line now and then for a large file; and in the end a summary. The library's log\n"
    "lines go to standard output.\n"
    "\n"
    "Ends with 0; 1 when a file or a directory could not be read, or the URI not be opened (the\n"
    "rest is done); 2 when the command line makes no sense, the library or the task cannot be\n"
    "used, the connection is lost, or standard output cannot be written.";

// Latin-1 keeps each byte: a path need not be UTF-8.
QString FromBytes(const std::string& text) { return QString::fromLatin1(text.c_str()); }
std::string ToBytes(const QString& text) { return text.toLatin1().toStdString(); }

std::chrono::seconds ParseTimeout(const QString& text) {
  constexpr int kMaxSeconds = 1000000;
  bool is_number = false;
  const int seconds = text.toInt(&is_number);
  if (!is_number || seconds < 1 || seconds > kMaxSeconds) {
    throw std::runtime_error("--timeout: \"" + ToBytes(text) + "\" is not a number from 1 to " +
                             std::to_string(kMaxSeconds));
  }
  return std::chrono::seconds(seconds);
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
  const QCommandLineOption open(QStringLiteral("open"),
                                QStringLiteral("Open the URI at the end, and tell the outcome."),
                                QStringLiteral("URI"));
  const QCommandLineOption skip(
      QStringLiteral("skip"),
      QStringLiteral("Leave out what would be printed so, and what is below; repeatable."),
      QStringLiteral("PATH"));
  const QCommandLineOption timeout(
      QStringLiteral("timeout"),
      QStringLiteral("How long the task may be silent until it counts as dead, and how long "
                     "opening the URI may take."),
      QStringLiteral("SECONDS"), QStringLiteral("60"));
  QCommandLineParser parser;
  parser.setApplicationDescription(QString::fromLatin1(kAbout));
  const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                QStringLiteral("Print this."));
  parser.addOptions({open, skip, timeout, help});
  parser.addPositionalArgument(QStringLiteral("DIRECTORY"),
                               QStringLiteral("A directory, or a file."),
                               QStringLiteral("[DIRECTORY...]"));

  QStringList words{QStringLiteral("libdigest_plugin.so")};
  for (const std::string& argument : arguments) words << FromBytes(argument);
  if (!parser.parse(words)) throw std::runtime_error(ToBytes(parser.errorText()));
  Options options;
  if (parser.isSet(help)) {  // Without the first line, which names the embedder's program.
    const QString text = parser.helpText();
    options.help = ToBytes(text.mid(text.indexOf(QLatin1Char('\n')) + 1));
  }
  options.uri = ToBytes(parser.value(open));
  if (parser.isSet(open) && options.uri.empty())
    throw std::runtime_error("--open: the URI is empty");
  for (const QString& path : parser.values(skip)) options.skipped.insert(ToBytes(path));
  options.timeout = ParseTimeout(parser.value(timeout));
  for (const QString& path : parser.positionalArguments()) options.paths.push_back(ToBytes(path));
  if (options.paths.empty()) options.paths = {"."};
  return options;
}

}  // namespace digest
