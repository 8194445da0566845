#include "tools/diagram_page.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "tools/diagram_writers.h"
#include "tools/printable.h"

namespace tools {
namespace {

using desk::Json;

Json RowToJson(const Diagram::Row& row) {
  const Entry& entry = row.entry;
  Json json = {
      {"time", ShowTime(entry)}, {"kind", entry.GetKindName()}, {"from", row.from}, {"to", row.to}};
  const auto add = [&json](const char* name, const std::string& text) {
    if (!text.empty()) json[name] = text;
  };
  add("task", entry.task);
  add("connection", entry.connection);
  add("direction", entry.direction);
  add("method", entry.method);
  add("id", entry.id);
  add("words", entry.words);
  add("payload", entry.payload);  // A text, which the page parses when somebody wants to see it.
  if (row.payload_size > entry.payload.size()) json["size"] = row.payload_size;
  if (entry.task_pid) json["pid"] = *entry.task_pid;
  if (entry.starter_pid) json["starter"] = *entry.starter_pid;
  if (entry.latency) json["latency"] = *entry.latency;
  if (row.request) json["request"] = *row.request;
  if (entry.is_error) json["error"] = true;
  if (row.is_unanswered) json["unanswered"] = true;
  return json;
}

// JSON within a script element, which would end at "</script>".
void WriteEmbedded(const Json& json, std::ostream& out) {
  for (const char c : desk::ToText(json)) {
    if (c == '<') {
      out << "\\u003c";
    } else {
      out << c;
    }
  }
}

}  // namespace

void WritePage(const Diagram& diagram, const std::string& title, std::ostream& out) {
  constexpr std::string_view kPlace = "THE_MODEL";
  const std::string_view page = kDiagramPage;
  const size_t place = page.find(kPlace);
  out << page.substr(0, place) << "{\"title\":";
  WriteEmbedded(Printable(title), out);
  out << ",\"lanes\":";
  WriteEmbedded(diagram.lanes, out);
  out << ",\"rows\":[";
  for (size_t i = 0; i < diagram.rows.size(); ++i) {
    out << (i == 0 ? "\n" : ",\n");
    WriteEmbedded(RowToJson(diagram.rows[i]), out);
  }
  out << "]}" << page.substr(place + kPlace.size());
}

}  // namespace tools
