#include "engine/render/segmentation_model.h"

#include <cstdlib>
#include <exception>
#include <mutex>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>
#include <string_view>

#include "engine/render/opencv_glue.h"
#include "engine/render/smart_masks.h"

namespace lumivale {

namespace fs = std::filesystem;

namespace {

constexpr const char* modelSubfolder = "kuvo-lumivale/models";

void say(std::string* why, std::string text) {
  if (why) *why = std::move(text);
}

// The heart of an OpenCV message: its first line without the source
// location, the error code or the function's name ("OpenCV(4.6.0) file:1:
// error: (-215:Assertion failed) what in function 'name'" gives "what").
std::string firstLine(const char* message) {
  std::string text = message ? message : "";
  if (auto end = text.find('\n'); end != std::string::npos) text.resize(end);
  if (auto error = text.find("error: "); error != std::string::npos) text.erase(0, error + 7);
  if (text.starts_with("(")) {
    if (auto code = text.find(") "); code != std::string::npos) text.erase(0, code + 2);
  }
  if (auto function = text.rfind(" in function '"); function != std::string::npos) text.resize(function);
  return text.empty() ? "unknown error" : text;
}

// Absolute folders only: the XDG rules ignore relative ones.
std::optional<fs::path> absoluteFolder(std::string_view text) {
  fs::path folder(text);
  if (text.empty() || !folder.is_absolute()) return std::nullopt;
  return folder;
}

const char* environment(const char* name) {
  const char* value = std::getenv(name);
  return value && *value ? value : nullptr;
}

}  // namespace

struct SegmentationModel::Network {
  cv::dnn::Net net;
  std::mutex lock;  // a network runs one input at a time
};

SegmentationModel::SegmentationModel(fs::path file, std::unique_ptr<Network> network)
    : file_(std::move(file)), network_(std::move(network)) {}
SegmentationModel::SegmentationModel(SegmentationModel&&) noexcept = default;
SegmentationModel& SegmentationModel::operator=(SegmentationModel&&) noexcept = default;
SegmentationModel::~SegmentationModel() = default;

std::vector<fs::path> SegmentationModel::folders() {
  if (const char* models = environment("LUMIVALE_MODELS")) return {fs::path(models)};
  std::vector<fs::path> found;
  if (auto home = absoluteFolder(environment("XDG_DATA_HOME") ? environment("XDG_DATA_HOME") : "")) {
    found.push_back(*home / modelSubfolder);
  } else if (const char* user = environment("HOME")) {
    found.push_back(fs::path(user) / ".local/share" / modelSubfolder);
  }
  const std::string dirs =
      environment("XDG_DATA_DIRS") ? environment("XDG_DATA_DIRS") : "/usr/local/share:/usr/share";
  std::size_t start = 0;
  while (start <= dirs.size()) {
    const std::size_t end = std::min(dirs.find(':', start), dirs.size());
    if (auto folder = absoluteFolder(std::string_view(dirs).substr(start, end - start)))
      found.push_back(*folder / modelSubfolder);
    start = end + 1;
  }
  return found;
}

std::optional<fs::path> SegmentationModel::find() {
  for (const fs::path& folder : folders()) {
    std::error_code error;
    const fs::path file = folder / fileName;
    if (fs::is_regular_file(file, error)) return file;
  }
  return std::nullopt;
}

std::optional<SegmentationModel> SegmentationModel::load(const fs::path& file, std::string* why) {
  std::error_code error;
  if (!fs::is_regular_file(file, error)) {
    say(why, "no model file at " + file.string());
    return std::nullopt;
  }
  // Failures are reported by our callers, once; OpenCV's own log would
  // repeat them on stderr.
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  auto network = std::make_unique<Network>();
  try {
    network->net = cv::dnn::readNetFromONNX(file.string());
  } catch (const std::exception& e) {
    say(why, "cannot read the model " + file.string() + ": " + firstLine(e.what()));
    return std::nullopt;
  }
  if (network->net.empty()) {
    say(why, "the model " + file.string() + " holds no network");
    return std::nullopt;
  }
  network->net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
  network->net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
  return SegmentationModel(file, std::move(network));
}

std::shared_ptr<SegmentationModel> SegmentationModel::shared(std::string* why) {
  static std::mutex lock;
  static std::shared_ptr<SegmentationModel> loaded;
  const std::optional<fs::path> file = find();
  if (!file) {
    std::string searched;
    for (const fs::path& folder : folders()) searched += (searched.empty() ? "" : ", ") + folder.string();
    say(why, std::string("no ") + fileName + " in " + searched + " (scripts/install-deps.sh installs it)");
    return nullptr;
  }
  const std::lock_guard<std::mutex> guard(lock);
  if (loaded && loaded->file() == *file) return loaded;
  std::optional<SegmentationModel> model = load(*file, why);
  if (!model) return nullptr;
  loaded = std::make_shared<SegmentationModel>(std::move(*model));
  return loaded;
}

std::optional<MaskBitmap> SegmentationModel::run(const Bitmap& image, std::string* why) {
  // Shrinking by the mean of the covered pixels first keeps fine detail from
  // aliasing; the model then gets (v − 127.5) / 255 per channel, red first.
  const cv::Mat rgb = scaledRGB(image, inputSide, inputSide);
  if (rgb.empty()) {
    say(why, "the picture is empty or malformed");
    return std::nullopt;
  }
  cv::Mat output;
  try {
    const cv::Mat blob =
        cv::dnn::blobFromImage(rgb, 1.0 / 255, cv::Size(), cv::Scalar::all(127.5), false, false);
    const std::lock_guard<std::mutex> guard(network_->lock);
    network_->net.setInput(blob);
    output = network_->net.forward().clone();
  } catch (const std::exception& e) {
    say(why, "the model failed: " + firstLine(e.what()));
    return std::nullopt;
  }
  // One map of the input's size, as [1, 1, S, S] or [1, S, S].
  const int dims = output.dims;
  const bool mapShaped = output.type() == CV_32F && dims >= 2 && output.size[dims - 1] == inputSide &&
                         output.size[dims - 2] == inputSide &&
                         output.total() == std::size_t(inputSide) * inputSide;
  if (!mapShaped) {
    say(why, "the model " + file_.string() + " is not the salient-object model (unexpected output)");
    return std::nullopt;
  }
  const SmartMasks::CoverageMap map{inputSide, inputSide,
                                    std::span<const float>(output.ptr<float>(), output.total())};
  return SmartMasks::bitmap(map);
}

}  // namespace lumivale
