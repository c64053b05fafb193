#include "tests/support/library.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace lumivale::test {

std::int64_t insertPhoto(PhotoLibrary& library, const std::string& path, const Columns& columns) {
  const std::filesystem::path file(path);
  std::string names = "path, folder, name", marks = "?, ?, ?";
  std::vector<SQLValue> values{path, file.parent_path().string(), file.filename().string()};
  if (std::none_of(columns.begin(), columns.end(), [](auto& c) { return c.first == "imported"; })) {
    names += ", imported";
    marks += ", 0";
  }
  for (const auto& [column, value] : columns) {
    names += ", " + column;
    marks += ", ?";
    values.push_back(value);
  }
  return library.db().run("INSERT INTO photos(" + names + ") VALUES(" + marks + ")", values);
}

std::string dumpRows(PhotoLibrary& library, const std::vector<std::string>& queries) {
  std::string text;
  for (const std::string& sql : queries) {
    text += sql + "\n";
    for (const SQLRow& row : library.db().query(sql)) {
      for (const SQLValue& v : row) {
        // Blobs by size and hash keep a failure's message short.
        const Blob b = v.dataValue().value_or(Blob{});
        using K = SQLValue::Kind;
        text += v.kind() == K::integer ? std::to_string(*v.intValue())
                : v.kind() == K::real  ? std::to_string(*v.doubleValue()) + "r"
                : v.kind() == K::text  ? "'" + *v.stringValue() + "'"
                : v.kind() == K::blob
                    ? "blob" + std::to_string(b.size()) + ":" +
                          std::to_string(std::hash<std::string>{}(std::string(b.begin(), b.end())))
                    : "NULL";
        text += "|";
      }
      text += "\n";
    }
  }
  return text;
}

std::string dumpCatalog(PhotoLibrary& library) {
  return dumpRows(
      library,
      {"SELECT * FROM photos ORDER BY id", "SELECT * FROM keywords ORDER BY photo, word",
       "SELECT * FROM collections ORDER BY id", "SELECT * FROM collection_items ORDER BY collection, photo",
       "SELECT * FROM history ORDER BY photo, seq", "SELECT * FROM snapshots ORDER BY id",
       "SELECT * FROM presets ORDER BY id", "SELECT * FROM folders ORDER BY path"});
}

::testing::AssertionResult sameRows(const std::string& expected, const std::string& actual) {
  if (expected == actual) return ::testing::AssertionSuccess();
  std::size_t line = 1, at = 0;
  while (at < expected.size() && at < actual.size() && expected[at] == actual[at]) {
    if (expected[at++] == '\n') ++line;
  }
  const auto lineAt = [&](const std::string& text) {
    const std::size_t start = text.rfind('\n', at == 0 ? 0 : at - 1);
    const std::size_t from = start == std::string::npos || at == 0 ? 0 : start + 1;
    return text.substr(from, text.find('\n', from) - from);
  };
  return ::testing::AssertionFailure() << "rows differ from line " << line << ": expected \""
                                       << lineAt(expected) << "\", got \"" << lineAt(actual) << "\"";
}

void fillCatalog(PhotoLibrary& library, int photos) {
  library.db().run(R"SQL(
    WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?)
    INSERT INTO photos(id, path, folder, name, ext, imported, camera, rating)
      SELECT i, '/photos/IMG_' || i || '.jpg', '/photos', 'IMG_' || i || '.jpg', 'jpg', i, 'Camera ' || (i % 7),
             i % 6 FROM n)SQL",
                   {photos});
  library.db().exec(R"SQL(
    INSERT INTO keywords(photo, word) SELECT id, 'word' || (id % 30) FROM photos UNION ALL
                                      SELECT id, 'place' || (id % 7) FROM photos;
    INSERT INTO collections(id, name, created) VALUES(1, 'Best', 0);
    INSERT INTO collection_items(collection, photo) SELECT 1, id FROM photos WHERE id <= 100;
  )SQL");
  for (int id = 1; id <= std::min(photos, 500); id += 10) {
    library.saveSettings(id, EditSettings{.exposure = id / 100.0, .contrast = 10}, "Edit");
  }
}

