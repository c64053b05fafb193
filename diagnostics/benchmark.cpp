#include "diagnostics/benchmark.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <thread>

#include "diagnostics/synthetic_scenes.h"
#include "diagnostics/temp_folder.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/json.h"
#include "engine/export/exporter.h"
#include "engine/media/bitmap.h"
#include "engine/media/image_encoder.h"
#include "engine/render/filters/resample.h"
#include "engine/render/photo_renderer.h"
#include "engine/render/photo_source.h"
#include "engine/render/segmentation_model.h"
#include "engine/render/smart_masks.h"
#include "engine/render/tone_lut.h"

#ifndef LUMIVALE_BUILD_TYPE
#define LUMIVALE_BUILD_TYPE ""
#endif

namespace lumivale::diagnostics {
namespace {

std::string sizeText(int width, int height) { return std::to_string(width) + " × " + std::to_string(height); }

// The settings of the tone line: every global stage the cube holds.
EditSettings toneSettings() {
  EditSettings s;
  s.exposure = 0.4;
  s.temperature = 10;
  s.contrast = 25;
  s.highlights = -40;
  s.shadows = 30;
  s.vibrance = 15;
  s.curveRGB.points = {{0, 0}, {0.3, 0.25}, {0.7, 0.78}, {1, 1}};
  s.hsl[5] = {0, 20, -10};
  s.gradeHighlights = {45, 15, 0};
  return s;
}

// Every stage of the chain: tone, two masks, geometry and effects.
EditSettings allStages() {
  EditSettings s = toneSettings();
  PhotoMask radial(MaskKind::radial);
  radial.adjust = {.exposure = 0.5, .contrast = 20, .sharpness = 30};
  PhotoMask linear(MaskKind::linear);
  linear.adjust = {.exposure = -0.7, .saturation = 20};
  s.masks = {radial, linear};
  s.straighten = 2.5;
  s.crop = {.x = 0.05, .y = 0.05, .w = 0.9, .h = 0.9};
  s.sharpenAmount = 40;
  s.vignetteAmount = -30;
  s.grainAmount = 20;
  return s;
}

// Runs `work` `runs` times and keeps each run's wall time.
BenchmarkLine time(std::string name, std::string input, int runs, const std::function<void()>& work) {
  BenchmarkLine line{std::move(name), std::move(input), {}, std::nullopt};
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto end = std::chrono::steady_clock::now();
    line.milliseconds.push_back(std::chrono::duration<double, std::milli>(end - start).count());
  }
  return line;
}

std::string milliseconds(double ms) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(ms < 10 ? 2 : ms < 100 ? 1 : 0) << ms;
  return text.str();
}

// One photo of the catalog; sizes and cameras vary a little so the rows are
// not all alike.
PhotoMeta catalogMeta(int i) {
  PhotoMeta meta;
  meta.width = 6000;
  meta.height = 4000;
  meta.fileSize = 5'000'000 + i;
  meta.capture = 1.6e9 + double(i) * 60;
  meta.camera = i % 3 == 0 ? "NIKON Z 6" : "Canon EOS R5";
  meta.lens = "RF24-70mm F2.8 L IS USM";
  meta.iso = 100 * (1 + i % 64);
  meta.shutter = 1.0 / (1 + i % 4000);
  meta.aperture = 2.8;
  meta.focal = 50;
  return meta;
}

}  // namespace

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double BenchmarkLine::median() const { return diagnostics::median(milliseconds); }

