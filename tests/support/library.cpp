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
