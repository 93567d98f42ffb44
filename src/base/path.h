#pragma once
// Path text with the platform's rules (not std::filesystem's normalisation, which differs).
#include <string>
#include <string_view>
#include <vector>

namespace bwk::path {

// "/" or "~" at the start.
bool isAbsolute(std::string_view p);
// A leading "~" or "~/..." becomes the home directory; "~user" is left alone.
std::string expandTilde(std::string_view p);
// Leading "~" expanded, empty and "." components collapsed, ".." resolved lexically (a ".."
// above the root of an absolute path stays at the root; leading ".." of a relative path is
// kept), trailing separator removed.
std::string standardize(std::string_view p);
// Appends a component with one separator between; separators doubled by the join and a
// trailing separator are removed. An empty component leaves the path as it is.
std::string append(std::string_view base, std::string_view component);
// Joins every component in turn (pathWithComponents:).
std::string join(const std::vector<std::string>& components);
// "/a/b.txt" -> "b.txt"; "/a/b/" -> "b"; "/" -> "/"; "" -> "".
std::string lastComponent(std::string_view p);
// "/a/b" -> "/a"; "/a" -> "/"; "/" -> "/"; "b" -> "".
std::string parent(std::string_view p);
// The text after the last "." of the last component, "" when there is none.
std::string extension(std::string_view p);
// The components after the root, in order ("/a//b/" -> a, b).
std::vector<std::string> components(std::string_view p);

}  // namespace bwk::path
