#pragma once
// Export options from the command line: "FIELD=VALUE" assignments to the
// fields of ExportOptions, by their stored names ("format=tiff",
// "quality=0.8", "watermarkPosition=bottomLeft"), shared by
// `export-options set` and the options of an export run.

#include <string>

#include "engine/export/export_options.h"

namespace lumivale::cli {

/// Sets the field an assignment names: a number field from a decimal number
/// (quality and watermarkOpacity 0 to 1, watermarkSize above 0 up to 100,
/// sizeValue 0 or more), a switch from true/false (yes/no, on/off, 1/0),
/// a choice from one of its keys, a text field from the rest of the
/// assignment as it is. A UsageError names the field and what it takes;
/// `options` is then unchanged.
void applyExportSetting(ExportOptions& options, const std::string& assignment);

}  // namespace lumivale::cli
