#pragma once
// Helpers of the metadata tests: the info panel's rows by label.

#include <optional>
#include <string>
#include <vector>

#include "engine/catalog/photo_meta.h"

namespace lumivale::test {

/// The value of the row labelled `label`, or nothing.
inline std::optional<std::string> valueOf(const std::vector<DetailRow>& rows, const std::string& label) {
  for (const DetailRow& row : rows) {
    if (row.label == label) return row.value;
  }
  return std::nullopt;
}

/// The rows as "label: value" joined with "; ", to compare whole lists.
inline std::string joined(const std::vector<DetailRow>& rows) {
  std::string text;
  for (const DetailRow& row : rows) text += (text.empty() ? "" : "; ") + row.label + ": " + row.value;
  return text;
}

}  // namespace lumivale::test
