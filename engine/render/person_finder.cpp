#include "engine/render/person_finder.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <map>
#include <mutex>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>
#include <set>
#include <string>

#include "engine/render/opencv_glue.h"

namespace lumivale {

namespace {

// Debian's opencv-data puts the cascades in the first; a build of OpenCV
// from source in the second.
constexpr const char* cascadeFolders[] = {"/usr/share/opencv4/haarcascades",
                                          "/usr/local/share/opencv4/haarcascades"};

// The least share of a box a subject region must cover to be that person's.
constexpr double faceShare = 0.4;
constexpr double figureShare = 0.2;

// Face search: the least face as a share of the long side, the step between
// scales and the overlapping hits a face needs. Smaller faces, finer steps or
// fewer hits find more faces of animals and carvings, and take longer.
constexpr double leastFace = 0.05;
constexpr double faceScaleStep = 1.15;
constexpr int faceNeighbours = 7;

cv::CascadeClassifier loadCascade(const char* name) {
  cv::CascadeClassifier cascade;
  for (const char* folder : cascadeFolders) {
    try {
      if (cascade.load(std::string(folder) + "/" + name)) break;
    } catch (const std::exception&) {
      // A damaged cascade file counts as a missing one.
    }
  }
  return cascade;
}

struct Detectors {
  cv::CascadeClassifier frontal = loadCascade("haarcascade_frontalface_alt2.xml");
  cv::CascadeClassifier profile = loadCascade("haarcascade_profileface.xml");
  cv::HOGDescriptor figures;
  std::mutex lock;  // the detectors keep working state: one search at a time

