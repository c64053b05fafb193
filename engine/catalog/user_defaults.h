#pragma once
// The per-user defaults store: a few small values kept between runs under
// string keys ("kuvo.ph.exportOptions", "kuvo.ph.gridSize"), shared by the
// app and the command line.
//
// The store is one JSON object in one file, "Lumivale.json" in the folder
// `UserDefaults::standard` names. A value is a JSON string when its bytes
// are UTF-8, else {"base64": "..."}. Every change reads the file, changes
// one key and writes the whole file anew through the safe writer (a reader
// never sees half a file, a full disk leaves the old one), under an advisory
// lock on "Lumivale.lock" beside it, so two programs changing different keys
// at the same time both keep their change. A file that cannot be read or
// parsed holds no keys: every reader then falls back to its defaults.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace lumivale {

class UserDefaults {
 public:
  /// The store in `folder`, which is made (with its parents) on the first
  /// change.
  explicit UserDefaults(std::filesystem::path folder);

  /// The user's store: the folder LUMIVALE_CONFIG names when it is set and
  /// not empty, else "KUVO" in $XDG_CONFIG_HOME when that is an absolute
  /// path, else ~/.config/KUVO.
  static UserDefaults standard();

  /// The file holding the store.
  std::filesystem::path file() const { return folder_ / "Lumivale.json"; }

  /// The bytes stored under `key`; nothing when the key is absent or the
  /// store cannot be read. Never throws.
  std::optional<std::string> data(std::string_view key) const;
  /// Every key with its bytes; empty when the store cannot be read. Never
  /// throws.
  std::map<std::string, std::string> all() const;

  /// Stores `bytes` under `key`, replacing what it held. Throws MediaError
  /// "cannot write "<file>": <reason>" when the folder or the file cannot be
  /// written; the store is then as it was.
  void set(std::string_view key, std::string_view bytes) const;
  /// Removes `key` (nothing happens when it is absent). Throws as `set`.
  void remove(std::string_view key) const;

 private:
  template <class Change>
  void change(Change change) const;

  std::filesystem::path folder_;
};

}  // namespace lumivale
