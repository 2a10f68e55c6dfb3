// Internals of bundles, for tests: a bundle for any executable.
#ifndef KIV_PLATFORM_BUNDLE_H
#define KIV_PLATFORM_BUNDLE_H

#include <CoreFoundation/CFBundle.h>

namespace kiv::cf
{
// Returns the bundle of an executable by its absolute path; null without memory or for a path without "/".
[[nodiscard]] CFBundleRef createBundle(const char *executable) noexcept;
} // namespace kiv::cf

#endif
