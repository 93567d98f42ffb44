#pragma once
// What a JDK holds that no start of an application needs: the modules packed for jlink
// (jmods/), the sources, C headers, manual pages, demos and documentation. Licences (legal/)
// and the release file stay: the first must travel with the runtime, the launcher reads the
// second.
#include <cstdint>
#include <string>
#include <vector>

#include "runtime_shipping.h"

namespace bwk::bundle {

// Marks the parts of the runtime that are present and unneeded as left out; gives their
// names as a person reads them ("jmods/", "lib/src.zip"), empty when there are none.
std::vector<std::string> leaveOutUnneeded(ShippedRuntime& runtime);

// The bytes of the files the runtime ships, what it leaves out not counted, links that
// leave it counted as what they point to (as they are copied).
uint64_t shippedSize(const ShippedRuntime& runtime);

}  // namespace bwk::bundle