void corruptPage(const std::filesystem::path& database, int page) {
  std::string bytes = readFile(database);
  const std::size_t at = static_cast<std::size_t>(page - 1) * 4096;
  ASSERT_LE(at + 4096, bytes.size());
  // 0xA5 is no b-tree page type, and as a page number it is beyond any file.
  std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(at),
            bytes.begin() + static_cast<std::ptrdiff_t>(at + 4096), '\xA5');
  std::filesystem::remove(database);
  writeFile(database, bytes);
}

std::string inChild(const std::function<std::string()>& work, bool writeAccess,
                    const std::filesystem::path& readOnlyFolder) {
  namespace fs = std::filesystem;
  const bool asNobody = !writeAccess && geteuid() == 0;
  std::vector<fs::path> locked;
  // The temporary folder above is private to its owner; nobody must be able
  // to find the library in it.
  if (asNobody) fs::permissions(readOnlyFolder.parent_path(), fs::perms::others_exec, fs::perm_options::add);
  if (!writeAccess && !asNobody) {
    locked.push_back(readOnlyFolder);
    for (const auto& entry : fs::directory_iterator(readOnlyFolder)) locked.push_back(entry.path());
    for (const fs::path& p : locked)
      fs::permissions(p, fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                      fs::perm_options::remove);
  }
  int channel[2];
  if (pipe(channel) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    close(channel[0]);
    if (asNobody && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(3);
    std::string answer;
    try {
      answer = work();
    } catch (const std::exception& e) {
      answer = std::string("exception: ") + e.what();
    }
    const bool sent = write(channel[1], answer.data(), answer.size()) == static_cast<ssize_t>(answer.size());
    _exit(sent ? 0 : 4);
  }
  close(channel[1]);
  std::string answer;
  char buffer[4096];
  for (ssize_t n; (n = read(channel[0], buffer, sizeof buffer)) > 0;)
    answer.append(buffer, static_cast<std::size_t>(n));
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  for (const fs::path& p : locked) fs::permissions(p, fs::perms::owner_write, fs::perm_options::add);
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "exit " + std::to_string(WEXITSTATUS(status));
  return answer;
}

void endWithoutClosing(const std::filesystem::path& folder, const std::function<void(PhotoLibrary&)>& work) {
  ASSERT_EQ(inChild([&] {
              PhotoLibrary library(folder);
              work(library);
              _exit(0);  // no destructor runs: the library is never closed
              return std::string();
            }),
            "");
}

std::string stallTrigger(const std::string& when) {
  return "CREATE TRIGGER stall " + when + " BEGIN SELECT COUNT(*) FROM photos a, photos b, photos c; END";
}

void killInsideTransaction(const std::filesystem::path& folder,
                           const std::function<void(PhotoLibrary&)>& work) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(ready[0]);
    try {
      PhotoLibrary library(folder);
      if (write(ready[1], "r", 1) != 1) _exit(3);
      work(library);
    } catch (...) {
      _exit(2);
    }
    _exit(0);
  }
  close(ready[1]);
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);

  // The child holds the write lock once its BEGIN IMMEDIATE went through: a
  // second connection that does not wait then fails to begin its own.
  bool inside = false;
  {
    SQLiteDB probe((folder / PhotoLibrary::databaseName).string());
    probe.exec("PRAGMA busy_timeout = 0");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!inside && std::chrono::steady_clock::now() < deadline) {
      try {
        probe.exec("BEGIN IMMEDIATE");
        probe.exec("ROLLBACK");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      } catch (const SQLError&) {
        inside = true;
      }
    }
  }
  // Let it write for a while before the kill.
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(inside);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the work finished before it could be interrupted";
}

}  // namespace lumivale::test
