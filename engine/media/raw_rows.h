#pragma once
// The per-row arithmetic of developing Bayer sensor data (see
// raw_decoder.h), vectorised with Highway and dispatched at run time to the
// best instruction set of the machine. Internal to engine/media.
//
// Rows are processed independently, so callers spread them over threads.

#include <cstdint>

namespace lumivale::media_detail {

/// What the sites of one row of the colour filter hold, for even and odd
/// columns: the colour (0 red, 1 green, 2 blue) and, for a green site,
/// whether red lies left and right of it (else above and below).
struct BayerRow {
  int colour[2] = {0, 1};
  bool redBeside[2] = {false, true};
};

/// White-balanced camera RGB to the working space: highlights that reached
/// a channel's clipping point are reconstructed, then the camera matrix.
struct CameraToWorking {
  float clip[3] = {1, 1, 1};  ///< each channel's clipping point (at least 1)
  float matrix[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

  /// Reconstruction fades in over the last 5 % below a clipping point, so
  /// no edge shows where it starts.
  static constexpr float kneeStart = 0.95f;

  /// One pixel.
  void convert(float r, float g, float b, float* out) const;
};

/// Extra floats a mosaic row must be readable beyond its last site plus 2,
/// for whole vectors.
inline constexpr int rowSlack = 64;

/// Normalised samples of one row: out[x] = (raw[x] − black[x & 1]) ×
/// scale[x & 1] for x in 0 … width − 1.
void normaliseRow(const std::uint16_t* raw, float* out, int width, const float black[2],
                  const float scale[2]);

/// One row of developed pixels (`width` interleaved RGB triples) by
/// gradient-corrected bilinear interpolation (Malvar, He and Cutler): the
/// bilinear estimate of a missing colour corrected by the Laplacian of the
/// colour the site has. `rows[k]` points at column 0 of the normalised
/// mosaic rows y − 2 … y + 2; each is readable from column −2 to width + 1 +
/// `rowSlack`.
void developRow(const float* const* rows, const BayerRow& sites, const CameraToWorking& post, float* out,
                int width);

}  // namespace lumivale::media_detail
