#pragma once
// A copy of an ELF executable without its debugging information and its symbol table: what
// a launcher copied into every application needs to carry is only what it loads.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace bwk::bundle {

// The stripped file, or absent with the reason when the file is no 64-bit little-endian
// ELF file with a section table this code understands.
std::optional<std::vector<uint8_t>> stripElf(std::span<const uint8_t> file, std::string* error);

}  // namespace bwk::bundle
