// Lines on standard error, "tavo-trace: TEXT". Neither a closed standard error nor the lack of
// memory does any harm.
//
// Threads: any.
#pragma once

#include <string_view>

namespace trace {

void Report(std::string_view text, std::string_view more = {}) noexcept;

}  // namespace trace
