#include "engine/render/raw/lens_correction.h"

#include <lensfun/lensfun.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

#include "engine/media/vips_glue.h"
#include "engine/render/kernel.h"
#include "engine/util/text.h"

namespace lumivale::LensCorrection {
namespace {

const lfDatabase* database() {
  static std::unique_ptr<lfDatabase> db;
  static std::once_flag once;
  std::call_once(once, [] {
    db = std::make_unique<lfDatabase>();
    // With no data installed the database stays empty: nothing is found.
    // lensfun 0.3 loses one path string per load; the database lives as long
    // as the process, and the leak checker is told not to count it.
#if defined(__SANITIZE_ADDRESS__)
    __lsan_disable();
#endif
    db->Load();
#if defined(__SANITIZE_ADDRESS__)
    __lsan_enable();
#endif
  });
  return db.get();
}

// lensfun hands out lists it allocated.
template <class T>
struct FoundList {
  explicit FoundList(const T** found) : items(found) {}
  const T** items = nullptr;
  ~FoundList() { lf_free(items); }
  FoundList(const FoundList&) = delete;
  FoundList& operator=(const FoundList&) = delete;
};

bool calibrated(const lfLens* lens) {
  return (lens->CalibDistortion && lens->CalibDistortion[0]) || (lens->CalibTCA && lens->CalibTCA[0]) ||
         (lens->CalibVignetting && lens->CalibVignetting[0]);
}

struct Match {
  const lfCamera* camera = nullptr;
  const lfLens* lens = nullptr;
};

std::optional<Match> find(const RawFacts& facts) {
  const lfDatabase* db = database();
  for (const auto& [make, model] : facts.cameraNames) {
    if (model.empty()) continue;
    FoundList<lfCamera> cameras{db->FindCamerasExt(make.empty() ? nullptr : make.c_str(), model.c_str())};
    if (!cameras.items || !cameras.items[0]) continue;
    // The search is fuzzy ("EOS 30D" also finds the "EOS D30"): a model
    // named exactly as the file names it wins.
    const lfCamera* camera = cameras.items[0];
    const std::string wanted = asciiLowercased(model), wantedFull = asciiLowercased(make + " " + model);
    for (const lfCamera** c = cameras.items; *c; ++c) {
      const std::string name = asciiLowercased((*c)->Model ? (*c)->Model : "");
      if (name == wanted || name == wantedFull) {
        camera = *c;
        break;
      }
    }
    for (const std::string& lensName : facts.lensNames) {
      FoundList<lfLens> lenses{db->FindLenses(camera, nullptr, lensName.c_str())};
      if (!lenses.items) continue;
      for (const lfLens** lens = lenses.items; *lens; ++lens) {
        if (calibrated(*lens)) return Match{camera, *lens};
      }
    }
  }
  return std::nullopt;
}

// A frame size's correction, tabulated: lensfun's answers at the corners
// of cells about a hundredth of the frame's shorter side across (at most
// 16 pixels), interpolated bilinearly in between. Its models are smooth
// polynomials of the radius: a cell bends the picture by far less than a
// hundredth of a pixel, and the steepest vignetting by a few thousandths.
class CorrectionGrid {
 public:
  CorrectionGrid(const Match& match, const RawFacts& facts, int width, int height)
      : width_(width),
        height_(height),
        step_(std::clamp(std::min(width, height) / 100, 2, 16)),
        cols_((width - 1) / step_ + 2),
        rows_((height - 1) / step_ + 2) {
    lfModifier modifier(match.lens, match.camera->CropFactor, width, height);
    const lfLens* lens = match.lens;
    const float focal = facts.focal > 0 ? float(facts.focal) : lens->MinFocal;
    const float aperture = facts.fNumber > 0 ? float(facts.fNumber) : std::max(lens->MinAperture, 8.0f);
    // Only vignetting depends on the distance, and little: lensfun's advice
    // for an unknown one is 1000 m.
    const float distance = facts.focusDistance > 0 ? float(facts.focusDistance) : 1000.0f;
    const int done = modifier.Initialize(
        lens, LF_PF_F32, focal, aperture, distance, 0.0f, lens->Type,
        LF_MODIFY_VIGNETTING | LF_MODIFY_TCA | LF_MODIFY_DISTORTION | LF_MODIFY_SCALE, false);
    tca_ = done & LF_MODIFY_TCA;
    moves_ = done & (LF_MODIFY_TCA | LF_MODIFY_DISTORTION | LF_MODIFY_SCALE);
    const std::size_t points = std::size_t(cols_) * rows_;
    if (moves_) {
      sources_.resize(points * 6);
      for (int gy = 0; gy < rows_; ++gy) {
        for (int gx = 0; gx < cols_; ++gx) {
          modifier.ApplySubpixelGeometryDistortion(float(gx * step_), float(gy * step_), 1, 1,
                                                   &sources_[(std::size_t(gy) * cols_ + gx) * 6]);
        }
      }
    }
    if (done & LF_MODIFY_VIGNETTING) {
      // The gain at each grid point: lensfun's correction of a white pixel.
      gains_.assign(points * 3, 1.0f);
      for (int gy = 0; gy < rows_; ++gy) {
        for (int gx = 0; gx < cols_; ++gx) {
          modifier.ApplyColorModification(&gains_[(std::size_t(gy) * cols_ + gx) * 3], float(gx * step_),
                                          float(gy * step_), 1, 1, LF_CR_3(RED, GREEN, BLUE),
                                          3 * sizeof(float));
        }
      }
    }
  }

