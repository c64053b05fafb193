#pragma once
// Helpers of the metadata tests: the real photos under tests/data, and the
// info panel's rows by label.

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "engine/catalog/photo_meta.h"

namespace lumivale::test {

inline std::string realPhoto(const std::string& name) {
  return std::string(LUMIVALE_TEST_DATA) + "/photos/" + name;
}

/// Sets the process time zone for one test and restores it afterwards.
class TimeZone {
 public:
  explicit TimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) saved = old;
    set(tz);
  }
  ~TimeZone() { saved ? set(saved->c_str()) : void(unsetenv("TZ")), tzset(); }

 private:
  static void set(const char* tz) { setenv("TZ", tz, 1), tzset(); }
  std::optional<std::string> saved;
};

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
