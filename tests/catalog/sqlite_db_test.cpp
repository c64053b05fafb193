#include "engine/catalog/sqlite_db.h"

#include <gtest/gtest.h>

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
               {SQLValue(-2.9), -2, -2.9, none, none},
               {SQLValue("hé"), none, none, "hé", Blob{'h', 0xC3, 0xA9}},
               {SQLValue(Blob{}), none, none, none, Blob{}},
               {SQLValue(), none, none, none, none},
               {SQLValue(1e300), none, 1e300, none, none}};
  for (const auto& c : cases) {
    EXPECT_EQ(
        std::tuple(c.value.intValue(), c.value.doubleValue(), c.value.stringValue(), c.value.dataValue()),
        std::tuple(c.asInt, c.asDouble, c.asString, c.asData));
  }
  EXPECT_FALSE(SQLValue(std::nan("")).intValue());
  EXPECT_EQ(SQLValue(1), SQLValue(std::int64_t{1}));
  EXPECT_NE(SQLValue(1), SQLValue(1.0));
  EXPECT_NE(SQLValue("1"), SQLValue(1));
  EXPECT_NE(SQLValue(Blob{}), SQLValue());
}

TEST_F(SQLiteDBTest, ValuesRoundTripAndRunReportsRowidsChangesAndErrors) {
  // A zero-length blob among them: still a blob, not a NULL.
  const std::vector<SQLValue> values{std::int64_t{-7}, 0.25, "text ✓", Blob{0, 255, 3}, SQLValue(), Blob{}};
  for (std::size_t i = 0; i < values.size(); ++i)
    EXPECT_EQ(db.run("INSERT INTO t(v) VALUES(?)", {values[i]}), static_cast<std::int64_t>(i + 1));
  std::vector<SQLValue> back;
  for (const SQLRow& row : db.query("SELECT v FROM t ORDER BY id")) back.push_back(row.at(0));
  EXPECT_EQ(back, values);

  // Not an insert: the connection's last insert rowid, which callers ignore.
  EXPECT_EQ(db.run("UPDATE t SET v = 5 WHERE id = 1"), 6);
  // The rows a statement changed: an ignored insert changed none.
  for (auto [sql, changed] : {std::pair("UPDATE t SET v = 7 WHERE id < 3", 2),
                              {"INSERT OR IGNORE INTO t(id, v) VALUES(1, 0)", 0},
                              {"DELETE FROM t WHERE id > 5", 1}}) {
    db.run(sql);
    EXPECT_EQ(db.changes(), changed) << sql;
  }
  const std::string bad = "INSERT INTO nowhere VALUES(1)";
  EXPECT_EQ(test::errorMessage<SQLError>([&] { db.run(bad); }), "no such table: nowhere \u2014 " + bad);
  EXPECT_TRUE(
      test::throwsWith<SQLError>([&] { db.run("INSERT INTO t(id) VALUES(1)"); },
                                 "UNIQUE constraint failed: t.id \u2014 INSERT INTO t(id) VALUES(1)"));
  EXPECT_TRUE(test::throwsWith<SQLError>([&] { db.exec("THIS IS NOT SQL"); }, "syntax error"));
}

