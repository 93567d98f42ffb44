#pragma once
// Reading of the application icon container (.icns). gdk-pixbuf understands only a few of
// its chunk types, so the launcher picks the image itself.
#include <string>
#include <string_view>

namespace bwk::icns {

// The PNG data of the largest image (by the pixel count in its header) among the chunks
// that may hold PNG (ic07 to ic14, icp4 to icp6); empty when there is none or the container
// is not one. Chunks that run past the end of the data end the walk.
std::string largestPng(std::string_view container);

}  // namespace bwk::icns
