// What the words of service discovery need on this machine.
#ifndef KIV_TOOL_DISCOVERY_H
#define KIV_TOOL_DISCOVERY_H

namespace tool
{

/// Returns whether this process can search and publish services: through the Avahi daemon, or with Avahi's
/// libraries and the descriptors that they take. Tries it, which takes milliseconds.
[[nodiscard]] bool canDiscover();

} // namespace tool

#endif
