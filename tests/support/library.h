#pragma once
// Catalog helpers for the catalog and CLI tests: a fresh library in a
// temporary folder, photo rows inserted directly with SQL, dumps of rows for
// before/after comparisons, and a process killed inside a write transaction.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "engine/catalog/photo_library.h"
#include "tests/support/temp_dir.h"

namespace lumivale::test {

using Ids = std::vector<std::int64_t>;
/// Further columns of a photo row, by name.
using Columns = std::vector<std::pair<std::string, SQLValue>>;

/// Inserts a photo row with `path`, its folder and file name and the given
/// `columns`; the import date is 0 unless given. Returns the new id.
std::int64_t insertPhoto(PhotoLibrary& library, const std::string& path, const Columns& columns = {});

/// The rows of each query as text, every value with its kind (blobs by size
/// and hash): equal dumps mean equal rows.
std::string dumpRows(PhotoLibrary& library, const std::vector<std::string>& queries);

/// Every row of every table that holds photos, their organising data and
/// their edits: equal dumps mean an unchanged catalog.
std::string dumpCatalog(PhotoLibrary& library);

/// Success when two dumps are equal; otherwise names the first line that
/// differs (a plain EXPECT_EQ would diff tens of thousands of lines).
::testing::AssertionResult sameRows(const std::string& expected, const std::string& actual);

/// Runs `work` in a child process on its own connection to the library in
/// `folder`, waits until the child holds the database's write lock, lets it
/// run on for a moment and kills it. The library must not be open in this
/// process. Fails the test when the work ended before the kill; a stall
/// trigger (`stallTrigger`) makes sure it cannot.
void killInsideTransaction(const std::filesystem::path& folder,
                           const std::function<void(PhotoLibrary&)>& work);

/// SQL for a trigger that keeps the statement that fires it busy for hours
/// (a count over a triple cross join of `photos`): `when` is the trigger's
/// event and condition, e.g. "BEFORE UPDATE ON photos WHEN OLD.id = 500".
/// A write that reaches that row never commits, so a kill lands inside its
/// transaction however fast the machine.
std::string stallTrigger(const std::string& when);

/// Fills a library with photos 1 to `photos`, each with two keywords, the
/// first hundred in a collection, and a history step (with settings) for
/// every tenth of the first 500.
void fillCatalog(PhotoLibrary& library, int photos);

/// Overwrites page `page` (from 1) of a database file of 4096-byte pages
/// with a pattern that no page of any kind can hold.
void corruptPage(const std::filesystem::path& database, int page);

/// Runs `work` in a child process and returns what it returns, or how the
/// child ended ("exit 3", "signal 9"). Without `writeAccess`, the child
/// cannot write what this process made: it runs as the user nobody when
/// the tests run as root (root writes anywhere), and otherwise
/// `readOnlyFolder` and the files in it lose their write permission while
/// it runs (its parent folder is made enterable for nobody).
std::string inChild(const std::function<std::string()>& work, bool writeAccess = true,
                    const std::filesystem::path& readOnlyFolder = {});

/// Opens the library in a child process, lets `work` change it, and ends
/// the child without closing the library, as a crash or a power cut does.
void endWithoutClosing(const std::filesystem::path& folder, const std::function<void(PhotoLibrary&)>& work);

/// A fresh library in the folder `folder`.
class LibraryTest : public ::testing::Test {
 protected:
  TempDir dir;
  std::filesystem::path folder = dir / "lib";
  PhotoLibrary library{folder};

  std::int64_t addPhoto(const std::string& path, const Columns& columns = {}) {
    return insertPhoto(library, path, columns);
  }
};

}  // namespace lumivale::test
