// What differs between a recorded message and the one that has come now, told to people.
//
//   talk.jsonl:5: the answer to "digest": result.size
//     recorded  7
//     now       9
//
// Threads: one at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "flrpc/message.h"
#include "tools/value_path.h"

namespace tools {

class Differences {
 public:
  using PrintFunction = std::function<void(const std::string& line)>;

  // `ignored` are patterns of places that may differ. Values are cut to this number of columns.
  Differences(std::string file, std::vector<ValuePath> ignored, size_t columns);

  // To be set before anything is compared.
  void PrintWith(PrintFunction print) { print_ = std::move(print); }

  // Compares answers (result, or error), or notifications (params). `line` is that of the record.
  void Compare(size_t line, const std::string& what, const flrpc::Message& recorded,
               const flrpc::Message& now);

  // Tells a message that is not in the record; `line` is that of its request there, or 0.
  void TellAdded(size_t line, const std::string& what, const flrpc::Message& now);

  size_t GetCount() const { return count_; }

 private:
  class Walk;

  void Tell(size_t line, const std::string& what, const cw::EncodableValue* recorded,
            const cw::EncodableValue* now);

  const std::string file_;
  const std::vector<ValuePath> ignored_;
  const size_t columns_;
  PrintFunction print_;
  size_t count_ = 0;
};

}  // namespace tools
