#pragma once
// Canon's CIFF container (CRW files): a header naming the byte order and
// "HEAPCCDR", then heaps of records, each heap ending with the offset of its
// directory; a record holds its data in the heap, in the record itself, or
// is a heap of its own.

#include <optional>
#include <string>

#include "engine/media/photo_file.h"

namespace lumivale {

/// The capture time a CIFF file records (record 0x180e), as the camera's
/// clock showed it: "yyyy:MM:dd HH:mm:ss". The camera stores that clock
/// reading as seconds since 1970 without a zone, so it is read as UTC, never
/// through this computer's zone. Nothing when the file is not CIFF or holds
/// no capture time. Throws ReadBudgetExceeded.
std::optional<std::string> ciffCaptureTime(PhotoFile& file);

}  // namespace lumivale
