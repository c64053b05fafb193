#pragma once
// Editing settings by field path: "exposure", "hsl.5.saturation",
// "crop.w", "masks.0.adjust.exposure". A path names a key of the stored
// form, then keys or indexes separated by dots; the value is JSON in the
// stored form of what the path ends at, a whole record or list too
// (curveRGB='{"points":[...]}'), or for a text field any text as it stands
// that is not a JSON string. A value must be kept exactly as given: `hsl`
// takes eight bands, and text must be UTF-8.

#include <stdexcept>
#include <string>
#include <vector>

#include "engine/edit/edit_settings.h"

namespace lumivale {

/// One change: the field's path and the new value's text.
struct FieldEdit {
  std::string path;
  std::string value;
  bool operator==(const FieldEdit&) const = default;
};

/// A path that names no field, an index out of range, or a value the field
/// cannot hold. The message is one line naming the path.
class FieldPathError : public std::runtime_error {
 public:
  explicit FieldPathError(const std::string& message) : std::runtime_error(message) {}
};

/// `settings` with every edit applied in order (a later edit of the same
/// field wins). All or nothing: throws FieldPathError and changes nothing
/// when any edit cannot be applied exactly as given.
EditSettings applyFieldEdits(const EditSettings& settings, const std::vector<FieldEdit>& edits);

/// Splits "FIELD=VALUE" at its first "="; throws FieldPathError when there is none.
FieldEdit parseFieldEdit(const std::string& assignment);

}  // namespace lumivale
