// A conversation as a sequence diagram: lanes for processes, and rows of arrows and marks between
// them. All formats are written from it.
//
// Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/conversation.h"
#include "tools/match.h"
#include "tools/records.h"

namespace tools {

struct Diagram {
  static constexpr size_t kMaxRows = 100000;
  static constexpr size_t kMaxLanes = 64;           // Further processes share the last lane.
  static constexpr size_t kMaxPayload = 64 << 10;   // Of a row, in bytes; a longer one is cut.
  static constexpr size_t kMaxPayloads = 64 << 20;  // Of all rows together.

  struct Row {
    Entry entry;
    size_t payload_size = 0;  // Before it was cut.
    size_t from = 0;          // Lanes. An arrow goes between different ones.
    size_t to = 0;
    std::optional<size_t> request;  // The row that an answer belongs to.
    bool is_unanswered = false;     // A request.

    bool IsArrow() const { return from != to; }
  };

  std::vector<std::string> lanes;  // Printable names.
  std::vector<Row> rows;
  bool is_cut = false;  // There are more entries than rows.
};

// The row in words, without the lanes: "save 21 ms {"ok":true}". It may be long, and is not
// printable yet.
std::string GetLabel(const Diagram::Row& row);

class DiagramBuilder {
 public:
  // Rows are the entries that match, `limit` at most.
  DiagramBuilder(Match match, size_t limit) : match_(std::move(match)), limit_(limit) {}

  void Add(Entry entry);
  Diagram Finish();

 private:
  void AddRow(Entry entry, uint64_t request);
  void PlaceFrame(Diagram::Row* row);
  void PlaceOther(Diagram::Row* row);
  size_t GetLane(const std::string& key, const std::string& name);
  size_t GetStarterLane(const Entry& entry);

  const Match match_;
  const size_t limit_;
  Diagram diagram_;
  Conversation conversation_;
  uint64_t number_ = 0;
  std::unordered_map<uint64_t, size_t> requests_;  // Rows by the numbers of their entries.
  size_t payloads_ = 0;                            // Bytes that are kept.
  std::map<std::string, size_t> lanes_;
};

}  // namespace tools
