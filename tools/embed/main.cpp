// brackwood-embed: makes a command-line launcher by writing a copy of the launcher that
// carries a configuration, and shows the configuration an executable carries.
//   brackwood-embed [--no-sign] <launcher> <config.plist> <output>
//   brackwood-embed --print <executable>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/plist_reader.h"
#include "embed.h"
#include "signing.h"

namespace {

using bwk::embed::Bytes;

int fail(const std::string& message) {
  std::fprintf(stderr, "brackwood-embed: %s\n", message.c_str());
  return 1;
}

std::optional<Bytes> readWholeFile(const std::string& path, std::string& error) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = path + ": " + std::strerror(errno);
    return std::nullopt;
  }
  Bytes bytes;
  uint8_t buffer[65536];
  for (;;) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error = path + ": " + std::strerror(errno);
      close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    bytes.insert(bytes.end(), buffer, buffer + n);
  }
  close(fd);
  return bytes;
}

// Writes beside the output first and renames, so a failure never leaves half a file.
bool writeExecutable(const std::string& path, const Bytes& bytes, std::string& error) {
  std::string temporary = path + ".XXXXXX";
  int fd = mkstemp(temporary.data());
  if (fd < 0) {
    error = path + ": " + std::strerror(errno);
    return false;
  }
  size_t written = 0;
  while (written < bytes.size()) {
    ssize_t n = write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    written += static_cast<size_t>(n);
  }
  bool ok = written == bytes.size() && fchmod(fd, 0755) == 0;
  if (!ok) error = path + ": " + std::strerror(errno);
  if (close(fd) != 0 && ok) {
    ok = false;
    error = path + ": " + std::strerror(errno);
  }
  if (ok && rename(temporary.c_str(), path.c_str()) != 0) {
    ok = false;
    error = path + ": " + std::strerror(errno);
  }
  if (!ok) unlink(temporary.c_str());
  return ok;
}

bool sameFile(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

int print(const std::string& path) {
  std::string error;
  std::optional<Bytes> file = readWholeFile(path, error);
  if (!file) return fail(error);
  std::string reason;
  std::optional<Bytes> region;
  switch (bwk::embed::detectFormat(*file, &reason)) {
    case bwk::embed::Format::Elf: region = bwk::embed::regionInElf(*file); break;
    case bwk::embed::Format::MachO: region = bwk::embed::regionInMachO(*file); break;
    case bwk::embed::Format::Universal: region = bwk::embed::regionInUniversal(*file); break;
    case bwk::embed::Format::Unknown: return fail(path + ": " + reason);
  }
  // The launcher's rule: fewer than five bytes is no configuration.
  if (!region || region->size() < 5) {
    std::fprintf(stderr, "%s carries no configuration\n", path.c_str());
    return 1;
  }
  uint32_t length = static_cast<uint32_t>((*region)[0] | ((*region)[1] << 8) | ((*region)[2] << 16)) |
                    (static_cast<uint32_t>((*region)[3]) << 24);
  if (length > region->size() - 4) return fail(path + ": the configuration's length exceeds its note");
  std::fwrite(region->data() + 4, 1, length, stdout);
  return std::fflush(stdout) == 0 ? 0 : 1;
}

int embed(const std::string& launcher, const std::string& configuration, const std::string& output, bool sign) {
  std::string error;
  std::optional<Bytes> plist = readWholeFile(configuration, error);
  if (!plist) return fail(error);
  std::optional<bwk::PlistValue> parsed =
      bwk::readPropertyList(std::string_view(reinterpret_cast<const char*>(plist->data()), plist->size()), &error);
  if (!parsed) return fail(configuration + ": not a property list: " + error);
  if (!parsed->isDictionary()) return fail(configuration + ": the configuration must be a dictionary");
  if (plist->size() > 0xffffffffu - 4) return fail(configuration + ": too large");

  std::optional<Bytes> file = readWholeFile(launcher, error);
  if (!file) return fail(error);
  if (sameFile(launcher, output)) return fail(output + ": the output must not be the input");

  std::string reason;
  bwk::embed::Bytes region = bwk::embed::makeRegion(*plist);
  bwk::embed::Outcome outcome;
  bwk::embed::Format format = bwk::embed::detectFormat(*file, &reason);
  switch (format) {
    case bwk::embed::Format::Elf: outcome = bwk::embed::embedInElf(*file, region); break;
    case bwk::embed::Format::MachO: outcome = bwk::embed::embedInMachO(*file, region); break;
    case bwk::embed::Format::Universal: outcome = bwk::embed::embedInUniversal(*file, region); break;
    case bwk::embed::Format::Unknown: return fail(launcher + ": " + reason);
  }
  if (!outcome.file) return fail(launcher + ": " + outcome.error);
  for (const std::string& warning : outcome.warnings)
    std::fprintf(stderr, "brackwood-embed: warning: %s\n", warning.c_str());
  if (!writeExecutable(output, *outcome.file, error)) return fail(error);
  if (format == bwk::embed::Format::Elf) return 0;
  return bwk::embed::signAgain(output, sign) ? 0 : 1;
}

int usage() {
  std::fprintf(stderr,
               "usage: brackwood-embed [--no-sign] <launcher> <config.plist> <output>\n"
               "       brackwood-embed --print <executable>\n"
               "A Mach-O output is signed ad hoc with codesign when it is on PATH, unless --no-sign.\n");
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--print") == 0) return print(argv[2]);
  if (argc == 4 && argv[1][0] != '-') return embed(argv[1], argv[2], argv[3], true);
  if (argc == 5 && std::strcmp(argv[1], "--no-sign") == 0 && argv[2][0] != '-')
    return embed(argv[2], argv[3], argv[4], false);
  return usage();
}
