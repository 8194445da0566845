// tavo diagram: a record as a sequence diagram.

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "tools/diagram_model.h"
#include "tools/diagram_writers.h"
#include "tools/match.h"
#include "tools/record_reader.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr char kAbout[] =
    "Draws a record (TAVO_DESK_RECORD) as a sequence diagram: a lane for each process, an arrow "
    "for\n"
    "each message. Without -o the diagram is a text for the terminal. The ending of the file's "
    "name\n"
    "says what is written: .txt, .mmd (Mermaid), .svg, or .html, a page that shows the payload of\n"
    "an arrow, filters, and needs no other file.";
constexpr char kFooter[] =
    "EXPR is explained by 'tavo monitor --help'.\n"
    "\n"
    "Example:\n"
    "  tavo diagram talk.jsonl --match task=notes -o talk.html\n"
    "\n"
    "Ends with 0; 1 when an entry is damaged (the others are drawn) or a file cannot be read or\n"
    "written; 2 for a wrong command line.";

struct Options {
  std::string file;
  std::string output;
  size_t limit = Diagram::kMaxRows;
  std::vector<std::string> matches;
};

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string CheckOutput(const std::string& name) {
  for (const char* end : {".txt", ".mmd", ".svg", ".html"}) {
    if (EndsWith(name, end)) return "";
  }
  return '"' + name + "\" does not end in .txt, .mmd, .svg or .html";
}

void Write(const Diagram& diagram, const Options& options, std::ostream& out) {
  if (EndsWith(options.output, ".mmd")) return WriteMermaid(diagram, out);
  if (EndsWith(options.output, ".svg")) return WriteSvg(diagram, out);
  if (EndsWith(options.output, ".html")) return WritePage(diagram, options.file, out);
  WriteText(diagram, options.output.empty() ? GetTerminal() : Terminal(), out);
}

Diagram ReadDiagram(const Options& options, RecordReader* reader) {
  constexpr auto kNever = std::chrono::steady_clock::time_point::max();
  DiagramBuilder builder(Match(options.matches), options.limit);
  while (true) {
    Entry entry;
    const auto got = reader->Next(&entry, kNever);
    if (got == ILineSource::Got::kEnd) return builder.Finish();
    if (got == ILineSource::Got::kLine) builder.Add(std::move(entry));
  }
}

void Run(const Options& options) {
  RecordReader reader("tavo diagram", options.file, OpenRecord(options.file, false));
  const Diagram diagram = ReadDiagram(options, &reader);
  if (diagram.is_cut) {
    std::cerr << "tavo diagram: " << options.file << ": only the first " << diagram.rows.size()
              << " entries are drawn (--limit, --match)\n";
  }
  std::ofstream file;
  if (!options.output.empty()) file.open(options.output, std::ios::binary);
  std::ostream& out = options.output.empty() ? std::cout : file;
  Write(diagram, options, out);
  if (!out.flush()) {
    const std::string name = options.output.empty() ? "standard output" : options.output;
    throw CommandError(kFailed, name + ": " + std::strerror(errno));
  }
  reader.ThrowIfDamaged();
}

}  // namespace

void AddDiagram(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command diagram = program.AddCommand("diagram", kAbout, kFooter);
  diagram.AddArgument("FILE", &options->file, "The record; - is standard input").Require();
  diagram.AddOption("-o,--output", &options->output, "FILE", "Write the diagram to this file")
      .Verify(CheckOutput);
  Match::AddOption(diagram, "--match", &options->matches, "Draw only what matches");
  diagram.AddOption("--limit", &options->limit, "N", "Draw so many entries at most")
      .LimitTo(size_t{1}, Diagram::kMaxRows);
  diagram.OnRun([options] { Run(*options); });
}

}  // namespace tools