  bool changes() const { return moves_ || !gains_.empty(); }

  /// Where pixels x0 … x0 + n − 1 of output row y take red, green and blue
  /// from: (x, y) pairs, six floats per pixel.
  void rowSources(int y, int x0, int n, float* out) const {
    if (!moves_) {
      for (int i = 0; i < n; ++i) {
        for (int c = 0; c < 3; ++c) {
          out[6 * i + 2 * c] = float(x0 + i);
          out[6 * i + 2 * c + 1] = float(y);
        }
      }
      return;
    }
    // The grid's rows above and below, blended once for the row; then
    // along the row between neighbouring columns.
    const float gy = std::min(float(y) / step_, float(rows_ - 1));
    const int row = std::min(int(gy), rows_ - 2);
    const float fy = gy - row;
    thread_local std::vector<float> blended;
    blended.resize(std::size_t(cols_) * 6);
    const float* upper = &sources_[std::size_t(row) * cols_ * 6];
    const float* lower = upper + std::size_t(cols_) * 6;
    for (std::size_t i = 0; i < blended.size(); ++i) blended[i] = upper[i] + fy * (lower[i] - upper[i]);
    const float inverseStep = 1.0f / step_;
    for (int i = 0; i < n; ++i) {
      const float gx = std::min(float(x0 + i) * inverseStep, float(cols_ - 1));
      const int col = std::min(int(gx), cols_ - 2);
      const float fx = gx - col;
      const float* left = &blended[std::size_t(col) * 6];
      for (int k = 0; k < 6; ++k) out[6 * i + k] = left[k] + fx * (left[6 + k] - left[k]);
    }
  }

  /// The vignetting gains of red, green and blue at input position (x, y).
  void gains(float x, float y, float* gain) const {
    if (gains_.empty()) {
      gain[0] = gain[1] = gain[2] = 1;
      return;
    }
    const float gx = std::clamp(x / step_, 0.0f, float(cols_ - 1)),
                gy = std::clamp(y / step_, 0.0f, float(rows_ - 1));
    const int x0 = std::min(int(gx), cols_ - 2), y0 = std::min(int(gy), rows_ - 2);
    const float fx = gx - x0, fy = gy - y0;
    const float* p = &gains_[(std::size_t(y0) * cols_ + x0) * 3];
    const float* q = p + std::size_t(cols_) * 3;
    for (int c = 0; c < 3; ++c) {
      const float top = p[c] + fx * (p[3 + c] - p[c]);
      const float bottom = q[c] + fx * (q[3 + c] - q[c]);
      gain[c] = top + fy * (bottom - top);
    }
  }

  bool vignetting() const { return !gains_.empty(); }

