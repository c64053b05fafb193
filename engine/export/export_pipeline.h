#pragma once
// Exporting photos: one catalog photo and its settings to one new file, and
// a batch of them with progress.
//
// One photo goes through these steps, each failing with its own ExportError:
// open the file (PhotoSource), decode it (reduced below an output scale of
// 0.45), render with the output effects, scale to the exact output size
// (Lanczos), sharpen for the medium, convert to the output space and depth
// with its ICC profile, draw the watermark, encode with the metadata the
// policy allows, and write the file under a name no other file has, without
// ever replacing one. The chain stays lazy until the encoder pulls it, strip
// by strip, on libvips' threads; the encoded file is held in memory (the
// metadata is added there) and written to a temporary file beside its final
// name before it takes that name.
//
// A batch runs two photos at once, so both cores stay busy while one photo
// waits on a step that runs on one thread (a JPEG decoder, a deflate
// stream). Each photo is rendered on its own; only the naming is ordered:
// photos take their names in batch order, so which of two photos called
// IMG_1.jpg becomes "IMG_1 2.jpg" never depends on which finished first.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "engine/catalog/photo_record.h"
#include "engine/edit/edit_settings.h"
#include "engine/export/export_options.h"
#include "engine/export/exporter.h"
#include "engine/media/safe_file.h"
#include "engine/render/photo_renderer.h"

namespace lumivale {

class PhotoLibrary;

/// What the export of one photo needs from the catalog, copied out of it so
/// that the work runs without touching the catalog.
struct ExportJob {
  PhotoRecord record;
  EditSettings settings;
  std::vector<std::string> keywords;
  int sequence = 1;  ///< 1-based place in the batch, for custom names
};

/// The outcome of one photo of a batch: the file written, or the error; both
/// empty when the batch was cancelled before the photo's turn.
struct ExportResult {
  std::filesystem::path file;
  std::optional<ExportError> error;

  bool written() const { return !file.empty(); }
};

namespace Exporter {

/// Photos of a batch in flight at once.
inline constexpr int photosInFlight = 2;

/// The jobs for `ids`, in that order and numbered from 1: each photo's
/// record, current settings and keywords. Ids that name no photo are left
/// out (the sequence numbers stay consecutive). Reads only; never throws.
std::vector<ExportJob> exportJobs(PhotoLibrary& library, const std::vector<std::int64_t>& ids);

/// The sizes one export works with.
struct ExportPlan {
  PixelSize developed;               ///< the developed (cropped) size, truncated to whole pixels, at least 1
  PixelSize output;                  ///< `outputSize` of the developed size
  std::optional<int> decodeMaxSide;  ///< `decodeMaxSide` of the output's scale; nothing for full size
  bool operator==(const ExportPlan&) const = default;
};

/// The plan for a photo of `fullSize` (upright) with `settings`.
ExportPlan plan(Size fullSize, const EditSettings& settings, const ExportOptions& options);

/// One photo encoded with its metadata, lying in a temporary file in the
/// destination folder until `finish` names it.
struct PreparedExport {
  PendingFile file;
  std::string name;  ///< base name, before `safeName` and numbering
  ExportFormat format;
};

/// Every step of an export but the naming: the file is complete when this
/// returns. Throws ExportError with the message of the step that failed;
/// nothing is left in `folder` then. Thread-safe for different jobs
/// sharing `renderer`.
PreparedExport prepare(const ExportJob& job, const ExportOptions& options, PhotoRenderer& renderer,
                       const std::filesystem::path& folder);

/// Gives a prepared export its name: the first of "name.ext", "name 2.ext",
/// "name 3.ext", ... free at that moment (a name taken meanwhile, even by
/// another program, is passed over). Returns the file. Throws ExportError
/// "Could not write <name.ext>"; the prepared file is removed then.
std::filesystem::path finish(PreparedExport prepared, const std::filesystem::path& folder);

/// Exports one photo into `folder`: `prepare` then `finish`.
std::filesystem::path exportPhoto(const ExportJob& job, const ExportOptions& options, PhotoRenderer& renderer,
                                  const std::filesystem::path& folder);

/// Called after each photo with the photos done so far and the total.
using ExportProgress = std::function<void(int done, int total)>;

/// Exports every job into `folder` with `photosInFlight` photos at a time,
/// all rendered by `renderer`, and returns one result per job in job order.
/// A failed photo does not stop the others. `progress` is called from the
/// batch's threads, one call at a time, with `done` rising by one each call.
/// Once `stop` is requested no further photo is started; photos under way
/// are finished.
std::vector<ExportResult> exportBatch(const std::vector<ExportJob>& jobs, const ExportOptions& options,
                                      PhotoRenderer& renderer, const std::filesystem::path& folder,
                                      const ExportProgress& progress = {}, std::stop_token stop = {});

}  // namespace Exporter
}  // namespace lumivale
