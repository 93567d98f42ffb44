// The Mach-O side (64-bit, little-endian): a note load command in the header's padding
// before the first section's contents, and the data appended at the end of the file inside
// a grown __LINKEDIT segment, the last segment of the file. A code signature is removed
// first: the note would break it, and the copy has to be signed again anyway.
#include <algorithm>
#include <cstring>

#include "embed.h"
#include "platform/elf_note.h"
#include "platform/macho_note.h"

namespace bwk::embed {

namespace {

using elf::le32;
using elf::le64;
using elf::putLe32;
using elf::putLe64;

constexpr uint32_t kLoadCommandCodeSignature = 0x1d;
constexpr uint32_t kLinkeditDataCommandSize = 16;  // linkedit_data_command
constexpr uint32_t kCpuTypeArm64 = 0x0100000c;
constexpr uint64_t kPage = 0x4000;  // the largest page size of the platform's processors

struct Segment {
  size_t command = 0;  // offset of its load command in the file
  std::string name;
  uint64_t vmaddr = 0, vmsize = 0, fileoff = 0, filesize = 0;
};

struct Commands {
  uint32_t count = 0, size = 0;
  std::vector<Segment> segments;
  std::optional<size_t> note;       // offset of our note command
  std::optional<size_t> signature;  // offset of the LC_CODE_SIGNATURE command
  uint64_t firstContent = 0;        // the lowest file offset of section or segment contents
};

bool isZeroFill(uint32_t flags) {
  uint32_t type = flags & 0xff;
  return type == 0x1 || type == 0xc || type == 0x12;  // S_ZEROFILL, S_GB_ZEROFILL, S_THREAD_LOCAL_ZEROFILL
}

std::optional<Commands> readCommands(std::span<const uint8_t> file, std::string& error) {
  Commands c;
  if (file.size() < macho::kHeaderSize) {
    error = "too short for a Mach-O header";
    return std::nullopt;
  }
  c.count = le32(file.data() + 16);
  c.size = le32(file.data() + 20);
  uint64_t end = macho::kHeaderSize + uint64_t{c.size};
  if (end > file.size()) {
    error = "the load commands run past the end of the file";
    return std::nullopt;
  }
  c.firstContent = file.size();
  uint64_t at = macho::kHeaderSize;
  for (uint32_t i = 0; i < c.count; ++i) {
    if (at + 8 > end || le32(file.data() + at + 4) < 8 || le32(file.data() + at + 4) > end - at) {
      error = "malformed load commands";
      return std::nullopt;
    }
    const uint8_t* cmd = file.data() + at;
    uint32_t type = le32(cmd), size = le32(cmd + 4);
    if (type == macho::kLoadCommandSegment64 && size >= macho::kSegmentCommandSize) {
      Segment s;
      s.command = at;
      s.name.assign(reinterpret_cast<const char*>(cmd + 8), strnlen(reinterpret_cast<const char*>(cmd + 8), 16));
      s.vmaddr = le64(cmd + 24);
      s.vmsize = le64(cmd + 32);
      s.fileoff = le64(cmd + 40);
      s.filesize = le64(cmd + 48);
      if (s.fileoff > 0 && s.filesize > 0) c.firstContent = std::min(c.firstContent, s.fileoff);
      uint32_t sections = le32(cmd + 64);
      for (uint32_t k = 0; k < sections && macho::kSegmentCommandSize + (k + 1) * macho::kSectionSize <= size; ++k) {
        const uint8_t* section = cmd + macho::kSegmentCommandSize + k * macho::kSectionSize;
        uint32_t offset = le32(section + 48), flags = le32(section + 64);
        if (offset > 0 && !isZeroFill(flags)) c.firstContent = std::min<uint64_t>(c.firstContent, offset);
      }
      c.segments.push_back(s);
    } else if (type == macho::kLoadCommandNote && size >= macho::kNoteCommandSize &&
               std::memcmp(cmd + 8, macho::NOTE_OWNER, sizeof macho::NOTE_OWNER) == 0 && !c.note) {
      c.note = at;
    } else if (type == kLoadCommandCodeSignature) {
      if (c.signature) {
        error = "more than one code signature";
        return std::nullopt;
      }
      c.signature = at;
    }
    at += size;
  }
  return c;
}

const Segment* findLinkedit(const Commands& commands, std::string& error) {
  auto linkedit = std::find_if(commands.segments.begin(), commands.segments.end(),
                               [](const Segment& s) { return s.name == "__LINKEDIT"; });
  if (linkedit == commands.segments.end()) {
    error = "no __LINKEDIT segment to hold the configuration";
    return nullptr;
  }
  for (const Segment& s : commands.segments) {
    if (&s != &*linkedit && s.filesize > 0 && s.fileoff + s.filesize > linkedit->fileoff) {
      error = "__LINKEDIT is not the last segment of the file";
      return nullptr;
    }
  }
  return &*linkedit;
}

// The file without its signature: the command goes (the commands after it move up, the
// freed bytes are zeroed), the file ends where the signature's data began, and __LINKEDIT
// shrinks to match.
std::optional<Bytes> withoutSignature(std::span<const uint8_t> file, const Commands& commands, const Segment& linkedit,
                                      std::string& error) {
  size_t at = *commands.signature;
  uint32_t size = le32(file.data() + at + 4);
  if (size != kLinkeditDataCommandSize) {
    error = "malformed code signature command";
    return std::nullopt;
  }
  uint64_t dataOffset = le32(file.data() + at + 8);
  uint64_t dataEnd = dataOffset + le32(file.data() + at + 12);
  uint64_t linkeditEnd = linkedit.fileoff + linkedit.filesize;
  // The signature covers everything before it, so it is the last thing in __LINKEDIT; at
  // most alignment padding follows it.
  if (dataOffset < linkedit.fileoff || dataEnd > linkeditEnd || roundUp(dataEnd, 16) < linkeditEnd ||
      dataEnd > file.size()) {
    error = "the code signature is not the end of __LINKEDIT";
    return std::nullopt;
  }
  Bytes out(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(dataOffset));
  uint64_t commandsEnd = macho::kHeaderSize + uint64_t{commands.size};
  std::memmove(out.data() + at, out.data() + at + size, commandsEnd - at - size);
  std::memset(out.data() + commandsEnd - size, 0, size);
  putLe32(out.data() + 16, commands.count - 1);
  putLe32(out.data() + 20, commands.size - size);

  size_t segment = linkedit.command > at ? linkedit.command - size : linkedit.command;
  uint64_t filesize = dataOffset - linkedit.fileoff;
  uint64_t page = le32(file.data() + 4) == kCpuTypeArm64 ? 0x4000 : 0x1000;
  putLe64(out.data() + segment + 32, std::min(linkedit.vmsize, roundUp(filesize, page)));
  putLe64(out.data() + segment + 48, filesize);
  return out;
}

}  // namespace

std::optional<Bytes> regionInMachO(std::span<const uint8_t> file) {
  std::optional<macho::NoteLocation> note = macho::findNote(file);
  if (!note || note->dataOffset > file.size() || note->dataSize > file.size() - note->dataOffset) return std::nullopt;
  return Bytes(file.begin() + static_cast<std::ptrdiff_t>(note->dataOffset),
               file.begin() + static_cast<std::ptrdiff_t>(note->dataOffset + note->dataSize));
}

namespace {

// A new note command goes right after the last load command: there must be zero bytes there.
std::optional<std::string> roomForNoteCommand(std::span<const uint8_t> file, const Commands& commands,
                                              uint64_t commandsEnd) {
  uint64_t room = commands.firstContent > commandsEnd ? commands.firstContent - commandsEnd : 0;
  if (room < macho::kNoteCommandSize)
    return "no room for a note load command after the load commands (" + std::to_string(room) + " bytes free, " +
           std::to_string(macho::kNoteCommandSize) + " needed)";
  for (uint64_t i = commandsEnd; i < commandsEnd + macho::kNoteCommandSize; ++i)
    if (file[i] != 0) return "the space after the load commands is in use";
  return std::nullopt;
}

// The data goes at the end of the file; a previous embedding's data there is replaced
// (a signature made after it began at the next 16-byte boundary).
uint64_t noteDataOffset(std::span<const uint8_t> file, const Commands& commands, const Segment& linkedit) {
  if (commands.note) {
    uint64_t oldOffset = le64(file.data() + *commands.note + 24), oldSize = le64(file.data() + *commands.note + 32);
    if (oldOffset >= linkedit.fileoff && oldOffset <= file.size() && oldSize <= file.size() - oldOffset &&
        roundUp(oldOffset + oldSize, 16) >= file.size())
      return oldOffset;
  }
  return roundUp(file.size(), 8);
}

// __LINKEDIT is made to cover the file to its new end, unless it would then overlap
// another segment in memory.
std::optional<std::string> growLinkedit(Bytes& out, const Commands& commands, const Segment& linkedit) {
  uint64_t filesize = out.size() - linkedit.fileoff;
  uint64_t vmsize = std::max(linkedit.vmsize, roundUp(filesize, kPage));
  for (const Segment& s : commands.segments) {
    if (&s != &linkedit && s.vmsize > 0 && s.vmaddr < linkedit.vmaddr + vmsize && linkedit.vmaddr < s.vmaddr + s.vmsize)
      return "the grown __LINKEDIT would overlap segment " + s.name;
  }
  putLe64(out.data() + linkedit.command + 32, vmsize);
  putLe64(out.data() + linkedit.command + 48, filesize);
  return std::nullopt;
}

// Points the note command (the existing one, or a new one counted in the header) at the data.
void writeNoteCommand(Bytes& out, const Commands& commands, uint64_t commandsEnd, uint64_t dataOffset,
                      uint64_t dataSize) {
  uint8_t* note;
  if (commands.note) {
    note = out.data() + *commands.note;
  } else {
    note = out.data() + commandsEnd;
    putLe32(note, macho::kLoadCommandNote);
    putLe32(note + 4, macho::kNoteCommandSize);
    std::memcpy(note + 8, macho::NOTE_OWNER, sizeof macho::NOTE_OWNER);
    putLe32(out.data() + 16, commands.count + 1);
    putLe32(out.data() + 20, commands.size + static_cast<uint32_t>(macho::kNoteCommandSize));
  }
  putLe64(note + 24, dataOffset);
  putLe64(note + 32, dataSize);
}

}  // namespace

Outcome embedInMachO(std::span<const uint8_t> file, std::span<const uint8_t> region) {
  Outcome outcome;
  std::optional<Commands> commands = readCommands(file, outcome.error);
  if (!commands) return outcome;
  const Segment* linkedit = findLinkedit(*commands, outcome.error);
  if (!linkedit) return outcome;

  std::optional<Bytes> unsignedFile;
  if (commands->signature) {
    unsignedFile = withoutSignature(file, *commands, *linkedit, outcome.error);
    if (!unsignedFile) return outcome;
    file = *unsignedFile;
    commands = readCommands(file, outcome.error);
    if (!commands) return outcome;
    linkedit = findLinkedit(*commands, outcome.error);
    if (!linkedit) return outcome;
  }

  uint64_t commandsEnd = macho::kHeaderSize + uint64_t{commands->size};
  if (!commands->note) {
    if (std::optional<std::string> error = roomForNoteCommand(file, *commands, commandsEnd)) {
      outcome.error = *error;
      return outcome;
    }
  }
  uint64_t dataOffset = noteDataOffset(file, *commands, *linkedit);
  if (dataOffset < linkedit->fileoff) {
    outcome.error = "__LINKEDIT lies past the end of the file";
    return outcome;
  }

  Bytes out(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(std::min<uint64_t>(dataOffset, file.size())));
  out.resize(dataOffset, 0);
  out.insert(out.end(), region.begin(), region.end());
  out.resize(roundUp(out.size(), 8), 0);
  if (std::optional<std::string> error = growLinkedit(out, *commands, *linkedit)) {
    outcome.error = *error;
    return outcome;
  }
  writeNoteCommand(out, *commands, commandsEnd, dataOffset, region.size());
  outcome.file = std::move(out);
  return outcome;
}

}  // namespace bwk::embed
