#include "forge/proc_table.h"

namespace forge {

std::string NotProvided(std::string_view method) {
  return "Method '" + std::string(method) + "' is not provided by the loaded API.";
}

}  // namespace forge