  Detectors() { figures.setSVMDetector(cv::HOGDescriptor::getDefaultPeopleDetector()); }
};

Detectors& detectors() {
  static Detectors shared;
  return shared;
}

// The picture in grey, `side` pixels on its long side; empty when malformed.
cv::Mat searchCopy(const Bitmap& image, int side) {
  if (!wellFormed(image)) return {};
  const double scale = double(side) / std::max(image.width, image.height);
  const int width = std::max(int(std::lround(image.width * scale)), 1);
  const int height = std::max(int(std::lround(image.height * scale)), 1);
  const cv::Mat rgb = scaledRGB(image, width, height);
  cv::Mat grey;
  if (!rgb.empty()) cv::cvtColor(rgb, grey, cv::COLOR_RGB2GRAY);
  return grey;
}

// The pixels of a `size` picture inside the unit rectangle `area`.
cv::Rect pixelArea(const cv::Size& size, const UnitRect& area) {
  const int x0 = int(std::floor(area.x * size.width)), y0 = int(std::floor(area.y * size.height));
  const int x1 = int(std::ceil((area.x + area.width) * size.width));
  const int y1 = int(std::ceil((area.y + area.height) * size.height));
  return cv::Rect(x0, y0, x1 - x0, y1 - y0) & cv::Rect(0, 0, size.width, size.height);
}

PersonBox unitBox(const cv::Rect& r, const cv::Size& size, PersonBox::Kind kind) {
  return {double(r.x) / size.width, double(r.y) / size.height, double(r.width) / size.width,
          double(r.height) / size.height, kind};
}

}  // namespace

std::vector<PersonBox> findPeople(const Bitmap& image, const UnitRect& area) {
  const cv::Mat faceGrey = searchCopy(image, faceSearchSide);
  const cv::Mat figureGrey = searchCopy(image, figureSearchSide);
  if (faceGrey.empty() || figureGrey.empty()) return {};
  const cv::Rect faceArea = pixelArea(faceGrey.size(), area);
  const cv::Rect figureArea = pixelArea(figureGrey.size(), area);
  if (faceArea.empty() || figureArea.empty()) return {};
  // Even contrast (of the whole picture, so that the area does not change
  // what a face looks like) helps the cascades in dim and hazy photos; the
  // mirror image shows the profile cascade, which knows faces looking one
  // way, those looking the other way.
  cv::Mat whole, mirrored;
  cv::equalizeHist(faceGrey, whole);
  const cv::Mat equalized = whole(faceArea);
  cv::flip(equalized, mirrored, 1);
  const int least = std::max(int(leastFace * faceSearchSide), 1);
  const cv::Size minFace(least, least);

  std::vector<PersonBox> found;
  auto take = [&](const std::vector<cv::Rect>& boxes, const cv::Mat& grey, const cv::Rect& searched,
                  bool flipped, PersonBox::Kind kind) {
    for (cv::Rect r : boxes) {
      if (flipped) r.x = searched.width - r.x - r.width;
      found.push_back(unitBox(r + searched.tl(), grey.size(), kind));
    }
  };
  Detectors& d = detectors();
  const std::lock_guard<std::mutex> guard(d.lock);
  std::vector<cv::Rect> boxes;
  try {
    if (!d.frontal.empty()) {
      d.frontal.detectMultiScale(equalized, boxes, faceScaleStep, faceNeighbours, 0, minFace);
      take(boxes, faceGrey, faceArea, false, PersonBox::Kind::face);
    }
    if (!d.profile.empty()) {
      d.profile.detectMultiScale(equalized, boxes, faceScaleStep, faceNeighbours, 0, minFace);
      take(boxes, faceGrey, faceArea, false, PersonBox::Kind::face);
      d.profile.detectMultiScale(mirrored, boxes, faceScaleStep, faceNeighbours, 0, minFace);
      take(boxes, faceGrey, faceArea, true, PersonBox::Kind::face);
    }
    if (figureArea.width >= d.figures.winSize.width && figureArea.height >= d.figures.winSize.height) {
      std::vector<double> weights;
      d.figures.detectMultiScale(figureGrey(figureArea), boxes, weights, 0, cv::Size(8, 8), cv::Size(8, 8),
                                 1.1, 2);
      take(boxes, figureGrey, figureArea, false, PersonBox::Kind::figure);
    }
  } catch (const std::exception&) {
    // A detector that fails finds no one; what the others found stands.
  }
  return found;
}

std::optional<UnitRect> subjectBounds(const MaskBitmap& subject, double margin) {
  if (subject.width <= 0 || subject.height <= 0 ||
      subject.bytes.size() != std::size_t(subject.width) * subject.height)
    return std::nullopt;
  const cv::Mat values(subject.height, subject.width, CV_8U, const_cast<std::uint8_t*>(subject.bytes.data()));
  cv::Mat inside;
  cv::compare(values, 128, inside, cv::CMP_GE);
  const cv::Rect bounds = cv::boundingRect(inside);
  if (bounds.empty()) return std::nullopt;
  const double x0 = std::max(double(bounds.x) / subject.width - margin, 0.0);
  const double y0 = std::max(double(bounds.y) / subject.height - margin, 0.0);
  const double x1 = std::min(double(bounds.x + bounds.width) / subject.width + margin, 1.0);
  const double y1 = std::min(double(bounds.y + bounds.height) / subject.height + margin, 1.0);
  return UnitRect{x0, y0, x1 - x0, y1 - y0};
}

MaskBitmap keepPeople(const MaskBitmap& subject, std::span<const PersonBox> people) {
  MaskBitmap kept(subject.width, subject.height);
  if (subject.width <= 0 || subject.height <= 0 ||
      subject.bytes.size() != std::size_t(subject.width) * subject.height || people.empty())
    return kept;
  const cv::Mat values(subject.height, subject.width, CV_8U, const_cast<std::uint8_t*>(subject.bytes.data()));
  cv::Mat inside, labels;
  cv::compare(values, 128, inside, cv::CMP_GE);
  cv::connectedComponents(inside, labels, 8, CV_32S);

  std::set<int> persons;
  const cv::Rect whole(0, 0, subject.width, subject.height);
  for (const PersonBox& p : people) {
    const int x0 = int(std::lround(p.x * subject.width)), y0 = int(std::lround(p.y * subject.height));
    const int x1 = int(std::lround((p.x + p.width) * subject.width));
    const int y1 = int(std::lround((p.y + p.height) * subject.height));
    const cv::Rect box = cv::Rect(x0, y0, x1 - x0, y1 - y0) & whole;
    if (box.area() <= 0) continue;
    std::map<int, int> counts;
    for (int y = box.y; y < box.y + box.height; ++y) {
      const int* row = labels.ptr<int>(y);
      for (int x = box.x; x < box.x + box.width; ++x)
        if (row[x] > 0) ++counts[row[x]];
    }
    const double least = (p.kind == PersonBox::Kind::face ? faceShare : figureShare) * box.area();
    for (const auto& [label, count] : counts)
      if (count >= least) persons.insert(label);
  }
  if (persons.empty()) return kept;

  cv::Mat region = cv::Mat::zeros(labels.size(), CV_8U);
  for (int y = 0; y < labels.rows; ++y) {
    const int* row = labels.ptr<int>(y);
    std::uint8_t* out = region.ptr<std::uint8_t>(y);
    for (int x = 0; x < labels.cols; ++x) out[x] = persons.count(row[x]) ? 255 : 0;
  }
  const int band = std::max(1, int(std::lround(0.02 * std::max(subject.width, subject.height))));
  cv::dilate(region, region,
             cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(2 * band + 1, 2 * band + 1)));
  for (std::size_t i = 0; i < kept.bytes.size(); ++i) kept.bytes[i] = region.data[i] ? subject.bytes[i] : 0;
  return kept;
}

}  // namespace lumivale
