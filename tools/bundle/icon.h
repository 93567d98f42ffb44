#pragma once
// The application icon: a PNG image wrapped into an .icns container, and what is wrong with
// a container the launcher would read.
#include <optional>
#include <string>
#include <string_view>

namespace bwk::bundle {

struct WrappedIcon {
  std::string icns;
  // Set when the image's size is none of the container's standard sizes.
  std::string warning;
};

// Absent, with the reason, when `png` is no PNG image.
std::optional<WrappedIcon> icnsFromPng(std::string_view png, std::string* error);

// What makes an .icns file unusable, or absent when the container is sound and holds a PNG
// image the progress window can show.
std::optional<std::string> icnsProblem(std::string_view container);

}  // namespace bwk::bundle
