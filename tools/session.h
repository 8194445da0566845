// What the subcommands that talk run in: the world of a plug-in in this process. That is an event
// loop, the desk's embedder, and the service (libtavo.so) over it.
//
//   RunSession([&](Session& session) {
//     session.LimitTime(5, "no answer");
//     session.RunUntil([&] { return has_answer; });
//     session.Print("{}");
//   });
//
// Standard output belongs to Print: what the library and the tasks write there goes to standard
// error.
//
// Threads:   the main thread alone.
// Ownership: what a subcommand makes of a session must end before the session.
// Errors:    CommandError. SIGINT and SIGTERM leave RunUntil as an exception of another type; when
//            everything is taken down the process ends by that signal, as a shell expects.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "wrapper/manager_wrapper.h"

namespace tools {

class Session {
 public:
  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  tavo::ManagerWrapper& GetManager() const;

  // The directory of libtavo.so, which each task is told.
  const std::string& GetLibraryPath() const;

  // Starts the time limit anew. When it is over, RunUntil throws kTimedOut with this text. 0: there
  // is no limit.
  void LimitTime(double seconds, const std::string& fault);

  // Runs the event loop until this holds; it is asked after each batch of events, outside of all
  // callbacks, and may throw. Throws what ends the conversation before: the end of the time, the
  // loss of the task (kNotStarted), a signal.
  void RunUntil(const std::function<bool()>& is_done);

  // The same for a few seconds at most, and without an exception: another signal ends it, too.
  void Settle(const std::function<bool()>& is_done);

  // Writes a line to standard output at once.
  void Print(const std::string& line) const;

  // Writes a line to standard error at once. One that cannot be written is lost.
  static void PrintError(const std::string& line);

 private:
  struct World;
  const std::unique_ptr<World> world_;
};

// The directory of libtavo.so, which each task is told. Throws kNotStarted.
std::string FindLibraryPath();

void RunSession(const std::function<void(Session& session)>& talk);

}  // namespace tools
