#pragma once
// Writing and reading the configuration region (u32 length L, little-endian, then L bytes of
// a property list) in executables: ELF files get a note section, 64-bit Mach-O files a note
// load command (in each 64-bit slice of a universal file).
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace bwk::embed {

using Bytes = std::vector<uint8_t>;

// `n` rounded up to a multiple of `to`: offsets and sizes in both Mach-O writers.
inline uint64_t roundUp(uint64_t n, uint64_t to) { return (n + to - 1) / to * to; }

// Either the new file's bytes or the reason it cannot be made.
struct Outcome {
  std::optional<Bytes> file;
  std::string error;
  std::vector<std::string> warnings;
};

enum class Format { Elf, MachO, Universal, Unknown };
Format detectFormat(std::span<const uint8_t> file, std::string* reason);

// The region for a property list's bytes.
Bytes makeRegion(std::span<const uint8_t> propertyList);

// A copy of `file` carrying `region`; an existing region is replaced. Mach-O copies lose
// their code signature and must be signed again.
Outcome embedInElf(std::span<const uint8_t> file, std::span<const uint8_t> region);
Outcome embedInMachO(std::span<const uint8_t> file, std::span<const uint8_t> region);
Outcome embedInUniversal(std::span<const uint8_t> file, std::span<const uint8_t> region);

// The region a file carries, exactly as the launcher would find it; absent when none.
std::optional<Bytes> regionInElf(std::span<const uint8_t> file);
std::optional<Bytes> regionInMachO(std::span<const uint8_t> file);
// The region of the first 64-bit slice that carries one.
std::optional<Bytes> regionInUniversal(std::span<const uint8_t> file);

}  // namespace bwk::embed
