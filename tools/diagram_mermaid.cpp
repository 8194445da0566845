#include "tools/diagram_writers.h"
#include "tools/printable.h"

namespace tools {
namespace {

constexpr size_t kMaxLabel = 60;

bool IsPlain(uint32_t point) {
  const bool is_alphanumeric = (point >= '0' && point <= '9') || (point >= 'a' && point <= 'z') ||
                               (point >= 'A' && point <= 'Z');
  return is_alphanumeric || point == ' ' || point == '_' || point == '.' || point == ',';
}

// Everything that may mean something in the language becomes an entity.
std::string Escape(const std::string& printable) {
  std::string escaped;
  for (size_t at = 0; at < printable.size();) {
    const CodePoint point = DecodeUtf8(printable, at);
    if (IsPlain(point.value)) {
      escaped += static_cast<char>(point.value);
    } else {
      escaped += '#' + std::to_string(point.value) + ';';
    }
    at += point.size;
  }
  return escaped;
}

const char* ArrowOf(const Entry& entry) {
  if (entry.is_error) return "--x";
  if (entry.kind == Entry::Kind::kResponse) return "-->>";
  return entry.kind == Entry::Kind::kNotification ? "-)" : "->>";
}

}  // namespace

void WriteMermaid(const Diagram& diagram, std::ostream& out) {
  out << "sequenceDiagram\n";
  for (size_t lane = 0; lane < diagram.lanes.size(); ++lane) {
    out << "  participant L" << lane << " as " << Escape(diagram.lanes[lane]) << '\n';
  }
  for (const Diagram::Row& row : diagram.rows) {
    const std::string label = Escape(Fit(GetLabel(row), kMaxLabel));
    if (row.IsArrow()) {
      out << "  L" << row.from << ArrowOf(row.entry) << 'L' << row.to << ": " << label << '\n';
    } else {
      out << "  Note over L" << row.from << ": " << label << '\n';
    }
  }
}

}  // namespace tools
