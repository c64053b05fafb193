#pragma once
// Noise that is a pure function of position: the same pixel gets the same
// values in every tile, every render and every thread.

#include "engine/media/image.h"

namespace lumivale::filters {

/// The `width` × `height` window whose top-left pixel is (left, top) of an
/// endless plane of noise: every pixel and channel an independent uniform
/// value in 0 … 1 (3 bands, steps of 2⁻²⁴, never 1), a fixed hash of the
/// position. Windows that overlap agree where they overlap. Throws
/// ImageError for an empty window.
Image randomGenerator(int left, int top, int width, int height);

}  // namespace lumivale::filters