  /// The input rectangle the output rectangle reads (before clamping).
  kernel::PixelRect need(const kernel::PixelRect& out) const {
    if (!moves_) return out;
    float left = 1e30f, top = 1e30f, right = -1e30f, bottom = -1e30f;
    const int gx0 = out.left / step_, gx1 = std::min((out.right() - 1) / step_ + 1, cols_ - 1);
    const int gy0 = out.top / step_, gy1 = std::min((out.bottom() - 1) / step_ + 1, rows_ - 1);
    for (int gy = gy0; gy <= gy1; ++gy) {
      for (int gx = gx0; gx <= gx1; ++gx) {
        const float* p = &sources_[(std::size_t(gy) * cols_ + gx) * 6];
        for (int c = 0; c < 3; ++c) {
          left = std::min(left, p[2 * c]);
          right = std::max(right, p[2 * c]);
          top = std::min(top, p[2 * c + 1]);
          bottom = std::max(bottom, p[2 * c + 1]);
        }
      }
    }
    const int l = int(std::floor(std::clamp(left, -1.0f, float(width_)))) - 1;
    const int t = int(std::floor(std::clamp(top, -1.0f, float(height_)))) - 1;
    const int r = int(std::ceil(std::clamp(right, -1.0f, float(width_)))) + 2;
    const int b = int(std::ceil(std::clamp(bottom, -1.0f, float(height_)))) + 2;
    return {l, t, std::max(r - l, 1), std::max(b - t, 1)};
  }

  bool tca() const { return tca_; }

 private:
  int width_;
  int height_;
  int step_;
  int cols_;
  int rows_;
  bool tca_ = false;
  bool moves_ = false;
  std::vector<float> sources_;  // per grid point: red, green, blue (x, y)
  std::vector<float> gains_;    // per grid point: red, green, blue
};

Profile describe(const Match& match) {
  Profile p;
  p.camera = std::string(match.camera->Maker ? match.camera->Maker : "") + " " +
             (match.camera->Model ? match.camera->Model : "");
  p.lens = match.lens->Model ? match.lens->Model : "";
  p.distortion = match.lens->CalibDistortion && match.lens->CalibDistortion[0];
  p.tca = match.lens->CalibTCA && match.lens->CalibTCA[0];
  p.vignetting = match.lens->CalibVignetting && match.lens->CalibVignetting[0];
  return p;
}

}  // namespace

std::optional<Profile> profile(const RawFacts& facts) {
  if (auto match = find(facts)) return describe(*match);
  return std::nullopt;
}

bool available(const RawFacts& facts) { return find(facts).has_value(); }

Image apply(const Image& image, const RawFacts& facts) {
  const std::optional<Match> match = find(facts);
  if (!match || image.empty() || image.width() < 2 || image.height() < 2) return image;
  const int width = image.width(), height = image.height();
  auto grid = std::make_shared<const CorrectionGrid>(*match, facts, width, height);
  if (!grid->changes()) return image;
  return kernel::mapArea(
      image, width, height, 3, [grid](const kernel::PixelRect& out) { return grid->need(out); },
      [grid](const kernel::InputArea& in, float* out, int n, int x0, int y) {
        const int left = in.rect.left, right = in.rect.right() - 1;
        const int top = in.rect.top, bottom = in.rect.bottom() - 1;
        thread_local std::vector<float> sources;
        sources.resize(std::size_t(n) * 6);
        grid->rowSources(y, x0, n, sources.data());
        // Bilinear, edge pixels repeated beyond the input.
        auto sample = [&](float sx, float sy, int first, int last, float* to) {
          const float fxf = std::floor(sx), fyf = std::floor(sy);
          const float fx = sx - fxf, fy = sy - fyf;
          const int xa = std::clamp(int(fxf), left, right), xb = std::clamp(int(fxf) + 1, left, right);
          const int ya = std::clamp(int(fyf), top, bottom), yb = std::clamp(int(fyf) + 1, top, bottom);
          const float* p00 = in.at(xa, ya);
          const float* p10 = in.at(xb, ya);
          const float* p01 = in.at(xa, yb);
          const float* p11 = in.at(xb, yb);
          float gain[3] = {1, 1, 1};
          if (grid->vignetting()) grid->gains(sx, sy, gain);
          for (int k = first; k <= last; ++k) {
            const float upper = p00[k] + fx * (p10[k] - p00[k]);
            const float lower = p01[k] + fx * (p11[k] - p01[k]);
            to[k] = (upper + fy * (lower - upper)) * gain[k];
          }
        };
        for (int i = 0; i < n; ++i) {
          const float* xy = &sources[std::size_t(i) * 6];
          if (!grid->tca()) {
            // The three channels come from one place.
            sample(xy[2], xy[3], 0, 2, out + 3 * i);
            continue;
          }
          for (int c = 0; c < 3; ++c) sample(xy[2 * c], xy[2 * c + 1], c, c, out + 3 * i);
        }
      });
}

}  // namespace lumivale::LensCorrection
