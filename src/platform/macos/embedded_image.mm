// The embedded configuration on macOS lives in the main executable's mapped image; the
// entry layer walks its load commands.
#include <mach-o/dyld.h>

#include "platform/embedded_image.h"

namespace bwk::platform {

std::optional<MappedImage> mainExecutableImage() {
  const struct mach_header* header = _dyld_get_image_header(0);
  if (!header) return std::nullopt;
  return MappedImage{header, _dyld_get_image_vmaddr_slide(0)};
}

std::optional<FileRegion> executableFileRegion() { return std::nullopt; }

}  // namespace bwk::platform
