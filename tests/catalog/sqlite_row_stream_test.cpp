#include <gtest/gtest.h>

#include "engine/catalog/sqlite_db.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

class RowStreamTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  SQLiteDB db{(dir / "rows.sqlite").string()};

  std::vector<SQLRow> streamed(const std::string& sql, const std::vector<SQLValue>& args = {}) {
    std::vector<SQLRow> rows;
    db.forEachRow(sql, args, [&](const SQLRow& row) { rows.push_back(row); });
    return rows;
  }
};

// The row object is reused between rows, so a column that changes type from
// one row to the next must still read as the new value, never as a mix.
TEST_F(RowStreamTest, GivesTheSameRowsAsQueryWhateverTheColumnTypes) {
  db.exec("CREATE TABLE t(id INTEGER PRIMARY KEY, v, w)");
  db.run("INSERT INTO t(v, w) VALUES('a long text that does not fit in place', 1)");
  db.run("INSERT INTO t(v, w) VALUES(7, 'x')");
  db.run("INSERT INTO t(v, w) VALUES('short', ?)", {Blob{1, 2, 3}});
  db.run("INSERT INTO t(v, w) VALUES('', ?)", {Blob{}});
  db.run("INSERT INTO t(v, w) VALUES(NULL, 2.5)");
  db.run("INSERT INTO t(v, w) VALUES(?, NULL)", {Blob{9}});
  const std::string sql = "SELECT id, v, w FROM t WHERE id >= ? ORDER BY id";
  auto rows = streamed(sql, {1});
  EXPECT_EQ(rows, db.query(sql, {1}));
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_EQ(rows[2][1], SQLValue("short"));
  EXPECT_EQ(rows[3][1], SQLValue(""));
  EXPECT_EQ(rows[3][2], SQLValue(Blob{}));
  EXPECT_TRUE(rows[4][1].isNull());
  EXPECT_EQ(streamed(sql, {5}).size(), 2u);
}

TEST_F(RowStreamTest, BadSqlCallsNothing) {
  int calls = 0;
  db.forEachRow("SELEC nonsense", {}, [&](const SQLRow&) { ++calls; });
  db.forEachRow("SELECT * FROM missing", {}, [&](const SQLRow&) { ++calls; });
  EXPECT_EQ(calls, 0);
}

TEST_F(RowStreamTest, AnExceptionFromTheBodyEndsTheReadAndReleasesTheStatement) {
  db.exec("CREATE TABLE t(v); INSERT INTO t VALUES(1), (2), (3);");
  int seen = 0;
  EXPECT_THROW(db.forEachRow("SELECT v FROM t", {},
                             [&](const SQLRow&) {
                               if (++seen == 2) throw std::runtime_error("stop");
                             }),
               std::runtime_error);
  EXPECT_EQ(seen, 2);
  // A statement left open would keep the table in use.
  EXPECT_NO_THROW(db.exec("DROP TABLE t"));
}

}  // namespace
