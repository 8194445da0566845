// Runs the samples of docs/kit.md. Ends with 1 when one of them says something else than it should.
#include <cstdio>

#include "samples.h"

namespace samples {

bool Check(const char* sample, const std::string& expected, const std::string& said) {
  if (said == expected) return true;
  std::fprintf(stderr, "%s: it says \"%s\", not \"%s\"\n", sample, said.c_str(), expected.c_str());
  return false;
}

#if !defined(__cpp_impl_coroutine)
bool RunAwaitSamples() { return true; }
#endif

}  // namespace samples

int main() {
  const bool calls = samples::RunCallSamples();
  const bool servers = samples::RunServerSamples();
  const bool awaits = samples::RunAwaitSamples();
  return calls && servers && awaits ? 0 : 1;
}
