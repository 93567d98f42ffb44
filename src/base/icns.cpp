#include "base/icns.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace bwk::icns {

namespace {

constexpr std::string_view kPngSignature{"\x89PNG\r\n\x1a\n", 8};
constexpr std::array<std::string_view, 11> kPngChunkTypes{"ic07", "ic08", "ic09", "ic10", "ic11", "ic12",
                                                          "ic13", "ic14", "icp4", "icp5", "icp6"};

uint32_t bigEndian32(std::string_view bytes, size_t offset) {
  auto b = [&](size_t i) { return static_cast<uint32_t>(static_cast<unsigned char>(bytes[offset + i])); };
  return (b(0) << 24) | (b(1) << 16) | (b(2) << 8) | b(3);
}

// Width times height from the PNG's IHDR chunk; 0 when the data is no PNG.
uint64_t pngPixelCount(std::string_view png) {
  // signature, IHDR length, "IHDR", width, height
  if (png.size() < 24 || png.substr(0, 8) != kPngSignature || png.substr(12, 4) != "IHDR") return 0;
  return static_cast<uint64_t>(bigEndian32(png, 16)) * bigEndian32(png, 20);
}

bool mayHoldPng(std::string_view type) {
  for (std::string_view t : kPngChunkTypes)
    if (t == type) return true;
  return false;
}

}  // namespace

std::string largestPng(std::string_view container) {
  if (container.size() < 8 || container.substr(0, 4) != "icns") return {};
  // The declared length may be wrong either way; never read past what is there.
  size_t end = std::min<size_t>(container.size(), bigEndian32(container, 4));
  std::string_view best;
  uint64_t bestPixels = 0;
  for (size_t offset = 8; offset + 8 <= end;) {
    std::string_view type = container.substr(offset, 4);
    uint32_t length = bigEndian32(container, offset + 4);
    if (length < 8 || length > end - offset) break;
    std::string_view data = container.substr(offset + 8, length - 8);
    if (mayHoldPng(type)) {
      uint64_t pixels = pngPixelCount(data);
      if (pixels > bestPixels) {
        best = data;
        bestPixels = pixels;
      }
    }
    offset += length;
  }
  return std::string(best);
}

}  // namespace bwk::icns
