// Export of photos from the model: the options are the user's choice, the
// photos are written one after another on the export pool, and progress and
// the summary come back to the main thread.

#include <cmath>

#include "app/model/model_impl.h"
#include "app/model/vesk_model.h"
#include "engine/export/exporter.h"
#include "engine/media/bitmap.h"
#include "engine/media/image_encoder.h"
#include "engine/media/output_metadata.h"
#include "engine/render/filters/resample.h"

namespace lumivale::app {

namespace {

// Writes one photo as the options say; returns the file written. Throws
// ExportError.
std::filesystem::path exportOne(PhotoLibrary& library, const PhotoRecord& record,
                                const ExportOptions& options, const std::filesystem::path& folder,
                                int sequence) {
  std::optional<PhotoSource> source;
  try {
    source.emplace(PhotoSource::open(record.path));
  } catch (const std::exception&) {
    throw ExportError::cannotOpen(record.name);
  }
  const EditSettings settings = library.settings(record.id);
  const Size full = source->fullSize();
  const Size developed = PhotoGeometry(settings, full).outputSize();
  const Exporter::PixelSize size = Exporter::outputSize(developed.width, developed.height, options);
  const double scale = size.width / std::max(developed.width, 1.0);
  Image base;
  try {
    base = source->image(Exporter::decodeMaxSide(scale, int(full.width), int(full.height)), settings).image;
  } catch (const std::exception&) {
    throw ExportError::cannotDecode(record.name);
  }
  std::string bytes;
  try {
    PhotoRenderer renderer;
    Image image = renderer.render(base, full, settings);
    if (image.width() != size.width || image.height() != size.height) {
      image = filters::lanczosScale(
          image, double(size.height) / image.height(),
          (double(size.width) / image.width()) / (double(size.height) / image.height()));
    }
    image = Exporter::outputSharpen(image, options);
    Image out = outputImage(image, space(options.colorSpace), Exporter::outputBits(options));
    if (options.watermarkOn) {
      if (auto marked = Exporter::watermark(out, options)) out = *marked;
    }
    if (!ImageEncoder::canWrite(imageFormat(options.format))) throw ExportError::noEncoder(options.format);
    bytes = ImageEncoder::encode(out, {.format = imageFormat(options.format), .quality = options.quality});
    bytes = withOutputMetadata(std::move(bytes),
                               Exporter::metadata(record, options, library.keywords(record.id)));
  } catch (const ExportError&) {
    throw;
  } catch (const std::exception&) {
    throw ExportError::cannotRender(record.name);
  }
  return Exporter::writeFile(folder, Exporter::safeName(Exporter::fileName(record, options, sequence)),
                             ext(options.format), bytes);
}

}  // namespace

void VeskModel::exportPhotos(const std::vector<std::int64_t>& ids, const std::filesystem::path& folder,
                             std::function<void(const ExportSummary&)> completion) {
  if (ids.empty() || exportProgress_) return;
  ExportOptions options = exportOptions_;
  options.folderPath = folder.string();
  setExportOptions(options);
  try {
    options.save(impl_->defaults);
  } catch (const std::exception& e) {
    setStatus(QString::fromStdString(e.what()));
  }
  exportProgress_ = std::pair(0, int(ids.size()));
  emit exportProgressChanged();
  auto library = library_;
  impl_->exportPool.run([this, library, ids, folder, options, completion = std::move(completion)] {
    ExportSummary summary;
    int done = 0;
    for (std::int64_t id : ids) {
      const std::optional<PhotoRecord> record = library->photo(id);
      try {
        if (!record) throw ExportError("No photo with id " + std::to_string(id));
        summary.files.push_back(exportOne(*library, *record, options, folder, done + 1));
        ++summary.written;
      } catch (const std::exception& e) {
        summary.errors.emplace_back(e.what());
      }
      ++done;
      toMain([this, done, total = int(ids.size())] {
        exportProgress_ = std::pair(done, total);
        emit exportProgressChanged();
      });
    }
    toMain([this, summary, completion] {
      exportProgress_.reset();
      emit exportProgressChanged();
      QString text =
          "Exported " + QString::number(summary.written) + " photo" + (summary.written == 1 ? "" : "s");
      if (!summary.errors.empty()) text += " · " + QString::fromStdString(summary.errors.front());
      setStatus(text);
      if (completion) completion(summary);
    });
  });
}

}  // namespace lumivale::app
