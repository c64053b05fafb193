#include "engine/catalog/sqlite_db.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

#include "tests/support/errors.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

class SQLiteDBTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  SQLiteDB db{(dir / "test.sqlite").string()};

  void SetUp() override { db.exec("CREATE TABLE t(id INTEGER PRIMARY KEY, v)"); }

  std::int64_t rowCount() { return db.query("SELECT COUNT(*) FROM t").at(0).at(0).intValue().value(); }
  std::vector<SQLRow> streamed(const std::string& sql, const std::vector<SQLValue>& args = {}) {
    std::vector<SQLRow> rows;
    db.forEachRow(sql, args, [&](const SQLRow& row) { rows.push_back(row); });
    return rows;
  }
};

TEST(SQLValueTest, AccessorsConvertAsDocumentedAndEqualityNeedsSameCaseAndPayload) {
  const auto none = std::nullopt;
  const struct {
    SQLValue value;
    std::optional<std::int64_t> asInt;
    std::optional<double> asDouble;
    std::optional<std::string> asString;
    std::optional<Blob> asData;
  } cases[] = {{SQLValue(std::int64_t{42}), 42, 42.0, none, none},
               {SQLValue(2.9), 2, 2.9, none, none},
               {SQLValue(-2.9), -2, -2.9, none, none},
               {SQLValue("hé"), none, none, "hé", Blob{'h', 0xC3, 0xA9}},
               {SQLValue(Blob{1, 2}), none, none, none, Blob{1, 2}},
               {SQLValue(Blob{}), none, none, none, Blob{}},
               {SQLValue(), none, none, none, none},
               {SQLValue(1e300), none, 1e300, none, none}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.value.intValue(), c.asInt);
    EXPECT_EQ(c.value.doubleValue(), c.asDouble);
    EXPECT_EQ(c.value.stringValue(), c.asString);
    EXPECT_EQ(c.value.dataValue(), c.asData);
  }
  const SQLValue nan(std::nan(""));
  EXPECT_TRUE(std::isnan(nan.doubleValue().value()));
  EXPECT_FALSE(nan.intValue() || nan.stringValue() || nan.dataValue());

  EXPECT_EQ(SQLValue(1), SQLValue(std::int64_t{1}));
  EXPECT_NE(SQLValue(1), SQLValue(1.0));
  EXPECT_NE(SQLValue("1"), SQLValue(1));
  EXPECT_NE(SQLValue(Blob{}), SQLValue());
  EXPECT_EQ(SQLValue(), SQLValue(nullptr));
}

TEST_F(SQLiteDBTest, ValuesRoundTripThroughTheirColumnTypes) {
  // A zero-length blob among them: still a blob, its data empty, not absent.
  const std::vector<SQLValue> values{std::int64_t{-7}, 0.25, "text ✓", Blob{0, 255, 3}, SQLValue(), Blob{}};
  for (const SQLValue& v : values) db.run("INSERT INTO t(v) VALUES(?)", {v});
  std::vector<SQLValue> back;
  for (const SQLRow& row : db.query("SELECT v FROM t ORDER BY id")) back.push_back(row.at(0));
  EXPECT_EQ(back, values);
  EXPECT_EQ(back.back().dataValue(), Blob{});

  // Integer and real columns read through either accessor; unbound
  // parameters stay NULL.
  db.exec("CREATE TABLE n(i INTEGER, r REAL)");
  db.run("INSERT INTO n VALUES(?, ?)", {std::int64_t{3}, -2.75});
  const SQLRow row = db.query("SELECT i, r FROM n").at(0);
  EXPECT_EQ(std::pair(row[0].doubleValue(), row[1].intValue()),
            std::pair(std::optional(3.0), std::optional<std::int64_t>(-2)));
  db.run("INSERT INTO t(id, v) VALUES(?, ?)", {std::int64_t{99}});
  EXPECT_TRUE(db.query("SELECT v FROM t WHERE id = 99").at(0).at(0).isNull());
}

TEST_F(SQLiteDBTest, RunReportsTheMessageAndTheStatementAndReturnsTheLastInsertRowid) {
  EXPECT_EQ(db.run("INSERT INTO t(v) VALUES(1)"), 1);
  EXPECT_EQ(db.run("INSERT INTO t(v) VALUES(2)"), 2);
  // Not an insert: the connection's last insert rowid, which callers ignore.
  EXPECT_EQ(db.run("UPDATE t SET v = 5 WHERE id = 1"), 2);

  const std::string bad = "INSERT INTO nowhere VALUES(1)";
  EXPECT_EQ(test::errorMessage<SQLError>([&] { db.run(bad); }), "no such table: nowhere \u2014 " + bad);
  const std::string error =
      test::errorMessage<SQLError>([&] { db.run("INSERT INTO t(id, v) VALUES(1, 2)"); });
  EXPECT_NE(error.find("UNIQUE constraint failed"), std::string::npos) << error;
  EXPECT_NE(error.find(" \u2014 INSERT INTO t(id, v) VALUES(1, 2)"), std::string::npos) << error;
  EXPECT_TRUE(test::throwsWith<SQLError>([&] { db.exec("THIS IS NOT SQL"); }, "syntax error"));
}

