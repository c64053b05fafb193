#pragma once
// The salient-object model behind subject and people masks: ISNet (general
// use) as an ONNX file converted for OpenCV 4.6 by
// scripts/convert-segmentation-model.py, run with OpenCV's `dnn`.
//
// No package ships the model, so scripts/install-deps.sh fetches and
// converts it once into a folder outside the repository:
//   $LUMIVALE_MODELS                      when set (and then only there),
//   $XDG_DATA_HOME/kuvo-lumivale/models   (XDG_DATA_HOME defaults to
//                                          ~/.local/share),
//   <each of $XDG_DATA_DIRS>/kuvo-lumivale/models
//                                         (defaults /usr/local/share and
//                                          /usr/share).
//
// The model takes a square RGB picture of `inputSide` pixels, scaled to
// −0.5 … 0.5, and returns a coverage map of the same size, 0 … 1. Its levels
// halve the picture six times, so any side that is a multiple of 64 works.
// 384 is where thin subjects (a heron's neck, a dog's legs) come out whole;
// 320 loses them, and 448 adds little for a third more time (one pass at
// 384 takes about 0.85 s on two cores).

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/media/bitmap.h"
#include "engine/render/mask_bitmap.h"

namespace lumivale {

class SegmentationModel {
 public:
  /// The file name of the converted model in its folder.
  static constexpr const char* fileName = "isnet-general-use.onnx";
  /// The side of the square picture the model is given, in pixels.
  static constexpr int inputSide = 384;

  /// The folders searched for the model, in order (see above). Reads the
  /// environment on every call.
  static std::vector<std::filesystem::path> folders();
  /// The first folder's model file that exists, or nothing.
  static std::optional<std::filesystem::path> find();

  /// Reads the model at `file`. Nothing when the file is missing or is not
  /// a model OpenCV can read; `why` then receives a line naming the file and
  /// the reason. Takes about half a second for the real model.
  static std::optional<SegmentationModel> load(const std::filesystem::path& file, std::string* why = nullptr);

  /// The model of `find()`, read once per process and kept (read again when
  /// `find()` names another file). Nothing, and `why`, when there is none or
  /// it does not load. Thread-safe.
  static std::shared_ptr<SegmentationModel> shared(std::string* why = nullptr);

  SegmentationModel(SegmentationModel&&) noexcept;
  SegmentationModel& operator=(SegmentationModel&&) noexcept;
  SegmentationModel(const SegmentationModel&) = delete;
  SegmentationModel& operator=(const SegmentationModel&) = delete;
  ~SegmentationModel();

  const std::filesystem::path& file() const { return file_; }

  /// The coverage map of `image` (see smart_masks.h for the pictures taken)
  /// as an `inputSide` square bitmap. Nothing when the picture is empty or
  /// malformed or the model fails on it (a network that is not ISNet, say:
  /// wrong input or output shape); `why` then receives the reason. One
  /// picture at a time per model; calls from other threads wait.
  std::optional<MaskBitmap> run(const Bitmap& image, std::string* why = nullptr);

 private:
  struct Network;
  SegmentationModel(std::filesystem::path file, std::unique_ptr<Network> network);

  std::filesystem::path file_;
  std::unique_ptr<Network> network_;
};

}  // namespace lumivale
