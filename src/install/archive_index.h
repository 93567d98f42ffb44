#pragma once
// The index of a runtime archive made of independent gzip members: where each member lies in
// the file and how many bytes of the tar stream it holds, so that members can be inflated side
// by side. It travels as the archive's last member, an empty one whose header carries the
// index in extra fields, which every other gzip reader skips:
//
//   1f 8b 08 04 00000000 00 ff   header: deflate, extra fields follow, no time, unknown system
//   XLEN (2 bytes)               length of the extra fields
//   'B' 'k' LEN payload          payload: version 1 (1 byte), member count (8 bytes), then per
//                                member its compressed length and its tar length (4 bytes each)
//   'B' 'e' 02 00 XLEN           XLEN again, so that the index is found from the file's end
//   03 00 00000000 00000000      an empty deflate block, CRC-32 and length of nothing
//
// Numbers are little-endian. The members come one after the other from the file's start and
// end where the index member begins.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bwk {

struct IndexedMember {
  uint64_t offset;    // in the file
  uint32_t length;    // compressed, gzip header and trailer included
  uint32_t size;      // bytes of the tar stream it holds
  uint64_t position;  // of its first byte in the tar stream
};

// A member may hold at most this much of the tar stream: the reader keeps a few in memory.
constexpr uint32_t kIndexedMemberMaxSize = 16u << 20;
// As many members as one extra field can list.
constexpr size_t kIndexedMemberMaxCount = (65535 - 4 - 6 - 9) / 8;

// The index member for members of these compressed and tar lengths; empty when there are
// none or more than kIndexedMemberMaxCount.
std::string encodeArchiveIndex(const std::vector<std::pair<uint32_t, uint32_t>>& members);

// The members of the archive held in `file` (`fileSize` bytes), or nothing when its end is no
// index that fits it exactly: every member inside the file, in order, without gaps or overlap,
// each with a gzip header and a trailer that states its tar length, each length within
// kIndexedMemberMaxSize.
std::optional<std::vector<IndexedMember>> readArchiveIndex(const char* file, size_t fileSize);

}  // namespace bwk
