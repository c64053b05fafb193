#pragma once
// How photo records and catalog times look on the command line, shared by
// every command that prints photos.

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "engine/catalog/photo_record.h"

namespace lumivale::cli {

/// A catalog time (seconds since 1970) as local "YYYY-MM-DD HH:MM:SS".
std::string localTimeText(double seconds);
/// The same, or "-" for an absent time.
std::string localTimeText(const std::optional<double>& seconds);

/// Every field of the record, with `shutterText` and `summary`; times as
/// seconds since 1970 (null when absent).
nlohmann::json recordJson(const PhotoRecord& record);

/// Flag as a word: "pick", "reject" or "" for none.
std::string flagText(int flag);

}  // namespace lumivale::cli
