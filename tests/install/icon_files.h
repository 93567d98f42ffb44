#pragma once
// Small PNG images and .icns containers built by the tests.
#include <zlib.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace bwk::test {

// Four bytes, most significant first.
inline std::string be32(uint32_t v) {
  return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}

// A PNG of one colour, `size` pixels square.
inline std::string solidPng(uint32_t size, unsigned char r, unsigned char g, unsigned char b) {
  auto chunk = [&](const std::string& type, const std::string& data) {
    std::string body = type + data;
    uLong crc = crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()));
    return be32(static_cast<uint32_t>(data.size())) + body + be32(static_cast<uint32_t>(crc));
  };
  std::string rows;
  for (uint32_t y = 0; y < size; ++y) {
    rows += '\0';  // no filter
    for (uint32_t x = 0; x < size; ++x) rows += {static_cast<char>(r), static_cast<char>(g), static_cast<char>(b)};
  }
  uLongf packedSize = compressBound(static_cast<uLong>(rows.size()));
  std::string packed(packedSize, '\0');
  compress(reinterpret_cast<Bytef*>(packed.data()), &packedSize, reinterpret_cast<const Bytef*>(rows.data()),
           static_cast<uLong>(rows.size()));
  packed.resize(packedSize);
  std::string header = be32(size) + be32(size) + std::string{8, 2, 0, 0, 0};  // 8-bit RGB
  return std::string("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) + chunk("IDAT", packed) + chunk("IEND", "");
}

// An .icns container of (type, data) chunks.
inline std::string icnsContainer(const std::vector<std::pair<std::string, std::string>>& chunks) {
  std::string body;
  for (const auto& [type, data] : chunks) body += type + be32(static_cast<uint32_t>(data.size() + 8)) + data;
  return "icns" + be32(static_cast<uint32_t>(body.size() + 8)) + body;
}

}  // namespace bwk::test
