#include "install/archive_index.h"

#include <cstring>

namespace bwk {

namespace {

constexpr unsigned char kHeader[10] = {0x1f, 0x8b, 8, 4, 0, 0, 0, 0, 0, 0xff};
constexpr unsigned char kEmptyEnd[10] = {3, 0, 0, 0, 0, 0, 0, 0, 0, 0};
constexpr size_t kFieldHead = 4;    // two ID bytes and a length
constexpr size_t kPayloadHead = 9;  // version and member count
constexpr size_t kEndField = 6;     // the field that repeats XLEN
constexpr size_t kEntry = 8;
constexpr uint8_t kVersion = 1;
// The smallest gzip member: header, an empty final block, trailer.
constexpr uint32_t kSmallestMember = 20;

uint64_t littleEndian(const unsigned char* bytes, int count) {
  uint64_t value = 0;
  for (int i = count - 1; i >= 0; --i) value = value << 8 | bytes[i];
  return value;
}

void putLittleEndian(std::string& out, uint64_t value, int count) {
  for (int i = 0; i < count; ++i) out.push_back(static_cast<char>(value >> (8 * i) & 0xff));
}

}  // namespace

std::string encodeArchiveIndex(const std::vector<std::pair<uint32_t, uint32_t>>& members) {
  if (members.empty() || members.size() > kIndexedMemberMaxCount) return {};
  const size_t payload = kPayloadHead + kEntry * members.size();
  const size_t xlen = kFieldHead + payload + kEndField;
  std::string out(reinterpret_cast<const char*>(kHeader), sizeof kHeader);
  putLittleEndian(out, xlen, 2);
  out += "Bk";
  putLittleEndian(out, payload, 2);
  putLittleEndian(out, kVersion, 1);
  putLittleEndian(out, members.size(), 8);
  for (auto [length, size] : members) {
    putLittleEndian(out, length, 4);
    putLittleEndian(out, size, 4);
  }
  out += "Be";
  putLittleEndian(out, 2, 2);
  putLittleEndian(out, xlen, 2);
  out.append(reinterpret_cast<const char*>(kEmptyEnd), sizeof kEmptyEnd);
  return out;
}

std::optional<std::vector<IndexedMember>> readArchiveIndex(const char* file, size_t fileSize) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(file);
  // The end field and the empty member are read from the end; the index's own length is checked below.
  if (fileSize < kEndField + sizeof kEmptyEnd ||
      std::memcmp(bytes + fileSize - sizeof kEmptyEnd, kEmptyEnd, sizeof kEmptyEnd) != 0)
    return std::nullopt;
  const unsigned char* endField = bytes + fileSize - sizeof kEmptyEnd - kEndField;
  if (endField[0] != 'B' || endField[1] != 'e' || littleEndian(endField + 2, 2) != 2) return std::nullopt;
  const size_t xlen = littleEndian(endField + 4, 2);
  const size_t indexLength = sizeof kHeader + 2 + xlen + sizeof kEmptyEnd;
  if (xlen < kFieldHead + kPayloadHead + kEndField || indexLength > fileSize) return std::nullopt;
  const size_t indexStart = fileSize - indexLength;
  const unsigned char* index = bytes + indexStart;
  if (std::memcmp(index, kHeader, sizeof kHeader) != 0 || littleEndian(index + 10, 2) != xlen) return std::nullopt;
  const unsigned char* field = index + 12;
  const size_t payload = littleEndian(field + 2, 2);
  if (field[0] != 'B' || field[1] != 'k' || kFieldHead + payload + kEndField != xlen) return std::nullopt;
  const unsigned char* entries = field + kFieldHead + kPayloadHead;
  const uint64_t count = littleEndian(field + kFieldHead + 1, 8);
  if (field[kFieldHead] != kVersion || count == 0 || count > (payload - kPayloadHead) / kEntry ||
      kPayloadHead + count * kEntry != payload)
    return std::nullopt;

  std::vector<IndexedMember> members;
  members.reserve(static_cast<size_t>(count));
  uint64_t offset = 0, position = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const auto length = static_cast<uint32_t>(littleEndian(entries + i * kEntry, 4));
    const auto size = static_cast<uint32_t>(littleEndian(entries + i * kEntry + 4, 4));
    if (length < kSmallestMember || size == 0 || size > kIndexedMemberMaxSize || length > indexStart - offset)
      return std::nullopt;
    const unsigned char* member = bytes + offset;
    // Header of a deflate member, and the trailer's length of what it inflates to.
    if (member[0] != 0x1f || member[1] != 0x8b || member[2] != 8 || littleEndian(member + length - 4, 4) != size)
      return std::nullopt;
    members.push_back({offset, length, size, position});
    offset += length;
    position += size;
  }
  if (offset != indexStart) return std::nullopt;
  return members;
}

}  // namespace bwk
