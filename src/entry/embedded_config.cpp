// Finds the configuration the executable carries: in its mapped Mach-O image where there is
// one, else in its file.
#include "entry/entry.h"
#include "entry/macho_note.h"
#include "platform/embedded_image.h"

namespace bwk {

std::optional<EmbeddedRegion> findEmbeddedConfiguration() {
  if (std::optional<platform::MappedImage> image = platform::mainExecutableImage())
    return macho::findEmbeddedRegion(image->header, image->slide);
  if (std::optional<platform::FileRegion> region = platform::executableFileRegion())
    return EmbeddedRegion{region->address, region->size};
  return std::nullopt;
}

}  // namespace bwk
