#include <algorithm>

#include "tools/diagram_writers.h"
#include "tools/printable.h"

namespace tools {
namespace {

// In pixels.
constexpr size_t kTime = 110;  // The width of the times.
constexpr size_t kLane = 260;  // The distance of two lanes.
constexpr size_t kHead = 40;   // The height of the names.
constexpr size_t kRow = 26;    // The height of a row.
constexpr size_t kLetter = 8;  // The width of a letter, at most.

constexpr char kStyle[] = R"(<style>
  text { font: 12px monospace; fill: #222; }
  .head { font-weight: bold; text-anchor: middle; }
  .time { fill: #777; }
  .lane { stroke: #bbb; }
  .work { fill: #4a7dbd; opacity: 0.2; }
  .arrow { stroke: #2a5d9d; marker-end: url(#tip); }
  .answer { stroke-dasharray: 4 3; }
  .mark { fill: #2a5d9d; }
  .bad { stroke: #b22; fill: #b22; }
  text.bad { stroke: none; }
  @media (prefers-color-scheme: dark) { svg { background: #1c1c1c; } text { fill: #ddd; } }
</style>
<defs><marker id="tip" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="8" markerHeight="8"
  orient="auto"><path d="M0,0 L8,4 L0,8 z" fill="context-stroke"/></marker></defs>
)";

// The text is printable: it has no character that XML forbids.
std::string Escape(const std::string& printable) {
  std::string escaped;
  for (const char c : printable) {
    if (c == '<') {
      escaped += "&lt;";
    } else if (c == '&') {
      escaped += "&amp;";
    } else if (c == '>') {
      escaped += "&gt;";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

size_t ColumnOf(size_t lane) { return kTime + kLane / 2 + lane * kLane; }
size_t LineOf(size_t row) { return kHead + kRow * row + kRow * 3 / 4; }

void WriteLanes(const Diagram& diagram, size_t height, std::ostream& out) {
  for (size_t lane = 0; lane < diagram.lanes.size(); ++lane) {
    const size_t x = ColumnOf(lane);
    const std::string name = Fit(diagram.lanes[lane], kLane / kLetter);
    out << "<text class=\"head\" x=\"" << x << "\" y=\"20\">" << Escape(name) << "</text>\n"
        << "<line class=\"lane\" x1=\"" << x << "\" y1=\"" << kHead << "\" x2=\"" << x << "\" y2=\""
        << height << "\"/>\n";
  }
}

// From a request to its answer, on the lane that answers: as long as the rows between them.
void WriteWork(const Diagram& diagram, size_t index, std::ostream& out) {
  const Diagram::Row& row = diagram.rows[index];
  if (!row.request) return;
  out << "<rect class=\"work\" x=\"" << ColumnOf(row.from) - 4 << "\" y=\"" << LineOf(*row.request)
      << "\" width=\"8\" height=\"" << LineOf(index) - LineOf(*row.request) << "\"/>\n";
}

void WriteRow(const Diagram& diagram, size_t index, std::ostream& out) {
  const Diagram::Row& row = diagram.rows[index];
  const size_t y = LineOf(index);
  const size_t left = ColumnOf(std::min(row.from, row.to));
  const size_t right = ColumnOf(std::max(row.from, row.to));
  const char* bad = row.entry.is_error || row.is_unanswered ? " bad" : "";
  out << "<text class=\"time\" x=\"4\" y=\"" << y << "\">"
      << Escape(Fit(ShowTime(row.entry), kTime / kLetter)) << "</text>\n";
  if (row.IsArrow()) {
    const char* answer = row.entry.kind == Entry::Kind::kResponse ? " answer" : "";
    out << "<line class=\"arrow" << answer << bad << "\" x1=\"" << ColumnOf(row.from) << "\" y1=\""
        << y << "\" x2=\"" << ColumnOf(row.to) << "\" y2=\"" << y << "\"/>\n";
  } else {
    out << "<circle class=\"mark" << bad << "\" cx=\"" << left << "\" cy=\"" << y
        << "\" r=\"4\"/>\n";
  }
  const size_t room = (row.IsArrow() ? right - left : kLane) - 2 * kLetter;
  out << "<text class=\"label" << bad << "\" x=\"" << left + kLetter << "\" y=\"" << y - 4 << "\">"
      << Escape(Fit(GetLabel(row), room / kLetter)) << "</text>\n";
}

}  // namespace

void WriteSvg(const Diagram& diagram, std::ostream& out) {
  const size_t height = LineOf(diagram.rows.size()) + kRow;
  const size_t width = ColumnOf(std::max<size_t>(diagram.lanes.size(), 1)) + kLane / 2;
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
      << "\">\n"
      << kStyle;
  WriteLanes(diagram, height, out);
  for (size_t i = 0; i < diagram.rows.size(); ++i) {
    WriteWork(diagram, i, out);
    WriteRow(diagram, i, out);
  }
  out << "</svg>\n";
}

}  // namespace tools
