#pragma once
// Signing the written Mach-O copy again: the embedding removed its signature, and a Mac with
// Apple silicon does not run unsigned code.
#include <string>

namespace bwk::embed {

// With `codesign` on PATH and `sign` set, signs `output` ad hoc (codesign --force -s -);
// otherwise tells the user to sign it. Writes one line on standard error either way. False
// when codesign ran and failed.
bool signAgain(const std::string& output, bool sign);

}  // namespace bwk::embed
