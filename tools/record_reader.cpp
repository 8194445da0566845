#include "tools/record_reader.h"

#include <iostream>
#include <utility>

#include "tools/file_line_source.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

[[noreturn]] void FailOn(const std::string& file, const std::exception& error) {
  throw CommandError(kFailed, file + ": " + error.what());
}

}  // namespace

std::unique_ptr<ILineSource> OpenRecord(const std::string& file, bool follows) {
  try {
    return std::make_unique<FileLineSource>(file, follows);
  } catch (const std::runtime_error& error) {
    FailOn(file, error);
  }
}

RecordReader::RecordReader(std::string command, std::string file,
                           std::unique_ptr<ILineSource> source)
    : command_(std::move(command)), file_(std::move(file)), source_(std::move(source)) {}

ILineSource::Got RecordReader::Next(Entry* entry, std::chrono::steady_clock::time_point deadline) {
  std::string line;
  ILineSource::Got got;
  try {
    got = source_->Next(&line, deadline);
  } catch (const std::runtime_error& error) {
    FailOn(file_, error);
  }
  if (got != ILineSource::Got::kLine) return got;
  if (line.find_first_not_of(" \t\r") == std::string::npos) return ILineSource::Got::kNothing;
  try {
    *entry = ReadEntry(line);
  } catch (const std::exception& error) {
    Report(error.what());
    return ILineSource::Got::kNothing;
  }
  if (!entry->fault.empty()) Report(entry->fault.c_str());
  return got;
}

void RecordReader::Report(const char* cause) {
  ++damaged_;
  std::cout.flush();
  std::cerr << command_ << ": " << file_ << ':' << source_->GetLineNumber() << ": " << cause
            << '\n';
}

void RecordReader::ThrowIfDamaged() const {
  if (damaged_ == 0) return;
  const std::string count = std::to_string(damaged_) + (damaged_ == 1 ? " line" : " lines");
  throw CommandError(kFailed, file_ + ": damaged: " + count);
}

}  // namespace tools
