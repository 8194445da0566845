#include <algorithm>

#include "tools/diagram_writers.h"
#include "tools/printable.h"

namespace tools {
namespace {

constexpr size_t kTime = 13;         // The columns of the time, with a space.
constexpr size_t kMargin = 4;        // The columns on both sides of the lanes.
constexpr size_t kMinDistance = 20;  // Of two lanes.

class TextWriter {
 public:
  TextWriter(const Diagram& diagram, const Terminal& terminal, std::ostream& out)
      : diagram_(diagram), terminal_(terminal), out_(out) {
    const size_t gaps = std::max<size_t>(diagram.lanes.size(), 2) - 1;
    const size_t room = std::max(terminal.columns, kTime + 2 * kMargin) - kTime - 2 * kMargin;
    distance_ = std::max(room / gaps, kMinDistance);
    end_ = ColumnOf(gaps) + kMargin;
  }

  void WriteAll() {
    if (!diagram_.rows.empty()) WriteHeads();
    for (const Diagram::Row& row : diagram_.rows) {
      Begin(Pad(Fit(ShowTime(row.entry), kTime - 1), kTime));
      row.IsArrow() ? PutArrow(row) : PutMark(row);
      End();
    }
  }

 private:
  size_t ColumnOf(size_t lane) const { return kTime + kMargin + lane * distance_; }

  void WriteHeads() {
    Begin("");
    for (size_t lane = 0; lane < diagram_.lanes.size(); ++lane) {
      const std::string name = Fit(diagram_.lanes[lane], distance_ - 1);
      const size_t size = CountColumns(name);
      const size_t begin = ColumnOf(lane) - std::min(size / 2, kMargin + kTime);
      GoTo(std::min(begin, end_ - size));
      if (column_ > begin) Put(" ");
      Put(name);
    }
    End();
  }

  void PutArrow(const Diagram::Row& row) {
    const size_t left = std::min(row.from, row.to);
    const size_t right = std::max(row.from, row.to);
    const bool goes_right = row.to == right;
    const char stroke = row.entry.kind == Entry::Kind::kResponse ? '.' : '-';
    PutBars(0, left + 1);
    const size_t room = ColumnOf(right) - ColumnOf(left) - 1;
    std::string body = Fit(GetLabel(row), room - 6);
    body = ' ' + body + ' ';
    const size_t strokes = room - 1 - CountColumns(body);
    body = std::string(2, stroke) + body + std::string(strokes - 2, stroke);
    body = goes_right ? body + '>' : '<' + body;
    PutColoured(body, row.entry.is_error || row.is_unanswered);
    PutBars(right, diagram_.lanes.size());
  }

  // The text stands on the side of the lane that has more room.
  void PutMark(const Diagram::Row& row) {
    const size_t lane = row.from;
    const size_t column = ColumnOf(lane);
    const bool is_last = lane + 1 == diagram_.lanes.size();
    const size_t right = (is_last ? end_ : ColumnOf(lane + 1)) - column;
    const size_t left = column - (lane == 0 ? kTime : ColumnOf(lane - 1));
    const bool is_right = right >= left;
    const std::string text = Fit(GetLabel(row), std::max(left, right) - 4);
    PutBars(0, lane);
    GoTo(is_right ? column : column - CountColumns(text) - 1);
    PutColoured(is_right ? "* " + text : text + " *", row.entry.is_error);
    PutBars(lane + 1, diagram_.lanes.size());
  }

  void PutBars(size_t first, size_t end) {
    for (size_t lane = first; lane < end; ++lane) {
      GoTo(ColumnOf(lane));
      Put("|");
    }
  }

  void Begin(const std::string& text) {
    line_.clear();
    column_ = 0;
    Put(text);
  }
  void End() { out_ << line_.substr(0, line_.find_last_not_of(' ') + 1) << '\n'; }

  void GoTo(size_t column) {
    if (column > column_) Put(std::string(column - column_, ' '));
  }
  void Put(const std::string& text) {
    line_ += text;
    column_ += CountColumns(text);
  }
  void PutColoured(const std::string& text, bool is_bad) {
    const bool is_red = is_bad && terminal_.has_colour;
    if (is_red) line_ += "\033[31m";
    Put(text);
    if (is_red) line_ += "\033[0m";
  }

  const Diagram& diagram_;
  const Terminal& terminal_;
  std::ostream& out_;
  size_t distance_;  // Of two lanes.
  size_t end_;       // Of the line.
  std::string line_;
  size_t column_ = 0;
};

}  // namespace

void WriteText(const Diagram& diagram, const Terminal& terminal, std::ostream& out) {
  TextWriter(diagram, terminal, out).WriteAll();
}

}  // namespace tools
