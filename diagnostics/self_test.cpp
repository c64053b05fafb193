#include "diagnostics/self_test.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>

#include "diagnostics/sample_dng.h"
#include "diagnostics/synthetic_scenes.h"
#include "diagnostics/temp_folder.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/edit_settings.h"
#include "engine/export/exporter.h"
#include "engine/media/bitmap.h"
#include "engine/media/image_decoder.h"
#include "engine/media/image_encoder.h"
#include "engine/media/raw_decoder.h"
#include "engine/render/histogram.h"
#include "engine/render/mask_bitmap.h"
#include "engine/render/mask_renderer.h"
#include "engine/render/photo_renderer.h"
#include "engine/render/segmentation_model.h"
#include "engine/render/smart_masks.h"
#include "engine/render/tone_lut.h"
#include "engine/util/lzfse.h"

namespace lumivale::diagnostics {
namespace {

// Numbers in messages: enough digits to see a difference, no more.
std::string number(double value) {
  std::ostringstream text;
  text.precision(6);
  text << value;
  return text.str();
}

void expect(bool condition, const std::string& what) {
  if (!condition) throw CheckFailure(what);
}

void expectNear(double got, double want, double tolerance, const std::string& what) {
  if (!(std::abs(got - want) <= tolerance)) {
    throw CheckFailure(what + " is " + number(got) + ", expected " + number(want) + " ± " +
                       number(tolerance));
  }
}

std::ostream& operator<<(std::ostream& out, const std::pair<int, int>& size) {
  return out << size.first << " × " << size.second;
}

template <class T>
void expectEqual(const T& got, const T& want, const std::string& what) {
  if (!(got == want)) {
    std::ostringstream text;
    text << what << " is " << got << ", expected " << want;
    throw CheckFailure(text.str());
  }
}

// The largest difference of two float pictures of one size, with where it
// is, for the message.
struct Difference {
  double worst = 0;
  int x = 0, y = 0, band = 0;
};

Difference compare(const FloatPixels& got, const FloatPixels& want,
                   double (*measure)(double got, double want)) {
  expect(got.width == want.width && got.height == want.height && got.bands == want.bands,
         "the size is " + std::to_string(got.width) + " × " + std::to_string(got.height) + " × " +
             std::to_string(got.bands) + ", expected " + std::to_string(want.width) + " × " +
             std::to_string(want.height) + " × " + std::to_string(want.bands));
  Difference d;
  for (int y = 0; y < got.height; ++y) {
    for (int x = 0; x < got.width; ++x) {
      for (int b = 0; b < got.bands; ++b) {
        const double e = measure(got.at(x, y, b), want.at(x, y, b));
        if (!(e <= d.worst)) d = {std::isnan(e) ? INFINITY : e, x, y, b};
      }
    }
  }
  return d;
}

double absolute(double got, double want) { return std::abs(got - want); }
double ofDouble(double got, double want) { return std::abs(got - 2 * want); }

std::string at(const Difference& d) {
  return "pixel (" + std::to_string(d.x) + ", " + std::to_string(d.y) + ") band " + std::to_string(d.band);
}

double meanDifference(const FloatPixels& got, const FloatPixels& want) {
  double sum = 0;
  for (std::size_t i = 0; i < got.values.size(); ++i) sum += std::abs(got.values[i] - want.values[i]);
  return got.values.empty() ? 0 : sum / double(got.values.size());
}

double shareAbove(const FloatPixels& got, const FloatPixels& want, double limit) {
  std::size_t above = 0;
  for (std::size_t i = 0; i < got.values.size(); ++i)
    above += std::abs(got.values[i] - want.values[i]) > limit;
  return got.values.empty() ? 0 : double(above) / double(got.values.size());
}

// What several checks share: one temporary folder, made when first needed,
// and the catalog of the catalog checks.
struct Workspace {
  std::unique_ptr<TempFolder> folder;
  std::unique_ptr<PhotoLibrary> library;
  std::vector<std::int64_t> imported;

