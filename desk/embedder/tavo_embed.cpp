// tavo-embed: `tavo embed` under a name of its own, for scripts and desktop entries.
#include "desk/common/standard_descriptors.h"
#include "desk/embedder/embed.h"

int main(int argc, char** argv) {
  desk::OpenStandardDescriptors();
  return desk::RunEmbed(argc, argv, "tavo-embed");
}
