#include "desk/runtime_manager/application.h"

#include <glib.h>

#include <algorithm>
#include <memory>

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace desk {
namespace {

constexpr char kGroup[] = G_KEY_FILE_DESKTOP_GROUP;

struct FreeWithGlib {
  void operator()(GKeyFile* file) const { g_key_file_free(file); }
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(gchar** texts) const { g_strfreev(texts); }
  void operator()(gchar* text) const { g_free(text); }
};
template <typename T>
using GlibPtr = std::unique_ptr<T, FreeWithGlib>;

// Splits a command line as a shell would, without any of its expansions.
std::optional<QStringList> SplitCommand(const QByteArray& line, QString* error) {
  gchar** words = nullptr;
  GError* failure = nullptr;
  const bool split = g_shell_parse_argv(line.constData(), nullptr, &words, &failure);
  const GlibPtr<gchar*> owned_words(words);
  const GlibPtr<GError> owned_failure(failure);
  if (!split) {
    *error = QString::fromUtf8(failure->message);
    return std::nullopt;
  }
  QStringList command;
  for (gchar** word = words; *word; ++word) command << QFile::decodeName(*word);
  return command;
}

struct DesktopEntry {
  QString file;
  QString name;
  QString exec_error;
  QStringList exec;
  QString directory;
  bool hidden = false;
};

// Replaces the field codes of an Exec line: the application's name and its entry are known; a task
// gets no files and no icons.
QStringList ExpandFieldCodes(const QStringList& words, const DesktopEntry& entry) {
  QStringList result;
  for (const QString& word : words) {
    QString expanded;
    for (int i = 0; i < word.size(); ++i) {
      const bool is_code = word[i] == QLatin1Char('%') && i + 1 < word.size();
      const QChar code = is_code ? word[++i] : QChar();
      if (!is_code || code == QLatin1Char('%')) expanded += word[i];
      if (code == QLatin1Char('c')) expanded += entry.name;
      if (code == QLatin1Char('k')) expanded += entry.file;
    }
    if (!expanded.isEmpty() || word.isEmpty()) result << expanded;
  }
  return result;
}

QByteArray StringOf(GKeyFile* entry, const char* key) {
  const GlibPtr<gchar> text(g_key_file_get_string(entry, kGroup, key, nullptr));
  return {text.get()};
}

std::optional<DesktopEntry> ReadDesktopEntry(const QString& file, QString* error) {
  const GlibPtr<GKeyFile> keys(g_key_file_new());
  GError* failure = nullptr;
  if (!g_key_file_load_from_file(keys.get(), QFile::encodeName(file).constData(), G_KEY_FILE_NONE,
                                 &failure)) {
    const GlibPtr<GError> owned_failure(failure);
    *error = QStringLiteral("%1: %2").arg(file, QString::fromUtf8(failure->message));
    return std::nullopt;
  }
  DesktopEntry entry;
  entry.file = file;
  entry.name = QString::fromUtf8(StringOf(keys.get(), G_KEY_FILE_DESKTOP_KEY_NAME));
  entry.directory = QFile::decodeName(StringOf(keys.get(), G_KEY_FILE_DESKTOP_KEY_PATH));
  entry.hidden = g_key_file_get_boolean(keys.get(), kGroup, G_KEY_FILE_DESKTOP_KEY_HIDDEN, nullptr);
  const auto words =
      SplitCommand(StringOf(keys.get(), G_KEY_FILE_DESKTOP_KEY_EXEC), &entry.exec_error);
  if (words) entry.exec = ExpandFieldCodes(*words, entry);
  return entry;
}

// The first entry of that name decides: a hidden one says that there is no such application.
std::optional<Application> FromDesktopEntry(const QString& file, QString* error) {
  auto entry = ReadDesktopEntry(file, error);
  if (!entry) return std::nullopt;
  if (entry->hidden) {
    *error = QStringLiteral("there is no such application: %1 is hidden").arg(file);
    return std::nullopt;
  }
  if (entry->exec.isEmpty() || !ResolveProgram(&entry->exec, &entry->exec_error)) {
    *error = QStringLiteral("%1: unusable Exec line: %2").arg(file, entry->exec_error);
    return std::nullopt;
  }
  return Application{entry->exec, entry->directory};
}

const QLatin1String kEntrySuffix(".desktop");

QStringList DeskPath() {
  return QString::fromLocal8Bit(qgetenv("TAVO_DESK_PATH"))
      .split(QLatin1Char(':'), Qt::SkipEmptyParts);
}

QStringList DataPath() {
  return QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
}

QString NoSuchApplication(const QString& name) {
  const QString separator = QStringLiteral(", ");
  const QStringList path = DeskPath();
  return QStringLiteral(
             "there is no such application: no %1 and no program of that name in "
             "TAVO_DESK_PATH (%2), no %1 in %3")
      .arg(name + kEntrySuffix, path.isEmpty() ? QStringLiteral("empty") : path.join(separator),
           DataPath().join(separator));
}

// Used when there is nothing better, since starting it reports what is wrong. Empty: none.
QString FindNotExecutable(const QString& name) {
  for (const QString& folder : DeskPath()) {
    const QFileInfo program(QDir(folder).absoluteFilePath(name));
    if (program.isFile()) return program.filePath();
  }
  return {};
}

std::optional<Application> FindUnwrapped(const QString& name, QString* error) {
  const QStringList files = FindFiles(name);
  if (!files.isEmpty()) {
    const bool is_entry = QFileInfo(files.first()).fileName() == name + kEntrySuffix;
    return is_entry ? FromDesktopEntry(files.first(), error) : Application{{files.first()}, {}};
  }
  const QString program = FindNotExecutable(name);
  if (!program.isEmpty()) return Application{{program}, {}};
  *error = NoSuchApplication(name);
  return std::nullopt;
}

}  // namespace

bool ResolveProgram(QStringList* command, QString* error) {
  const QFileInfo path(command->first());
  const bool is_path = command->first().contains(QLatin1Char('/'));
  const QString program =
      is_path ? path.absoluteFilePath() : QStandardPaths::findExecutable(command->first());
  if (program.isEmpty() || (is_path && !path.exists())) {
    *error = QStringLiteral("there is no program \"%1\"").arg(command->first());
    return false;
  }
  command->first() = program;
  return true;
}

std::optional<Application> FindApplication(const QString& name, QString* error) {
  if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.contains(QChar(0))) {
    *error = QStringLiteral("this is not a valid name of an application");
    return std::nullopt;
  }
  auto application = FindUnwrapped(name, error);
  const QByteArray wrapper = qgetenv("TAVO_DESK_WRAPPER");
  if (!application || wrapper.trimmed().isEmpty()) return application;
  QString cause;
  auto command = SplitCommand(wrapper, &cause);
  if (!command || !ResolveProgram(&*command, &cause)) {
    *error = QStringLiteral("unusable TAVO_DESK_WRAPPER: %1").arg(cause);
    return std::nullopt;
  }
  application->command = *command + application->command;
  return application;
}

QStringList FindFiles(const QString& name) {
  QStringList files;
  for (const QString& folder : DeskPath()) {
    const QDir directory(folder);
    const QFileInfo entry(directory.absoluteFilePath(name + kEntrySuffix));
    const QFileInfo program(directory.absoluteFilePath(name));
    if (entry.isFile()) files << entry.filePath();
    if (program.isFile() && program.isExecutable()) files << program.filePath();
  }
  for (const QString& folder : DataPath()) {
    const QFileInfo entry(QDir(folder).absoluteFilePath(name + kEntrySuffix));
    if (entry.isFile()) files << entry.filePath();
  }
  return files;
}

QStringList ListApplications() {
  QStringList names;
  for (const QString& folder : DeskPath() + DataPath()) {
    for (const QString& file : QDir(folder).entryList(QDir::Files | QDir::Hidden)) {
      names << (file.endsWith(kEntrySuffix) ? file.chopped(kEntrySuffix.size()) : file);
    }
  }
  names.sort();
  names.removeDuplicates();
  const auto is_none = [](const QString& name) { return FindFiles(name).isEmpty(); };
  names.erase(std::remove_if(names.begin(), names.end(), is_none), names.end());
  return names;
}

}  // namespace desk