TEST_F(SQLiteDBTest, ReadsAreTolerantAndStreamedRowsMatchQueriedOnes) {
  int calls = 0;
  for (const char* sql : {"SELEC broken", "SELECT * FROM missing"}) {
    EXPECT_TRUE(db.query(sql).empty()) << sql;
    EXPECT_TRUE(db.takeReadError()) << sql;
    db.forEachRow(sql, {}, [&](const SQLRow&) { ++calls; });
    EXPECT_TRUE(db.takeReadError()) << sql;
  }
  EXPECT_EQ(calls, 0);
  // A step error part-way keeps the rows read so far, and its error until
  // it is taken; a complete read leaves no error.
  db.exec("CREATE TABLE j(s TEXT); INSERT INTO j VALUES('[1]'), ('not json');");
  EXPECT_EQ(db.query("SELECT json_array_length(s) FROM j ORDER BY rowid"),
            (std::vector<SQLRow>{{SQLValue(1)}}));
  db.query("SELECT 1");
  EXPECT_EQ(db.lastReadError(), "malformed JSON");
  EXPECT_EQ(db.takeReadError(), "malformed JSON");
  EXPECT_FALSE(db.takeReadError());

  // The streamed row object is reused, so a column that changes type from
  // one row to the next must still read as the new value, never as a mix.
  db.exec(
      "INSERT INTO t(v) VALUES('a long text that does not fit in place'), (7), ('short'), (''), (X''), "
      "(NULL), "
      "(2.5)");
  std::vector<SQLRow> streamed;
  db.forEachRow("SELECT id, v FROM t WHERE id >= ?", {1},
                [&](const SQLRow& row) { streamed.push_back(row); });
  EXPECT_EQ(streamed, db.query("SELECT id, v FROM t WHERE id >= ?", {1}));
  ASSERT_EQ(streamed.size(), 7u);
  EXPECT_EQ(std::tuple(streamed[2][1], streamed[3][1], streamed[4][1]),
            std::tuple(SQLValue("short"), SQLValue(""), SQLValue(Blob{})));

  // An exception from the body ends the read and releases the statement,
  // which would otherwise keep the table in use.
  int seen = 0;
  const auto stopAtTheSecond = [&](const SQLRow&) {
    if (++seen == 2) throw std::runtime_error("stop");
  };
  EXPECT_THROW(db.forEachRow("SELECT v FROM t", {}, stopAtTheSecond), std::runtime_error);
  EXPECT_NO_THROW(db.exec("DROP TABLE t"));
}

TEST_F(SQLiteDBTest, AFailingTransactionLeavesTheDatabaseAsItWasAndReportsTheFirstError) {
  db.run("INSERT INTO t(id, v) VALUES(1, 'keep')");
  const auto failing = [&](const std::function<void()>& last) {
    return [&, last] {
      db.transaction([&] {
        db.run("INSERT INTO t(id, v) VALUES(2, 'gone')");
        db.run("UPDATE t SET v = 'changed' WHERE id = 1");
        last();
      });
    };
  };
  EXPECT_TRUE(test::throwsWith<SQLError>(failing([&] { db.run("INSERT INTO t(id) VALUES(1)"); }),
                                         "INSERT INTO t(id) VALUES(1)"));
  // Foreign exceptions roll back too; BEGIN inside a transaction is an SQLite
  // error, and the outer one rolls back.
  EXPECT_THROW(failing([] { throw std::runtime_error("caller failed"); })(), std::runtime_error);
  EXPECT_THROW(failing([&] { db.transaction([] {}); })(), SQLError);
  EXPECT_EQ(db.query("SELECT id, v FROM t"), (std::vector<SQLRow>{{std::int64_t{1}, "keep"}}));
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

  // A read-only connection reads beside the writer, never waiting, and
  // refuses every write with the note it was given.
  holder.exec("BEGIN IMMEDIATE");
  SQLiteDB reader(path, SQLiteDB::Access::readOnly);
  reader.explainReadOnly("the library is read-only");
  EXPECT_EQ(reader.query("SELECT COUNT(*) FROM t").at(0).at(0), SQLValue(2));
  EXPECT_TRUE(reader.quickCheck().empty());
  holder.exec("ROLLBACK");
  for (const auto& write : std::vector<std::function<void()>>{[&] { reader.run("INSERT INTO t VALUES(1)"); },
                                                              [&] { reader.exec("DELETE FROM t"); },
                                                              [&] { reader.transaction([] {}); }})
    EXPECT_EQ(test::errorMessage<SQLError>(write), "the library is read-only");
  EXPECT_EQ(reader.query("SELECT COUNT(*) FROM t").at(0).at(0), SQLValue(2));

  const auto missing = (dir / "missing" / "deeper" / "db.sqlite").string();
  EXPECT_EQ(test::errorMessage<SQLError>([&] { SQLiteDB db(missing); }),
            "Cannot open the library database at " + missing);
}

}  // namespace
