// The processes that watch what the desk records, as it happens.
//
// A watcher listens on a socket of the type SOCK_SEQPACKET in the watch directory. Each process
// that has a task or a conversation connects to every such socket, and sends its entries of the
// record there, one packet an entry. A conversation never waits for a watcher: an entry that a
// watcher cannot take is dropped, and the entry {"event":"dropped","count":N,"pid":PID} goes before
// the next one. A watcher's socket is renamed into the directory once it listens, so that the
// first entry of a process that starts afterwards reaches it. A name that begins with a dot is no
// watcher's.
//
// A forked process is not watched, as long as it executes no other program.
//
// Threads: any. Sockets of watchers that come later are noticed by the event loop of the
//          application's thread.
// Errors:  none. A watcher that cannot be reached misses the entries.
#pragma once

#include <atomic>

#include <QByteArray>
#include <QJsonObject>

namespace desk {

// Returns watch/ of the shared directory (socket_files.h). It need not exist.
QByteArray GetWatchDirectory();

namespace watchers {

extern std::atomic<bool> are_there;  // Read it by AreThere.

// Returns whether anybody watches. Costs the reading of one flag.
inline bool AreThere() { return are_there.load(std::memory_order_relaxed); }

// Sends the entry, a line without a newline, to each watcher.
void Tell(const QByteArray& entry);

}  // namespace watchers

// A task or a conversation of this process. While there is one, the process looks for watchers.
class Watchable {
 public:
  // A watcher that comes later is told the introduction first, unless it is empty.
  explicit Watchable(QJsonObject introduction = {});
  ~Watchable();
  Watchable(const Watchable&) = delete;
  Watchable& operator=(const Watchable&) = delete;
};

}  // namespace desk