TEST_F(SQLiteDBTest, ReadsAreTolerantAndStreamedRowsMatchQueriedOnes) {
  int calls = 0;
  for (const char* sql : {"SELEC broken", "SELECT * FROM missing"}) {
    EXPECT_TRUE(db.query(sql).empty()) << sql;
    db.forEachRow(sql, {}, [&](const SQLRow&) { ++calls; });
  }
  EXPECT_EQ(calls, 0);
  // A step error part-way keeps the rows read so far.
  db.exec("CREATE TABLE j(s TEXT); INSERT INTO j VALUES('[1]'); INSERT INTO j VALUES('not json');");
  EXPECT_EQ(db.query("SELECT json_array_length(s) FROM j ORDER BY rowid"),
            (std::vector<SQLRow>{{SQLValue(1)}}));

  // The streamed row object is reused, so a column that changes type from
  // one row to the next must still read as the new value, never as a mix.
  db.exec("CREATE TABLE s(id INTEGER PRIMARY KEY, v, w)");
  db.exec(
      "INSERT INTO s(v, w) VALUES('a long text that does not fit in place', 1), (7, 'x'), ('short', "
      "X'010203'), "
      "('', X''), (NULL, 2.5), (X'09', NULL)");
  const std::string sql = "SELECT id, v, w FROM s WHERE id >= ? ORDER BY id";
  const auto rows = streamed(sql, {1});
  EXPECT_EQ(rows, db.query(sql, {1}));
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_EQ(rows[2][1], SQLValue("short"));
  EXPECT_EQ(rows[3][1], SQLValue(""));
  EXPECT_EQ(rows[3][2], SQLValue(Blob{}));
  EXPECT_TRUE(rows[4][1].isNull());
  EXPECT_EQ(streamed(sql, {5}).size(), 2u);

  // An exception from the body ends the read and releases the statement,
  // which would otherwise keep the table in use.
  int seen = 0;
  const auto stopAtTheSecond = [&](const SQLRow&) {
    if (++seen == 2) throw std::runtime_error("stop");
  };
  EXPECT_THROW(db.forEachRow("SELECT v FROM s", {}, stopAtTheSecond), std::runtime_error);
  EXPECT_EQ(seen, 2);
  EXPECT_NO_THROW(db.exec("DROP TABLE s"));
}

TEST_F(SQLiteDBTest, AFailingTransactionLeavesTheDatabaseAsItWasAndReportsTheFirstError) {
  db.run("INSERT INTO t(id, v) VALUES(1, 'keep')");
  const std::string error = test::errorMessage<SQLError>([&] {
    db.transaction([&] {
      db.run("INSERT INTO t(id, v) VALUES(2, 'gone')");
      db.run("UPDATE t SET v = 'changed' WHERE id = 1");
      db.run("INSERT INTO t(id, v) VALUES(1, 'duplicate')");
    });
  });
  EXPECT_NE(error.find("VALUES(1, 'duplicate')"), std::string::npos) << error;
  EXPECT_EQ(rowCount(), 1);
  EXPECT_EQ(db.query("SELECT v FROM t WHERE id = 1").at(0).at(0).stringValue(), "keep");
  // Foreign exceptions also roll back; BEGIN inside a transaction is an
  // SQLite error and the outer one rolls back.
  EXPECT_THROW(db.transaction([&] {
    db.run("INSERT INTO t(v) VALUES(1)");
    throw std::runtime_error("caller failed");
  }),
               std::runtime_error);
  EXPECT_THROW(db.transaction([&] {
    db.run("INSERT INTO t(v) VALUES(1)");
    db.transaction([] {});
  }),
               SQLError);
  EXPECT_EQ(rowCount(), 1);
  // The connection is usable again: no transaction was left open.
  db.transaction([&] { db.run("INSERT INTO t(id, v) VALUES(3, 'new')"); });
  EXPECT_EQ(rowCount(), 2);
}

TEST_F(SQLiteDBTest, ConcurrentTransactionsAreSerialised) {
  constexpr int threads = 4, perThread = 50;
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&] {
      for (int i = 0; i < perThread; ++i) {
        db.transaction([&] {
          // Read-modify-write inside one transaction: interleaving would lose updates.
          auto n = db.query("SELECT COUNT(*) FROM t").at(0).at(0).intValue().value();
          db.run("INSERT INTO t(id, v) VALUES(?, ?)", {n + 1, n});
        });
      }
    });
  }
  for (auto& w : workers) w.join();
  EXPECT_EQ(rowCount(), threads * perThread);
}

TEST(SQLiteDBOpen, ConnectionsShareOneFileABusyWriterTimesOutAndABadPathIsNamed) {
  test::TempDir dir;
  const auto path = (dir / "shared.sqlite").string();
  SQLiteDB holder(path), other(path);
  holder.exec("PRAGMA journal_mode=WAL; CREATE TABLE t(v)");
  holder.run("INSERT INTO t VALUES(1)");
  EXPECT_EQ(other.query("SELECT v FROM t").size(), 1u);
  holder.exec("BEGIN IMMEDIATE");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THROW(other.run("INSERT INTO t VALUES(1)"), SQLError);
  // The busy timeout made the second writer wait before giving up.
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3500));
  holder.exec("ROLLBACK");
  EXPECT_NO_THROW(other.run("INSERT INTO t VALUES(1)"));

  const auto missing = (dir / "missing" / "deeper" / "db.sqlite").string();
  EXPECT_EQ(test::errorMessage<SQLError>([&] { SQLiteDB db(missing); }),
            "Cannot open the library database at " + missing);
}

}  // namespace
