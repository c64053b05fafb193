#include "cli/record_output.h"

#include <cmath>
#include <ctime>

namespace lumivale::cli {

std::string localTimeText(double seconds) {
  if (!std::isfinite(seconds)) return "-";
  std::time_t t = static_cast<std::time_t>(std::floor(seconds));
  std::tm local{};
  if (!localtime_r(&t, &local)) return "-";
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

std::string localTimeText(const std::optional<double>& seconds) {
  return seconds ? localTimeText(*seconds) : "-";
}

std::string flagText(int flag) {
  if (flag > 0) return "pick";
  if (flag < 0) return "reject";
  return "";
}

nlohmann::json recordJson(const PhotoRecord& r) {
  auto optionalTime = [](const std::optional<double>& t) {
    return t ? nlohmann::json(*t) : nlohmann::json(nullptr);
  };
  return {{"id", r.id},
          {"path", r.path},
          {"folder", r.folder},
          {"name", r.name},
          {"ext", r.ext},
          {"fileSize", r.fileSize},
          {"width", r.width},
          {"height", r.height},
          {"captureDate", optionalTime(r.captureDate)},
          {"importDate", r.importDate},
          {"camera", r.camera},
          {"lens", r.lens},
          {"iso", r.iso},
          {"shutter", r.shutter},
          {"aperture", r.aperture},
          {"focalLength", r.focalLength},
          {"rating", r.rating},
          {"flag", r.flag},
          {"label", r.label},
          {"isRaw", r.isRaw},
          {"edited", r.edited},
          {"editDate", optionalTime(r.editDate)},
          {"shutterText", r.shutterText()},
          {"summary", r.summary()}};
}

}  // namespace lumivale::cli
