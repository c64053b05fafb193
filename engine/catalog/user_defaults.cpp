#include "engine/catalog/user_defaults.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

#include "engine/edit/base64.h"
#include "engine/edit/json.h"
#include "engine/media/safe_file.h"
#include "engine/util/text.h"

namespace lumivale {
namespace {

namespace fs = std::filesystem;

// A store is a handful of short values; anything far larger is not ours.
constexpr std::uintmax_t largestStore = 16 << 20;

fs::path homeFolder() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* user = ::getpwuid(::getuid()); user && user->pw_dir) return user->pw_dir;
  return "/";
}

std::map<std::string, std::string> parse(std::string_view text) {
  std::map<std::string, std::string> values;
  JsonReader in(text);
  in.beginObject();
  std::string key, value;
  while (in.nextKey(key)) {
    if (in.peek() == JsonReader::Kind::string) {
      in.readString(value);
    } else {
      // {"base64": "..."}: bytes that are not UTF-8.
      in.beginObject();
      std::string member, encoded;
      bool found = false;
      while (in.nextKey(member)) {
        if (member != "base64") throw JsonSyntaxError();
        in.readString(encoded);
        found = true;
      }
      const auto bytes = base64Decode(encoded);
      if (!found || !bytes) throw JsonSyntaxError();
      value.assign(bytes->begin(), bytes->end());
    }
    values[key] = value;
  }
  in.finish();
  return values;
}

std::map<std::string, std::string> readStore(const fs::path& file) {
  std::error_code error;
  const auto size = fs::file_size(file, error);
  if (error || size > largestStore || !fs::is_regular_file(file, error)) return {};
  std::ifstream in(file, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (in.bad()) return {};
  try {
    return parse(text);
  } catch (const std::exception&) {
    return {};
  }
}

std::string storeText(const std::map<std::string, std::string>& values) {
  JsonWriter out;
  out.beginObject();
  for (const auto& [key, value] : values) {
    out.key(key);
    if (isUtf8(value)) {
      out.value(std::string_view(value));
    } else {
      out.beginObject();
      out.key("base64");
      out.value(std::string_view(base64Encode({value.begin(), value.end()})));
      out.endObject();
    }
  }
  out.endObject();
  return out.take() + "\n";
}

// Holds an advisory lock on a file for as long as it lives.
class FileLock {
 public:
  explicit FileLock(const fs::path& file) : fd_(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (fd_ < 0) {
      throw MediaError("cannot write " + quotedPath(file) + ": " + std::generic_category().message(errno));
    }
    while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~FileLock() { ::close(fd_); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int fd_;
};

}  // namespace

UserDefaults::UserDefaults(fs::path folder) : folder_(std::move(folder)) {}

UserDefaults UserDefaults::standard() {
  if (const char* config = std::getenv("LUMIVALE_CONFIG"); config && *config) return UserDefaults(config);
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg == '/') {
    return UserDefaults(fs::path(xdg) / "KUVO");
  }
  return UserDefaults(homeFolder() / ".config" / "KUVO");
}

std::optional<std::string> UserDefaults::data(std::string_view key) const {
  auto values = readStore(file());
  const auto found = values.find(std::string(key));
  if (found == values.end()) return std::nullopt;
  return std::move(found->second);
}

std::map<std::string, std::string> UserDefaults::all() const { return readStore(file()); }

template <class Change>
void UserDefaults::change(Change change) const {
  std::error_code error;
  fs::create_directories(folder_, error);
  if (error) throw MediaError("cannot write " + quotedPath(file()) + ": " + error.message());
  const FileLock lock(folder_ / "Lumivale.lock");
  auto values = readStore(file());
  if (!change(values)) return;
  writeFileSafely(file(), storeText(values), true);
}

void UserDefaults::set(std::string_view key, std::string_view bytes) const {
  change([&](std::map<std::string, std::string>& values) {
    values[std::string(key)] = std::string(bytes);
    return true;
  });
}

void UserDefaults::remove(std::string_view key) const {
  change([&](std::map<std::string, std::string>& values) { return values.erase(std::string(key)) > 0; });
}

}  // namespace lumivale
