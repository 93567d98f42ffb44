#include "launcher_copy.h"

#include "base/fs.h"
#include "base/path.h"
#include "elf_strip.h"
#include "embed/embed.h"
#include "platform/platform.h"

namespace bwk::bundle {

std::optional<PreparedLauncher> prepareLauncher(const std::string& path,
                                                const std::optional<std::string>& configuration, std::string* error) {
  std::optional<std::string> contents = fs::readFile(path);
  if (!contents) {
    *error = path + ": cannot be read";
    return std::nullopt;
  }
  std::span<const uint8_t> file(reinterpret_cast<const uint8_t*>(contents->data()), contents->size());
  PreparedLauncher prepared{{}, contents->size()};
  std::string reason;
  embed::Format format = embed::detectFormat(file, &reason);
  if (format == embed::Format::Unknown) {
    *error = path + ": " + reason;
    return std::nullopt;
  }
  if (format == embed::Format::Elf) {
    std::optional<std::vector<uint8_t>> stripped = stripElf(file, &reason);
    if (!stripped) {
      *error = path + ": cannot be stripped: " + reason;
      return std::nullopt;
    }
    prepared.bytes = std::move(*stripped);
  } else {
    prepared.bytes.assign(file.begin(), file.end());
  }
  if (!configuration) return prepared;

  embed::Bytes region = embed::makeRegion(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(configuration->data()), configuration->size()));
  embed::Outcome outcome = format == embed::Format::Elf ? embed::embedInElf(prepared.bytes, region)
                                                        : embed::embedInMachO(prepared.bytes, region);
  if (!outcome.file) {
    *error = path + ": the configuration cannot be embedded: " + outcome.error;
    return std::nullopt;
  }
  prepared.bytes = std::move(*outcome.file);
  return prepared;
}

std::optional<std::string> defaultLauncherPath() {
  std::optional<std::string> self = platform::executablePath();
  if (!self) return std::nullopt;
  return path::append(path::parent(*self), "brackwood-launcher");
}

}  // namespace bwk::bundle
