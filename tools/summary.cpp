#include "tools/summary.h"

#include <algorithm>
#include <sstream>

namespace tools {

std::string Summarize(const CLI::App& app) {
  std::string text = app.get_description();
  std::replace(text.begin(), text.end(), '\n', ' ');
  for (const char* end : {". ", ": "}) text = text.substr(0, text.find(end));
  if (!text.empty() && text.back() == '.') text.pop_back();
  return text;
}

std::string SummaryFormatter::make_subcommand(const CLI::App* subcommand) const {
  std::ostringstream line;
  CLI::detail::format_help(line, subcommand->get_name(), Summarize(*subcommand), column_width_);
  return line.str();
}

}  // namespace tools
