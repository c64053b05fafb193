#pragma once
// Catalog times are seconds since 1970-01-01 UTC held in a double.

namespace lumivale {

/// The current time in seconds since 1970-01-01 UTC.
double nowSeconds();

}  // namespace lumivale
