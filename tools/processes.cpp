#include "tools/processes.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

namespace tools {
namespace {

std::set<pid_t> Find(const std::function<bool(pid_t parent, pid_t group)>& is_wanted) {
  std::set<pid_t> found;
  std::error_code error;
  for (std::filesystem::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const int pid = std::atoi(entry->path().filename().c_str());
    std::string stat;
    if (pid <= 0 || !std::getline(std::ifstream(entry->path() / "stat"), stat, '\0')) continue;
    const size_t name_end = stat.rfind(')');  // ") S PARENT GROUP ...": a name may have anything.
    if (name_end == std::string::npos) continue;
    std::istringstream fields(stat.substr(name_end + 1));
    char state = 0;
    pid_t parent = 0;
    pid_t group = 0;
    if (fields >> state >> parent >> group && is_wanted(parent, group)) found.insert(pid);
  }
  return found;
}

}  // namespace

std::set<pid_t> FindChildren() {
  return Find([self = getpid()](pid_t parent, pid_t) { return parent == self; });
}

std::set<pid_t> FindGroup(pid_t group) {
  return Find([group](pid_t, pid_t its_group) { return its_group == group; });
}

}  // namespace tools