BenchmarkReport measure(const BenchmarkOptions& options, std::ostream& progress) {
  BenchmarkReport report;
  report.cores = std::max(1u, std::thread::hardware_concurrency());
  report.buildType = *LUMIVALE_BUILD_TYPE ? LUMIVALE_BUILD_TYPE : "unknown";

  TempFolder temp("benchmark");
  const int fullW = options.fullWidth, fullH = options.fullHeight;
  const double aspect = double(fullW) / fullH;
  const int previewW = fullW >= fullH ? options.previewSide : int(std::lround(options.previewSide * aspect));
  const int previewH = fullW >= fullH ? int(std::lround(options.previewSide / aspect)) : options.previewSide;
  const std::string fullText = sizeText(fullW, fullH), previewText = sizeText(previewW, previewH);

  auto add = [&](BenchmarkLine line) {
    progress << line.name << " (" << line.input << "): ";
    if (line.skipped) {
      progress << "skipped, " << *line.skipped << "\n";
    } else {
      progress << milliseconds(line.median()) << " ms\n";
    }
    progress.flush();
    report.lines.push_back(std::move(line));
  };
  auto attempt = [&](std::string name, std::string input, int runs, const std::function<void()>& work) {
    try {
      add(time(name, input, runs, work));
    } catch (const std::exception& e) {
      add({std::move(name), std::move(input), {}, std::string(e.what())});
    }
  };

  // The pictures: a preview made at its size, and a 24-megapixel JPEG file
  // scaled up from the same scene, decoded as a photo would be.
  progress << "making a " << fullText << " JPEG and a " << previewText << " preview\n";
  progress.flush();
  const Image preview = sceneImage(Scene::skyOverGround, previewW, previewH);
  const Size previewFull{double(fullW), double(fullH)};
  const auto photo = temp / "photo.jpg";
  {
    const Image full = filters::lanczosScale(preview, double(fullH) / previewH,
                                             double(fullW * previewH) / (fullH * previewW));
    ImageEncoder::write(outputImage(full, ColorSpace::sRGB, 8), photo,
                        {.format = ImageFormat::jpeg, .quality = 0.9});
  }

  attempt("tone cube build", "33³ points", options.runs,
          [] { ToneLUT::cube(ToneParams(toneSettings()), LUTDomain::scene, ToneLUT::dimension); });

  PhotoRenderer renderer;
  const std::pair<const char*, EditSettings> renders[] = {
      {"preview render, exposure only", EditSettings{.exposure = 0.5}},
      {"preview render, tone", toneSettings()},
      {"preview render, all stages", allStages()},
  };
  for (const auto& [name, settings] : renders) {
    renderer.lut(settings);  // the cube is built once per edit, not per frame
    attempt(name, previewText, options.runs,
            [&] { toBitmap(renderer.render(preview, previewFull, settings), ColorSpace::sRGB, 8); });
  }

  attempt("decode to preview", fullText + " JPEG to " + std::to_string(options.previewSide), options.runs,
          [&] { PhotoSource::open(photo).image(options.previewSide, EditSettings()).image.materialize(); });

  const auto exports = temp / "export";
  std::filesystem::create_directories(exports);
  attempt("full-size export to JPEG", fullText, options.slowRuns, [&] {
    const PhotoSource source = PhotoSource::open(photo);
    const EditSettings settings = toneSettings();
    const Image developed =
        renderer.render(source.image(std::nullopt, settings).image, source.fullSize(), settings);
    const std::string bytes = ImageEncoder::encode(outputImage(developed, ColorSpace::sRGB, 8),
                                                   {.format = ImageFormat::jpeg, .quality = 0.9});
    std::filesystem::remove(Exporter::writeFile(exports, "photo", "jpg", bytes));
  });

  const Bitmap previewPicture = toBitmap(preview, ColorSpace::sRGB, 8);
  attempt("sky mask", previewText, options.runs, [&] {
    if (!SmartMasks::sky(previewPicture)) throw std::runtime_error("no sky was found");
  });
  {
    std::string why;
    if (!SegmentationModel::shared(&why)) {
      add({"subject mask", previewText, {}, why});
    } else {
      attempt("subject mask", previewText, options.slowRuns, [&] {
        std::string failure;
        if (!SmartMasks::subject(previewPicture, &failure)) throw std::runtime_error(failure);
      });
    }
  }

  {
    progress << "making a catalog of " << options.catalogRows << " photos\n";
    progress.flush();
    PhotoLibrary library(temp / "library");
    std::vector<std::filesystem::path> files;
    std::vector<std::optional<PhotoMeta>> metas;
    files.reserve(options.catalogRows);
    metas.reserve(options.catalogRows);
    for (int i = 1; i <= options.catalogRows; ++i) {
      files.push_back("/photos/" + std::to_string(i / 500) + "/IMG_" + std::to_string(i) + ".jpg");
      metas.push_back(catalogMeta(i));
    }
    library.insertPhotos(files, metas);
    attempt("catalog query", std::to_string(options.catalogRows) + " rows", options.runs, [&] {
      const auto rows = library.photos(LibraryQuery());
      if (rows.size() != std::size_t(options.catalogRows)) {
        throw std::runtime_error("the query gave " + std::to_string(rows.size()) + " rows");
      }
    });
  }
  return report;
}

void printTable(const BenchmarkReport& report, std::ostream& out) {
  out << "KUVO Lumivale benchmark: " << report.cores << (report.cores == 1 ? " core" : " cores") << ", "
      << report.buildType << " build\n";
  std::size_t nameWidth = 4, inputWidth = 5;
  for (const auto& line : report.lines) {
    nameWidth = std::max(nameWidth, line.name.size());
    inputWidth = std::max(inputWidth, line.input.size());
  }
  auto pad = [](const std::string& text, std::size_t width) {
    // Widths count characters, not bytes ("×" and "³" are two bytes each).
    std::size_t shown = 0;
    for (unsigned char c : text) shown += (c & 0xc0) != 0x80;
    return text + std::string(width > shown ? width - shown : 0, ' ');
  };
  out << pad("step", nameWidth) << "  " << pad("input", inputWidth) << "  median ms  runs\n";
  for (const auto& line : report.lines) {
    out << pad(line.name, nameWidth) << "  " << pad(line.input, inputWidth) << "  ";
    if (line.skipped) {
      out << "skipped: " << *line.skipped << "\n";
    } else {
      const std::string ms = milliseconds(line.median());
      out << std::string(ms.size() < 9 ? 9 - ms.size() : 0, ' ') << ms << "  " << line.milliseconds.size()
          << "\n";
    }
  }
}

void printJson(const BenchmarkReport& report, std::ostream& out) {
  JsonWriter json;
  json.beginObject();
  json.key("cores");
  json.value(std::int64_t(report.cores));
  json.key("buildType");
  json.value(std::string_view(report.buildType));
  json.key("lines");
  json.beginArray();
  for (const auto& line : report.lines) {
    json.beginObject();
    json.key("name");
    json.value(std::string_view(line.name));
    json.key("input");
    json.value(std::string_view(line.input));
    json.key("medianMs");
    json.value(line.median());
    json.key("runsMs");
    json.beginArray();
    for (double ms : line.milliseconds) json.value(ms);
    json.endArray();
    if (line.skipped) {
      json.key("skipped");
      json.value(std::string_view(*line.skipped));
    }
    json.endObject();
  }
  json.endArray();
  json.endObject();
  out << json.text() << "\n";
}

int runBenchmark(bool json, std::ostream& out, std::ostream& err) {
  try {
    const BenchmarkReport report = measure({}, err);
    json ? printJson(report, out) : printTable(report, out);
    return 0;
  } catch (const std::exception& e) {
    err << "lumivale: the benchmark could not run: " << e.what() << "\n";
    return 1;
  }
}

}  // namespace lumivale::diagnostics
