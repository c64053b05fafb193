#include "engine/export/export_pipeline.h"

#include <unistd.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "engine/catalog/photo_library.h"
#include "engine/media/bitmap.h"
#include "engine/media/image_encoder.h"
#include "engine/render/filters/resample.h"
#include "engine/render/photo_source.h"

namespace lumivale::Exporter {
namespace {

namespace fs = std::filesystem;

using Failure = ExportError (*)(std::string_view);

// Runs one step of an export; whatever it throws becomes the step's
// ExportError about `subject` (the photo's or the file's name).
template <class Step>
auto step(std::string_view subject, Failure failure, Step&& body) -> decltype(body()) {
  try {
    return body();
  } catch (const ExportError&) {
    throw;
  } catch (const std::exception&) {
    throw failure(subject);
  }
}

bool nearlyOne(double ratio) { return std::abs(ratio - 1) <= 1e-6; }

// The rendered image at exactly `size`: scaled with Lanczos when either
// side is off by more than a millionth, then cut to the size from its
// top-left corner.
Image exactSize(const Image& rendered, PixelSize size) {
  const double sx = double(size.width) / rendered.width(), sy = double(size.height) / rendered.height();
  if (nearlyOne(sx) && nearlyOne(sy)) return rendered;
  return filters::crop(filters::lanczosScale(rendered, sy, sx / sy), 0, 0, size.width, size.height);
}

// A folder that cannot take a new file fails the photo before its render.
bool canTakeFiles(const fs::path& folder) {
  std::error_code error;
  return fs::is_directory(folder, error) && ::access(folder.c_str(), W_OK | X_OK) == 0;
}

}  // namespace

std::vector<ExportJob> exportJobs(PhotoLibrary& library, const std::vector<std::int64_t>& ids) {
  std::vector<ExportJob> jobs;
  for (const std::int64_t id : ids) {
    auto record = library.photo(id);
    if (!record) continue;
    const int sequence = int(jobs.size()) + 1;
    jobs.push_back({*record, library.settings(id), library.keywords(id), sequence});
  }
  return jobs;
}

ExportPlan plan(Size fullSize, const EditSettings& settings, const ExportOptions& options) {
  const PhotoGeometry geometry(settings, fullSize);
  const auto whole = [](double pixels) { return pixels >= 1 && pixels < 2147483647.0 ? int(pixels) : 1; };
  ExportPlan result;
  result.developed = {whole(geometry.crop.width), whole(geometry.crop.height)};
  result.output = outputSize(result.developed.width, result.developed.height, options);
  const double scale = double(result.output.width) / result.developed.width;
  result.decodeMaxSide = decodeMaxSide(scale, whole(fullSize.width), whole(fullSize.height));
  return result;
}

PreparedExport prepare(const ExportJob& job, const ExportOptions& options, PhotoRenderer& renderer,
                       const fs::path& folder) {
  const std::string& photo = job.record.name;
  const std::string name = fileName(job.record, options, job.sequence);
  const std::string firstFile = numberedName(name, ext(options.format), 1);

  const PhotoSource source =
      step(photo, ExportError::cannotOpen, [&] { return PhotoSource::open(job.record.path); });
  if (!canTakeFiles(folder)) throw ExportError::cannotWrite(firstFile);

  const Size full = source.fullSize();
  const ExportPlan sizes = plan(full, job.settings, options);
  const Image base = step(photo, ExportError::cannotDecode, [&] {
    Image image = source.image(sizes.decodeMaxSide, job.settings).image;
    if (image.empty()) throw ExportError::cannotDecode(photo);
    return image;
  });

  const PhotoRenderer::Options effectsOn{.cropEditing = false, .outputEffects = true, .maskOverlay = {}};
  Image picture = step(photo, ExportError::cannotRender, [&] {
    const Image developed = exactSize(renderer.render(base, full, job.settings, effectsOn), sizes.output);
    return outputImage(outputSharpen(developed, options), space(options.colorSpace), outputBits(options));
  });
  if (options.watermarkOn && !options.watermarkText.empty()) {
    if (auto marked = watermark(picture, options)) picture = std::move(*marked);
  }

  if (!ImageEncoder::canWrite(imageFormat(options.format))) throw ExportError::noEncoder(options.format);
  // The encoder pulls the whole chain: a photo whose pixels cannot be
  // computed fails here, as a render.
  const std::string encoded = step(photo, ExportError::cannotRender, [&] {
    return ImageEncoder::encode(picture, {.format = imageFormat(options.format), .quality = options.quality});
  });
  return step(firstFile, ExportError::cannotWrite, [&] {
    const std::string file = withOutputMetadata(encoded, metadata(job.record, options, job.keywords));
    PendingFile pending(folder / firstFile, [&](int fd) { writeAll(fd, file.data(), file.size()); });
    return PreparedExport{std::move(pending), name, options.format};
  });
}

fs::path finish(PreparedExport prepared, const fs::path& folder) {
  const std::string_view extension = ext(prepared.format);
  return step(numberedName(prepared.name, extension, 1), ExportError::cannotWrite, [&] {
    return prepared.file.placeUnderFreeName(
        [&](int n) { return folder / numberedName(prepared.name, extension, n); });
  });
}

fs::path exportPhoto(const ExportJob& job, const ExportOptions& options, PhotoRenderer& renderer,
                     const fs::path& folder) {
  return finish(prepare(job, options, renderer, folder), folder);
}

std::vector<ExportResult> exportBatch(const std::vector<ExportJob>& jobs, const ExportOptions& options,
                                      PhotoRenderer& renderer, const fs::path& folder,
                                      const ExportProgress& progress, std::stop_token stop) {
  std::vector<ExportResult> results(jobs.size());
  const int total = int(jobs.size());
  std::atomic<std::size_t> next{0};
  // Photos take their names in job order: a photo whose work is done waits
  // for the one before it to be named.
  std::mutex naming;
  std::condition_variable turn;
  std::size_t nextToName = 0;
  int done = 0;

  const auto work = [&] {
    for (std::size_t i = next++; i < jobs.size(); i = next++) {
      const bool started = !stop.stop_requested();
      std::optional<PreparedExport> prepared;
      if (started) {
        try {
          prepared.emplace(prepare(jobs[i], options, renderer, folder));
        } catch (const ExportError& e) {
          results[i].error = e;
        } catch (const std::exception&) {
          results[i].error = ExportError::cannotRender(jobs[i].record.name);
        }
      }
      std::unique_lock hold(naming);
      turn.wait(hold, [&] { return nextToName == i; });
      if (prepared) {
        try {
          results[i].file = finish(std::move(*prepared), folder);
        } catch (const ExportError& e) {
          results[i].error = e;
        }
      }
      ++nextToName;
      if (started && progress) progress(++done, total);
      turn.notify_all();
    }
  };
  {
    std::vector<std::jthread> helpers;
    for (int t = 1; t < std::min(photosInFlight, total); ++t) helpers.emplace_back(work);
    work();
  }
  return results;
}

}  // namespace lumivale::Exporter
