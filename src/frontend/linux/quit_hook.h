#pragma once
// The quit hook of the Java side: an already loaded support library may take over quitting.

namespace bwk {

// Looks for a loaded "libbwkinst.so" (nothing new is loaded) and calls its
// callBrackwoodQuitHandler. True when the hook took over (terminate later); false without
// library, symbol, or when the hook declines (terminate now).
bool callQuitHook();

}  // namespace bwk
