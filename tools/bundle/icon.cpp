#include "icon.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "base/icns.h"

namespace bwk::bundle {

namespace {

uint32_t be32(std::string_view bytes, size_t at) {
  auto b = [&](size_t i) { return static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + i])); };
  return (b(0) << 24) | (b(1) << 16) | (b(2) << 8) | b(3);
}

void putBe32(std::string& out, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xff);
}

// The container's PNG chunk types by the image's edge length.
struct ChunkType {
  uint32_t size;
  const char* type;
};
constexpr ChunkType kChunkTypes[] = {{16, "icp4"},  {32, "icp5"},  {64, "icp6"},  {128, "ic07"},
                                     {256, "ic08"}, {512, "ic09"}, {1024, "ic10"}};

}  // namespace

std::optional<WrappedIcon> icnsFromPng(std::string_view png, std::string* error) {
  // The signature, then the IHDR chunk with width and height.
  if (png.size() < 24 || png.substr(0, 8) != std::string_view("\x89PNG\r\n\x1a\n", 8) || png.substr(12, 4) != "IHDR") {
    *error = "not a PNG image";
    return std::nullopt;
  }
  if (png.size() > 0x7fffffff) {
    *error = "too large for an icon";
    return std::nullopt;
  }
  uint32_t width = be32(png, 16), height = be32(png, 20);
  WrappedIcon icon;
  const ChunkType* chosen = &kChunkTypes[std::size(kChunkTypes) - 1];
  for (const ChunkType& candidate : kChunkTypes) {
    if (candidate.size >= std::max(width, height)) {
      chosen = &candidate;
      break;
    }
  }
  if (width != height || width != chosen->size)
    icon.warning = "the image is " + std::to_string(width) + "x" + std::to_string(height) +
                   " pixels; macOS expects a square of 16, 32, 64, 128, 256, 512 or 1024";
  icon.icns = "icns";
  putBe32(icon.icns, static_cast<uint32_t>(8 + 8 + png.size()));
  icon.icns += chosen->type;
  putBe32(icon.icns, static_cast<uint32_t>(8 + png.size()));
  icon.icns.append(png);
  return icon;
}

std::optional<std::string> icnsProblem(std::string_view container) {
  if (container.size() < 8 || container.substr(0, 4) != "icns") return "not an .icns file";
  if (be32(container, 4) != container.size())
    return "its header gives " + std::to_string(be32(container, 4)) + " bytes, the file has " +
           std::to_string(container.size());
  for (size_t at = 8; at < container.size();) {
    if (container.size() - at < 8) return "a chunk header runs past the end";
    uint32_t length = be32(container, at + 4);
    if (length < 8 || length > container.size() - at)
      return "chunk '" + std::string(container.substr(at, 4)) + "' runs past the end";
    at += length;
  }
  if (icns::largestPng(container).empty()) return "it holds no PNG image, which the Linux progress window needs";
  return std::nullopt;
}

}  // namespace bwk::bundle