  const TempFolder& temp() {
    if (!folder) folder = std::make_unique<TempFolder>("selftest");
    return *folder;
  }
  std::filesystem::path make(const std::string& name) {
    const auto path = temp() / name;
    std::filesystem::create_directories(path);
    return path;
  }
  PhotoLibrary& catalog() {
    if (!library) throw CheckFailure("the catalog could not be made (see the first catalog check)");
    return *library;
  }
};

void writePicture(const Image& working, const std::filesystem::path& file, ImageFormat format) {
  ImageEncoder::write(outputImage(working, ColorSpace::sRGB, 8), file, {.format = format});
}

void catalogSchema(Workspace& w) {
  w.library = std::make_unique<PhotoLibrary>(w.make("library"));
  expectEqual(w.library->meta("format").value_or("(none)"), std::string(PhotoLibrary::formatName),
              "the format row");
  expect(std::filesystem::is_directory(w.library->thumbFolder()), "no Thumbnails folder was made");
  expectEqual(w.library->count(), 0, "the photo count of a new catalog");
}

void catalogImport(Workspace& w) {
  PhotoLibrary& library = w.catalog();
  const auto photos = w.make("photos");
  writePicture(sceneImage(Scene::colorPatches, 120, 80), photos / "scene-1.jpg", ImageFormat::jpeg);
  writePicture(sceneImage(Scene::portrait, 60, 90), photos / "scene-2.png", ImageFormat::png);
  SampleDng dng;
  dng.blackLevel = 256;
  dng.samples = sceneGrey(dng, 0.3);
  writeDng(photos / "scene-3.dng", dng);
  const ImportResult first = library.importFolder(photos, false);
  expectEqual(first.added, 3, "photos added");
  expectEqual(first.failed, 0, "files that failed");
  const ImportResult again = library.importFolder(photos, false);
  expectEqual(again.added, 0, "photos added by a second import of the folder");
  expectEqual(again.skipped, 3, "photos skipped by a second import of the folder");
}

void catalogQuery(Workspace& w) {
  PhotoLibrary& library = w.catalog();
  const auto byName = library.photos({.sort = SortOrder::name, .ascending = true});
  expectEqual(byName.size(), std::size_t(3), "photos listed");
  const std::pair<const char*, std::pair<int, int>> expected[] = {
      {"scene-1.jpg", {120, 80}}, {"scene-2.png", {60, 90}}, {"scene-3.dng", {64, 48}}};
  for (std::size_t i = 0; i < byName.size(); ++i) {
    const PhotoRecord& r = byName[i];
    expectEqual(r.name, std::string(expected[i].first), "photo " + std::to_string(i + 1) + " by name");
    expectEqual(std::pair(r.width, r.height), expected[i].second, r.name + "'s size");
    expectEqual(r.isRaw, i == 2, r.name + "'s RAW flag");
    w.imported.push_back(r.id);
  }
  library.setRating({w.imported[0], w.imported[2]}, 4);
  const auto rated = library.photos({.minRating = 4, .sort = SortOrder::name, .ascending = true});
  expectEqual(rated.size(), std::size_t(2), "photos of 4 stars or more");
  expectEqual(rated[1].name, std::string("scene-3.dng"), "the second photo of 4 stars or more");
}

void catalogHistory(Workspace& w) {
  PhotoLibrary& library = w.catalog();
  expect(!w.imported.empty(), "no photo was imported");
  const std::int64_t id = w.imported[0];
  EditSettings edited;
  edited.exposure = 0.7;
  edited.contrast = 25;
  edited.masks.push_back(PhotoMask(MaskKind::radial));
  library.commitSettings(id, edited, "Light");
  EditSettings more = edited;
  more.saturation = -40;
  library.commitSettings(id, more, "Saturation");
  expect(library.settings(id) == more, "the stored settings differ from those saved");
  const EditHistory history = library.history(id);
  expectEqual(history.steps.size(), std::size_t(3), "history steps");
  expectEqual(history.steps[0].name, std::string("Import"), "the first step");
  expectEqual(history.position, 3, "the history position");
  const auto back = library.undo(id);
  expect(back && back->name == "Light", "undo did not go back to the step \"Light\"");
  expect(library.settings(id) == edited, "the settings after undo differ from the step's");
  expect(library.redo(id).has_value(), "redo did nothing");
  expect(library.settings(id) == more, "the settings after redo differ from the last step's");
}

EditSettings busySettings() {
  EditSettings s;
  s.exposure = -1.25;
  s.temperature = 12.5;
  s.highlights = -60;
  s.blackAndWhite = true;
  s.curveRGB.points = {{0, 0.05}, {0.4, 0.35}, {1, 0.95}};
  s.hsl[3] = {10, -20, 5};
  s.gradeShadows = {210, 30, -10};
  s.rotateQuarterTurns = 3;
  s.straighten = -4.5;
  s.cropAspect = "3:2";
  PhotoMask brush(MaskKind::brush, "Bright \"spot\" ✓");
  brush.dabs = {{0.25, 0.5, 0.1, 0.5, 0.8, false}, {0.3, 0.5, 0.05, 0, 1, true}};
  brush.adjust.exposure = 0.5;
  PhotoMask sky(MaskKind::sky);
  sky.maskPNG = MaskBitmap(4, 3, 200).encoded();
  sky.invert = true;
  s.masks = {brush, sky};
  return s;
}

void settingsRoundTrip() {
  const EditSettings s = busySettings();
  const auto blob = s.encoded();
  expect(blob.has_value(), "the settings have no stored form");
  const EditSettings back = EditSettings::decode(*blob);
  expect(back == s, "the settings read back differ from those stored");
  expect(back.encoded() == blob, "storing the settings read back gives other bytes");
  expect(EditSettings::decode(std::string_view("{\"exposure\":\"bright\"")).isDefault(),
         "a damaged blob does not read as the default settings");
}

void toneCube() {
  EditSettings settings;
  settings.temperature = 15;
  settings.contrast = 35;
  settings.highlights = -40;
  settings.shadows = 30;
  settings.saturation = 20;
  const ToneParams params(settings);
  const int size = ToneLUT::dimension;
  const std::vector<float> cube = ToneLUT::cube(params, LUTDomain::scene, size);
  expectEqual(cube.size(), std::size_t(size) * size * size * 4, "the cube's length");
  for (int b : {0, 5, 16, 27, size - 1}) {
    for (int g : {0, 9, 20, size - 1}) {
      for (int r : {0, 3, 16, 30, size - 1}) {
        const auto coordinate = [&](int i) {
          return ToneLUT::decode(double(i) / (size - 1), LUTDomain::scene);
        };
        const RGB mapped = ToneLUT::map({coordinate(r), coordinate(g), coordinate(b)}, params);
        const float* entry = &cube[((std::size_t(b) * size + g) * size + r) * 4];
        const std::string where =
            "entry (" + std::to_string(r) + ", " + std::to_string(g) + ", " + std::to_string(b) + ")";
        expectNear(entry[0], std::pow(mapped.r, 1 / 2.2), 1e-5, where + " red");
        expectNear(entry[1], std::pow(mapped.g, 1 / 2.2), 1e-5, where + " green");
        expectNear(entry[2], std::pow(mapped.b, 1 / 2.2), 1e-5, where + " blue");
        expectEqual(entry[3], 1.0f, where + " alpha");
      }
    }
  }
}

int centre(const MaskBitmap& m) { return m.bytes[std::size_t(m.height / 2) * m.width + m.width / 2]; }

void maskPaintRule() {
  const BrushDab dab{.x = 0.5, .y = 0.5, .radius = 0.2, .feather = 0, .flow = 0.5};
  BrushDab erase = dab;
  erase.erase = true;
  const std::vector<BrushDab> once{dab}, twice{dab, dab}, erased{dab, dab, erase};
  expectEqual(centre(MaskRenderer::paint(once, 64, 48)), 128, "one dab of flow 0.5");
  expectEqual(centre(MaskRenderer::paint(twice, 64, 48)), 192, "two dabs of flow 0.5");
  expectEqual(centre(MaskRenderer::paint(erased, 64, 48)), 96, "two dabs and an erasing one");
  const MaskBitmap painted = MaskRenderer::paint(twice, 64, 48);
  expectEqual(int(painted.bytes[0]), 0, "a corner outside the dab");
  const auto size = MaskRenderer::brushBitmapSize(1.5);
  expectEqual(std::pair(size.width, size.height), std::pair(1024, 682), "the brush bitmap for 3:2");
}

void lzfseRoundTrip() {
  // Text that repeats, runs, and bytes with no pattern: every block kind.
  std::vector<std::uint8_t> data;
  const std::string phrase = "the quick grey ramp over the colour patches; ";
  for (int i = 0; i < 400; ++i) data.insert(data.end(), phrase.begin(), phrase.end());
  data.insert(data.end(), 5000, 0x7f);
  std::uint32_t x = 2463534242u;
  for (int i = 0; i < 6000; ++i) {
    x ^= x << 13, x ^= x >> 17, x ^= x << 5;
    data.push_back(std::uint8_t(x));
  }
  const auto stream = lzfse::encode(data);
  expect(stream.size() < data.size(),
         "the stream (" + std::to_string(stream.size()) + " bytes) is no smaller than its input");
  const auto back = lzfse::decode(stream);
  expect(back && *back == data, "the stream does not decode to its input");
  const std::vector<std::uint8_t> cut(stream.begin(), stream.end() - 4);
  expect(!lzfse::decode(cut), "a stream cut short decodes");

  MaskBitmap mask(300, 200);
  for (int y = 0; y < mask.height; ++y) {
    for (int x = 0; x < mask.width; ++x)
      mask.bytes[std::size_t(y) * mask.width + x] = std::uint8_t((x + y) / 2);
  }
  const auto stored = mask.encoded();
  expect(stored.size() < mask.bytes.size(), "the stored bitmap is not compressed");
  const auto read = MaskBitmap::decode(stored);
  expect(read && *read == mask, "the stored bitmap does not read back");
}

void maskBitmapValueAndMean() {
  MaskBitmap m(2, 1);
  m.bytes = {0, 255};
  expectNear(m.value(0.25, 0.5), 0, 1e-12, "value at the first pixel's centre");
  expectNear(m.value(0.75, 0.5), 1, 1e-12, "value at the second pixel's centre");
  expectNear(m.value(0.5, 0.5), 0.5, 1e-12, "value halfway");
  expectNear(m.value(-3, 7), 0, 1e-12, "value far outside, left");
  expectNear(m.mean(0, 0, 1, 1), 0.5, 1e-12, "mean of the whole");
  expectNear(m.mean(0.5, 0, 0.5, 1), 1, 1e-12, "mean of the right half");
  expectNear(m.mean(0.25, 0, 0.5, 1), 0.5, 1e-12, "mean of the middle half");
  expectNear(m.mean(0.75, 0, 1, 1), 1, 1e-12, "mean of a rectangle partly outside");
}

const FloatPixels& renderBase() {
  static const FloatPixels base = scenePixels(Scene::colorPatches, 96, 64);
  return base;
}

void renderDefault() {
  PhotoRenderer renderer;
  const Image rendered = renderer.render(Image::fromPixels(renderBase()), {96, 64}, EditSettings());
  const Difference d = compare(rendered.readPixels(), renderBase(), absolute);
  expect(d.worst == 0, "differs from the source by " + number(d.worst) + " at " + at(d));
}

void renderExposure() {
  PhotoRenderer renderer;
  EditSettings plusOne;
  plusOne.exposure = 1;
  const Image rendered = renderer.render(Image::fromPixels(renderBase()), {96, 64}, plusOne);
  const Difference d = compare(rendered.readPixels(), renderBase(), ofDouble);
  expect(d.worst <= 1e-5, "differs from twice the source by " + number(d.worst) + " at " + at(d));
}

void whiteHistogram() {
  const auto h = Histogram::of(outputImage(Image::constant(80, 60, {1, 1, 1}), ColorSpace::sRGB, 8));
  expect(h.has_value(), "no histogram");
  const std::pair<const char*, const std::array<double, 64>*> lists[] = {
      {"red", &h->r}, {"green", &h->g}, {"blue", &h->b}, {"luminance", &h->l}};
  for (const auto& [name, bins] : lists) {
    expectNear((*bins)[63], 1, 1e-12, std::string(name) + " bin 63");
    for (int i = 0; i < 63; ++i)
      expectNear((*bins)[i], 0, 0, std::string(name) + " bin " + std::to_string(i));
  }
}

void exportNaming(Workspace& w) {
  PhotoRecord record;
  record.name = "IMG_1.CR3";
  ExportOptions options;
  expectEqual(Exporter::fileName(record, options, 1), std::string("IMG_1"), "the original name");
  options.naming = NamingMode::originalSuffix;
  expectEqual(Exporter::fileName(record, options, 1), std::string("IMG_1-edit"), "the name with suffix");
  options.naming = NamingMode::custom;
  options.customName = "";
  expectEqual(Exporter::fileName(record, options, 1), std::string("Photo-001"), "an empty custom name");
  options.customName = "Trip";
  expectEqual(Exporter::fileName(record, options, 1234), std::string("Trip-1234"), "custom name 1234");
  expectEqual(Exporter::safeName("a/b:c"), std::string("a-b-c"), "the safe form of a/b:c");

  const auto size = [](double width, double height, const ExportOptions& o) {
    const auto s = Exporter::outputSize(width, height, o);
    return std::pair(s.width, s.height);
  };
  expectEqual(size(6000, 4000, {.sizeMode = SizeMode::longEdge, .sizeValue = 2048}), std::pair(2048, 1365),
              "6000 × 4000 at long edge 2048");
  expectEqual(size(6000, 4000, {.sizeMode = SizeMode::percent, .sizeValue = 50}), std::pair(3000, 2000),
              "6000 × 4000 at 50 %");
  expectEqual(size(3000, 2000, {.sizeMode = SizeMode::longEdge, .sizeValue = 4000}), std::pair(3000, 2000),
              "3000 × 2000 at long edge 4000, not enlarged");
  expectEqual(size(3000, 2000, {.sizeMode = SizeMode::longEdge, .sizeValue = 4000, .dontEnlarge = false}),
              std::pair(4000, 2667), "3000 × 2000 at long edge 4000, enlarged");
  expectEqual(size(50, 50, {.sizeMode = SizeMode::width, .sizeValue = 0}), std::pair(1, 1),
              "50 × 50 at width 0");

  const auto folder = w.make("names");
  writeFileSafely(folder / "IMG_1.jpg", "taken");
  writeFileSafely(folder / "IMG_1 2.jpg", "taken");
  expectEqual(Exporter::uniqueURL(folder, "IMG_1", "jpg").filename().string(), std::string("IMG_1 3.jpg"),
              "the next free name after IMG_1.jpg and IMG_1 2.jpg");
  const auto written = Exporter::writeFile(folder, "IMG_1", "jpg", std::string_view("new"));
  expectEqual(written.filename().string(), std::string("IMG_1 3.jpg"), "the file written");
  std::ifstream first(folder / "IMG_1.jpg");
  std::string kept((std::istreambuf_iterator<char>(first)), std::istreambuf_iterator<char>());
  expectEqual(kept, std::string("taken"), "the content of the file that was there");
}

void exportFormat(Workspace& w, ExportFormat format) {
  if (!ImageEncoder::canWrite(imageFormat(format))) {
    throw CheckSkipped("this computer has no encoder for " + std::string(title(format)));
  }
  ExportOptions options;
  options.format = format;
  options.tiff16Bit = true;
  const int bits = Exporter::outputBits(options);
  const FloatPixels source = scenePixels(Scene::skyOverGround, 96, 64);
  const Image picture = outputImage(Image::fromPixels(source), space(options.colorSpace), bits);
  const std::string bytes = ImageEncoder::encode(picture, {.format = imageFormat(format), .quality = 0.9});
  const auto file = Exporter::writeFile(w.make("export"), "sky", ext(format), bytes);
  const FloatPixels back = ImageDecoder::decode(file, std::nullopt).image.readPixels();
  // Lossless files differ by the rounding of their samples alone. Lossy
  // ones differ more, most where the ground's fine texture meets the coder's
  // colour subsampling, so they are held to an average and to a share of
  // samples off by more than a visible step.
  if (!lossy(format)) {
    const double allowed = bits == 16 ? 2e-4 : 0.005;
    const Difference d = compare(back, source, absolute);
    expect(d.worst <= allowed, "the file read back differs by " + number(d.worst) + " at " + at(d));
    return;
  }
  compare(back, source, absolute);
  const double mean = meanDifference(back, source);
  expect(mean <= 0.01, "the file read back differs by " + number(mean) + " on average");
  const double far = shareAbove(back, source, 0.05);
  expect(far <= 0.02, "a share of " + number(far) + " of the samples read back differ by more than 0.05");
}

void skyMask() {
  const Bitmap picture = sceneBitmap(Scene::skyOverGround, 480, 320);
  const auto sky = SmartMasks::sky(picture);
  expect(sky.has_value(), "no sky was computed");
  const auto size = SmartMasks::skySize(480, 320);
  expectEqual(std::pair(sky->width, sky->height), std::pair(size.width, size.height), "the mask's size");
  expect(sky->mean(0, 0, 1, 0.45) > 0.95, "the sky is covered only " + number(sky->mean(0, 0, 1, 0.45)));
  expect(sky->mean(0, 0.65, 1, 0.35) < 0.02, "the ground is covered " + number(sky->mean(0, 0.65, 1, 0.35)));
}

void subjectModel() {
  const auto file = SegmentationModel::find();
  if (!file) {
    std::string where;
    for (const auto& folder : SegmentationModel::folders())
      where += (where.empty() ? "" : ", ") + folder.string();
    throw CheckSkipped(std::string("no ") + SegmentationModel::fileName + " in " + where);
  }
  std::string why;
  const auto subject = SmartMasks::subject(sceneBitmap(Scene::portrait, 384, 384), &why);
  expect(subject.has_value(), why);
  const double face = subject->mean(0.45, 0.35, 0.1, 0.15);
  const double corner = subject->mean(0, 0, 0.15, 0.15);
  expect(face > 0.5, "the face is covered only " + number(face));
  expect(corner < 0.2, "the background corner is covered " + number(corner));
}

void rawDecoder(Workspace& w) {
  SampleDng dng;
  dng.blackLevel = 256;
  dng.samples = sceneGrey(dng, 0.3);
  const auto file = w.make("raw") / "grey.dng";
  writeDng(file, dng);
  const auto facts = RawDecoder::facts(file);
  expect(facts.has_value(), "the DNG's header is not read");
  expectEqual(std::pair(facts->width, facts->height), std::pair(dng.width, dng.height), "the frame");
  for (bool half : {false, true}) {
    const FloatPixels pixels = RawDecoder::develop(file, {.halfSize = half}).readPixels();
    const std::string which = half ? "half size" : "full size";
    expectEqual(std::pair(pixels.width, pixels.height), half ? std::pair(32, 24) : std::pair(64, 48),
                which + " frame");
    for (int band = 0; band < 3; ++band) {
      double sum = 0;
      for (int y = 0; y < pixels.height; ++y) {
        for (int x = 0; x < pixels.width; ++x) sum += pixels.at(x, y, band);
      }
      expectNear(sum / (pixels.width * pixels.height), 0.3, 0.005,
                 which + " mean of band " + std::to_string(band) + " of a 0.3 grey");
    }
  }
}

}  // namespace

SelfTestSummary runChecks(const std::vector<SelfCheck>& checks, std::ostream& out) {
  SelfTestSummary summary;
  for (const SelfCheck& check : checks) {
    try {
      check.run();
      out << "PASS " << check.name << "\n";
      ++summary.passed;
    } catch (const CheckSkipped& e) {
      out << "SKIP " << check.name << ": " << e.what() << "\n";
      ++summary.skipped;
    } catch (const std::exception& e) {
      out << "FAIL " << check.name << ": " << e.what() << "\n";
      ++summary.failed;
    } catch (...) {
      out << "FAIL " << check.name << ": an unknown exception\n";
      ++summary.failed;
    }
    out.flush();
  }
  out << summary.passed << " passed, " << summary.failed << " failed";
  if (summary.skipped > 0) out << ", " << summary.skipped << " skipped";
  out << "\n";
  out.flush();
  return summary;
}

int runSelfTest(std::ostream& out) {
  auto w = std::make_shared<Workspace>();
  std::vector<SelfCheck> checks = {
      {"catalog schema", [w] { catalogSchema(*w); }},
      {"catalog import", [w] { catalogImport(*w); }},
      {"catalog query", [w] { catalogQuery(*w); }},
      {"catalog history round trip", [w] { catalogHistory(*w); }},
      {"settings blob round trip", settingsRoundTrip},
      {"tone cube against ToneLUT.map", toneCube},
      {"mask paint rule", maskPaintRule},
      {"LZFSE round trip", lzfseRoundTrip},
      {"MaskBitmap value and mean", maskBitmapValueAndMean},
      {"render with default settings", renderDefault},
      {"render with exposure +1", renderExposure},
      {"histogram of a white image", whiteHistogram},
      {"export naming and sizes", [w] { exportNaming(*w); }},
  };
  for (ExportFormat format : allCases<ExportFormat>()) {
    checks.push_back({"export to " + std::string(title(format)) + " read back",
                      [w, format] { exportFormat(*w, format); }});
  }
  checks.push_back({"sky mask", skyMask});
  checks.push_back({"subject model", subjectModel});
  checks.push_back({"RAW decoder on a DNG", [w] { rawDecoder(*w); }});
  const SelfTestSummary summary = runChecks(checks, out);
  // The catalog closes before its folder goes.
  w->library.reset();
  return summary.exitStatus();
}

}  // namespace lumivale::diagnostics
