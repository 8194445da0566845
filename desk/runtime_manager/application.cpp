#include "desk/runtime_manager/application.h"

#include <glib.h>

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

bool Resolve(QStringList* command, QString* error) {
  const QString program = QStandardPaths::findExecutable(command->first());
  if (program.isEmpty()) {
    *error = QStringLiteral("there is no program \"%1\"").arg(command->first());
    return false;
  }
  command->first() = program;
  return true;
}

// Field codes stand for files that the task does not get: only "%%" means something here.
QStringList WithoutFieldCodes(const QStringList& words) {
  QStringList result;
  for (const QString& word : words) {
    QString clean;
    for (int i = 0; i < word.size(); ++i) {
      const QLatin1Char percent('%');
      if (word[i] != percent || (++i < word.size() && word[i] == percent)) clean += word[i];
    }
    if (!clean.isEmpty() || word.isEmpty()) result << clean;
  }
  return result;
}

QByteArray StringOf(GKeyFile* entry, const char* key) {
  const GlibPtr<gchar> text(g_key_file_get_string(entry, kGroup, key, nullptr));
  return {text.get()};
}

std::optional<Application> ReadDesktopEntry(const QString& file, QString* error) {
  const GlibPtr<GKeyFile> entry(g_key_file_new());
  GError* failure = nullptr;
  if (!g_key_file_load_from_file(entry.get(), QFile::encodeName(file).constData(), G_KEY_FILE_NONE,
                                 &failure)) {
    const GlibPtr<GError> owned_failure(failure);
    *error = QStringLiteral("%1: %2").arg(file, QString::fromUtf8(failure->message));
    return std::nullopt;
  }
  QString cause;
  auto words = SplitCommand(StringOf(entry.get(), G_KEY_FILE_DESKTOP_KEY_EXEC), &cause);
  if (words) *words = WithoutFieldCodes(*words);
  if (!words || words->isEmpty() || !Resolve(&*words, &cause)) {
    *error = QStringLiteral("%1: unusable Exec line: %2").arg(file, cause);
    return std::nullopt;
  }
  return Application{*words, QFile::decodeName(StringOf(entry.get(), G_KEY_FILE_DESKTOP_KEY_PATH))};
}

// A hidden entry counts as deleted.
bool IsUsableEntry(const QString& file) {
  if (!QFileInfo(file).isFile()) return false;
  const GlibPtr<GKeyFile> entry(g_key_file_new());
  g_key_file_load_from_file(entry.get(), QFile::encodeName(file).constData(), G_KEY_FILE_NONE,
                            nullptr);
  return !g_key_file_get_boolean(entry.get(), kGroup, G_KEY_FILE_DESKTOP_KEY_HIDDEN, nullptr);
}

std::optional<Application> FindUnwrapped(const QString& name, QString* error) {
  const QString entry_name = name + QStringLiteral(".desktop");
  QString not_executable;  // Taken when there is nothing better: starting it tells what is wrong.
  const QStringList path =
      QString::fromLocal8Bit(qgetenv("TAVO_DESK_PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts);
  for (const QString& folder : path) {
    const QDir directory(folder);
    const QString entry = directory.absoluteFilePath(entry_name);
    if (IsUsableEntry(entry)) return ReadDesktopEntry(entry, error);
    const QFileInfo program(directory.absoluteFilePath(name));
    if (!program.isFile()) continue;
    if (program.isExecutable()) return Application{{program.filePath()}, {}};
    if (not_executable.isEmpty()) not_executable = program.filePath();
  }
  for (const QString& entry :
       QStandardPaths::locateAll(QStandardPaths::ApplicationsLocation, entry_name)) {
    if (IsUsableEntry(entry)) return ReadDesktopEntry(entry, error);
  }
  if (!not_executable.isEmpty()) return Application{{not_executable}, {}};
  *error = QStringLiteral("there is no such application");
  return std::nullopt;
}

}  // namespace

std::optional<Application> FindApplication(const QString& name, QString* error) {
  if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.contains(QChar(0))) {
    *error = QStringLiteral("this is no name of an application");
    return std::nullopt;
  }
  auto application = FindUnwrapped(name, error);
  const QByteArray wrapper = qgetenv("TAVO_DESK_WRAPPER");
  if (!application || wrapper.trimmed().isEmpty()) return application;
  QString cause;
  auto command = SplitCommand(wrapper, &cause);
  if (!command || !Resolve(&*command, &cause)) {
    *error = QStringLiteral("unusable TAVO_DESK_WRAPPER: %1").arg(cause);
    return std::nullopt;
  }
  application->command = *command + application->command;
  return application;
}

}  // namespace desk
