#pragma once
// One line of text drawn onto an output image: a watermark over a soft
// shadow, laid out by pango (with fontconfig's fallbacks for scripts and
// emoji the font lacks, and bidirectional text in its visual order) and
// rasterised by cairo into just the part of the image it touches.
//
// Colours are given in sRGB and converted into the image's own colour
// space (its embedded ICC profile); blending happens on the image's encoded
// values, as a drawing context in that space blends.

#include <optional>
#include <string>

#include "engine/media/image.h"

namespace lumivale {

/// Where the text sits along one axis: at the left or top edge, in the
/// middle, or at the right or bottom edge.
enum class TextAlign { start, middle, end };

struct TextWatermark {
  std::string text;     ///< one line; line breaks and controls become spaces
  double fontSize = 8;  ///< pixels (the em size)
  TextAlign column = TextAlign::end;
  TextAlign row = TextAlign::end;
  double margin = 0;       ///< pixels between the text's ink and an edge it sits at
  double grey = 1;         ///< grey level of the text in sRGB, 0 … 1
  double opacity = 1;      ///< 0 … 1
  double shadowGrey = 0;   ///< grey level of the shadow in sRGB
  double shadowAlpha = 0;  ///< alpha of the shadow's colour; it also takes the text's own
  double shadowDrop = 0;   ///< pixels the shadow lies below the text
  double shadowBlur = 0;   ///< blur of the shadow, pixels (a Gaussian of σ = blur / 2)

  bool operator==(const TextWatermark&) const = default;
};

/// The font the text is set in: Nimbus Sans or TeX Gyre Heros, medium weight.
inline constexpr const char* watermarkFont = "Nimbus Sans, TeX Gyre Heros Medium";

/// `image` (3-band RGB, 8 or 16 bits, with an ICC profile) with `mark`
/// drawn on it: its ink box placed by `column`, `row` and `margin`; lazy
/// outside the drawn part. The image itself when nothing of the text falls
/// inside it or the text has no ink. Nothing when the image has no profile
/// or another pixel format, or the text cannot be laid out (a line that
/// would be over a million and a half pixels long, a size beyond a million
/// pixels, text beyond 64 KB, a part of the image wider than cairo draws).
std::optional<Image> drawTextWatermark(const Image& image, const TextWatermark& mark);

}  // namespace lumivale
