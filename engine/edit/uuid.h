#pragma once
// Random identifiers for masks.

#include <string>

namespace lumivale {

/// A new random (version 4, RFC 4122 variant) UUID in its standard text form
/// with upper-case hex digits, e.g. "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
/// Safe to call from any thread.
std::string newUUID();

}  // namespace lumivale
