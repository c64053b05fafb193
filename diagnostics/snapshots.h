#pragma once
// The snapshot renderer: a fixed set of synthetic scenes developed with the
// default settings, each built-in look, a few strong single settings and
// each kind of mask, written as PNG files named by what they show, with an
// index.html contact sheet. A bug report attaches them; the test suite
// compares them with reference pictures, so that any change of rendering
// shows up as a changed picture.
//
// Files are only ever added: a name that is taken gets the next number
// ("portrait-default 2.png"), as exports do.

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/synthetic_scenes.h"
#include "engine/edit/edit_settings.h"
#include "engine/media/image.h"

namespace lumivale::diagnostics {

/// The size of every snapshot: small, so the reference pictures stay light.
inline constexpr int snapshotWidth = 256;
inline constexpr int snapshotHeight = 171;

/// One picture of the set.
struct SnapshotEntry {
  std::string name;     ///< the file name without extension: "portrait-mask-subject"
  std::string section;  ///< the contact sheet's heading: "Default settings", "Looks", …
  std::string caption;  ///< what it shows, for people: "Portrait, Select Subject"
  Scene scene = Scene::greyRamp;
  EditSettings settings;  ///< smart masks without their bitmap: computed when rendered
};

/// The fixed set, in the order of the contact sheet.
const std::vector<SnapshotEntry>& snapshotSet();

/// The developed picture of `entry` at the snapshot size, in the working
/// space. A smart mask gets its coverage from the scene as the app would
/// compute it. Nothing when that cannot be computed here (no subject
/// model); `why` then says so. Throws what the renderer throws.
std::optional<Image> renderSnapshot(const SnapshotEntry& entry, std::string* why = nullptr);

/// The PNG file's bytes of a developed picture: 8-bit sRGB with its profile.
std::string snapshotPng(const Image& developed);

/// Writes the set into `folder` (made when missing), then index.html, and
/// tells each file written on `out`. Returns the exit status: 0; 1 with a
/// message on `err` when the folder is a file, cannot be made or written, or
/// a picture fails. Pictures that cannot be computed here are left out and
/// named on `err` and in the sheet.
int writeSnapshots(const std::filesystem::path& folder, std::ostream& out, std::ostream& err);

}  // namespace lumivale::diagnostics
