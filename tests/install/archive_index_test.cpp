// The index of an archive in gzip members: read back as written, ignored unless it describes the file exactly.
#include <zlib.h>

#include "install/archive_index.h"
#include "install/indexed_tar_stream.h"
#include "test_support.h"

namespace bwk::test {
namespace {

std::string gzipMember(const std::string& data) {
  z_stream z{};
  deflateInit2(&z, 6, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, data.size()) + 32, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

void put32(std::string& s, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (8 * i) & 0xff);
}

// Three members and their index; `entries` is where the index's member list starts.
struct Archive {
  std::string bytes;
  std::vector<std::string> members;
  size_t entries = 0;
  explicit Archive(size_t lastSize = kIndexedMemberMaxSize) {  // the largest member there may be
    std::vector<std::pair<uint32_t, uint32_t>> list;
    for (std::string data : {std::string(3000, 'a'), std::string("bcd"), std::string(lastSize, 'e')}) {
      members.push_back(gzipMember(data));
      list.emplace_back(static_cast<uint32_t>(members.back().size()), static_cast<uint32_t>(data.size()));
      bytes += members.back();
    }
    entries = bytes.size() + 12 + 4 + 9;
    bytes += encodeArchiveIndex(list);
  }
};

TEST(ArchiveIndex, ReadsBackWhatWasWrittenOnlyWhenItFitsAndThreadsAskedFor) {
  Archive written;
  auto members = readArchiveIndex(written.bytes.data(), written.bytes.size());
  ASSERT_TRUE(members);
  auto l = [&](size_t i) { return static_cast<uint32_t>(written.members[i].size()); };  // a member's length
  std::vector<std::tuple<uint64_t, uint32_t, uint32_t, uint64_t>> fields;  // offset, length, size, position
  for (const IndexedMember& m : *members) fields.emplace_back(m.offset, m.length, m.size, m.position);
  EXPECT_EQ(fields, (decltype(fields){
                        {0, l(0), 3000, 0}, {l(0), l(1), 3, 3000}, {l(0) + l(1), l(2), kIndexedMemberMaxSize, 3003}}));
  EXPECT_TRUE(encodeArchiveIndex({}).empty());
  EXPECT_TRUE(
      encodeArchiveIndex(std::vector<std::pair<uint32_t, uint32_t>>(kIndexedMemberMaxCount + 1, {20, 1})).empty());
  EXPECT_FALSE(encodeArchiveIndex(std::vector<std::pair<uint32_t, uint32_t>>(kIndexedMemberMaxCount, {20, 1})).empty());
  const std::vector<std::pair<const char*, std::function<void(Archive&)>>> cases = {
      {"count 2^61 + 3, times 8 the length listed", [](Archive& a) { a.bytes[a.entries - 1] = 0x20; }},
      {"count 0", [](Archive& a) { a.bytes[a.entries - 8] = 0; }},
      {"count one more than listed", [](Archive& a) { a.bytes[a.entries - 8] = 4; }},
      {"version 2", [](Archive& a) { a.bytes[a.entries - 9] = 2; }},
      {"overlapping members",
       [](Archive& a) {
         put32(a.bytes, a.entries, static_cast<uint32_t>(a.members[0].size() + 8));
         put32(a.bytes, a.entries + 8, static_cast<uint32_t>(a.members[1].size() - 8));
       }},
      {"a gap between members",
       [](Archive& a) { put32(a.bytes, a.entries + 8, static_cast<uint32_t>(a.members[1].size() - 1)); }},
      {"a length past the end", [](Archive& a) { put32(a.bytes, a.entries + 16, 0xffffffffu); }},
      {"a tar length the trailer does not state", [](Archive& a) { put32(a.bytes, a.entries + 4, 3001); }},
      {"a member that is no gzip", [](Archive& a) { a.bytes[a.members[0].size()] = 0; }},
      {"a byte more at the end", [](Archive& a) { a.bytes += '\0'; }},
      {"a byte less at the start", [](Archive& a) { a.bytes.erase(0, 1); }},
      {"cut inside the index", [](Archive& a) { a.bytes.erase(a.entries, 1); }},
      {"no index", [](Archive& a) { a.bytes.resize(a.bytes.size() - 30); }},
      {"the repeated length differs", [](Archive& a) { a.bytes[a.bytes.size() - 12] ^= 1; }},
      {"the header's extra flag unset", [](Archive& a) { a.bytes[a.entries - 25 + 3] = 0; }},
      {"a field named Bj", [](Archive& a) { a.bytes[a.entries - 12] = 'j'; }},
      {"an end field named Bf", [](Archive& a) { a.bytes[a.bytes.size() - 15] = 'f'; }},
      {"no empty member at the end", [](Archive& a) { a.bytes[a.bytes.size() - 10] = 1; }},
      {"a member a byte larger than the largest", [](Archive& a) { a = Archive(kIndexedMemberMaxSize + 1); }},
      {"a member of no bytes", [](Archive& a) { a = Archive(0); }},
  };
  for (const auto& [name, spoil] : cases) {
    Archive a;
    spoil(a);
    EXPECT_FALSE(readArchiveIndex(a.bytes.data(), a.bytes.size())) << name;
  }
  // BRACKWOOD_UNPACK_THREADS may only lower the number of threads, and only as a whole number from 1.
  ScopedEnvironment env;
  env.set("BRACKWOOD_UNPACK_THREADS", std::nullopt);
  const unsigned all = inflatingThreads();
  EXPECT_EQ(all, std::clamp(std::thread::hardware_concurrency(), 1u, 8u));
  const std::pair<const char*, unsigned> asked[] = {{"1", 1u},   {"0", all}, {"-1", all},
                                                    {"1x", all}, {"", all},  {"100", all}};
  for (const auto& [value, threads] : asked) {
    env.set("BRACKWOOD_UNPACK_THREADS", value);
    EXPECT_EQ(inflatingThreads(), threads) << value;
  }
}

}  // namespace
}  // namespace bwk::test
