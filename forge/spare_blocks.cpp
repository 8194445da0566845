#include "forge/spare_blocks.h"

namespace forge {

SpareBlocks<std::string>& SpareTexts() {
  static auto& texts = *new SpareBlocks<std::string>;
  return texts;
}

SpareBlocks<std::vector<uint8_t>>& SpareBytes() {
  static auto& bytes = *new SpareBlocks<std::vector<uint8_t>>;
  return bytes;
}

}  // namespace forge
