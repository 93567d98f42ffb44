// The embedded configuration on macOS: a note load command of the main executable's mapped
// image, walked in memory.
#include <mach-o/dyld.h>

#include "platform/embedded_config.h"
#include "platform/macho_note.h"

namespace bwk::platform {

std::optional<EmbeddedRegion> embeddedConfigurationRegion() {
  return macho::findEmbeddedRegion(_dyld_get_image_header(0), _dyld_get_image_vmaddr_slide(0));
}

}  // namespace bwk::platform
