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
};

TEST(SQLValueTest, AccessorsConvertAsDocumented) {
  struct Case {
    SQLValue value;
    std::optional<std::int64_t> asInt;
    std::optional<double> asDouble;
    std::optional<std::string> asString;
    std::optional<Blob> asData;
  };
  const Case cases[] = {
      {SQLValue(std::int64_t{42}), 42, 42.0, std::nullopt, std::nullopt},
      {SQLValue(2.9), 2, 2.9, std::nullopt, std::nullopt},
      {SQLValue(-2.9), -2, -2.9, std::nullopt, std::nullopt},
      {SQLValue("hé"), std::nullopt, std::nullopt, "hé", Blob{'h', 0xC3, 0xA9}},
      {SQLValue(Blob{1, 2}), std::nullopt, std::nullopt, std::nullopt, Blob{1, 2}},
      {SQLValue(Blob{}), std::nullopt, std::nullopt, std::nullopt, Blob{}},
      {SQLValue(), std::nullopt, std::nullopt, std::nullopt, std::nullopt},
      {SQLValue(std::nan("")), std::nullopt, std::nan(""), std::nullopt, std::nullopt},
      {SQLValue(1e300), std::nullopt, 1e300, std::nullopt, std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.value.intValue(), c.asInt);
    if (c.asDouble && std::isnan(*c.asDouble)) {
      EXPECT_TRUE(std::isnan(c.value.doubleValue().value()));
    } else {
      EXPECT_EQ(c.value.doubleValue(), c.asDouble);
    }
    EXPECT_EQ(c.value.stringValue(), c.asString);
    EXPECT_EQ(c.value.dataValue(), c.asData);
  }
}

TEST(SQLValueTest, EqualityNeedsSameCaseAndPayload) {
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
}

TEST_F(SQLiteDBTest, IntegerAndRealColumnsReadThroughEitherAccessor) {
  db.exec("CREATE TABLE n(i INTEGER, r REAL)");
  db.run("INSERT INTO n VALUES(?, ?)", {std::int64_t{3}, -2.75});
  auto row = db.query("SELECT i, r FROM n").at(0);
  EXPECT_EQ(row[0].doubleValue(), 3.0);
  EXPECT_EQ(row[1].intValue(), -2);
}

TEST_F(SQLiteDBTest, UnboundParametersStayNull) {
  db.run("INSERT INTO t(id, v) VALUES(?, ?)", {std::int64_t{9}});
  EXPECT_TRUE(db.query("SELECT v FROM t WHERE id = 9").at(0).at(0).isNull());
}

TEST_F(SQLiteDBTest, RunReportsTheMessageAndTheStatement) {
  const std::string bad = "INSERT INTO nowhere VALUES(1)";
  EXPECT_EQ(test::errorMessage<SQLError>([&] { db.run(bad); }), "no such table: nowhere \u2014 " + bad);
  db.run("INSERT INTO t(id, v) VALUES(1, 1)");
  const std::string error =
      test::errorMessage<SQLError>([&] { db.run("INSERT INTO t(id, v) VALUES(1, 2)"); });
  EXPECT_NE(error.find("UNIQUE constraint failed"), std::string::npos) << error;
  EXPECT_NE(error.find(" \u2014 INSERT INTO t(id, v) VALUES(1, 2)"), std::string::npos) << error;
  EXPECT_NE(test::errorMessage<SQLError>([&] { db.exec("THIS IS NOT SQL"); }).find("syntax error"),
            std::string::npos);
}

TEST_F(SQLiteDBTest, RunReturnsTheLastInsertRowid) {
  EXPECT_EQ(db.run("INSERT INTO t(v) VALUES(1)"), 1);
  EXPECT_EQ(db.run("INSERT INTO t(v) VALUES(2)"), 2);
  // Not an insert: the connection's last insert rowid, which callers ignore.
  EXPECT_EQ(db.run("UPDATE t SET v = 5 WHERE id = 1"), 2);
}

TEST_F(SQLiteDBTest, QueryIsTolerant) {
  EXPECT_TRUE(db.query("SELEC broken").empty());
  EXPECT_TRUE(db.query("SELECT * FROM missing").empty());
  db.run("INSERT INTO t(v) VALUES('x')");
  // A step error part-way keeps the rows read so far.
  db.exec("CREATE TABLE j(s TEXT)");
  db.run("INSERT INTO j VALUES('[1]')");
  db.run("INSERT INTO j VALUES('not json')");
  auto rows = db.query("SELECT json_array_length(s) FROM j ORDER BY rowid");
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0].intValue(), 1);
}

TEST_F(SQLiteDBTest, FailingTransactionLeavesTheDatabaseAsItWasAndReportsTheFirstError) {
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
  // The connection is usable again: no transaction was left open.
  db.transaction([&] { db.run("INSERT INTO t(id, v) VALUES(3, 'new')"); });
  EXPECT_EQ(rowCount(), 2);
}

TEST_F(SQLiteDBTest, ForeignExceptionsAlsoRollBack) {
  EXPECT_THROW(db.transaction([&] {
    db.run("INSERT INTO t(v) VALUES(1)");
    throw std::runtime_error("caller failed");
  }),
               std::runtime_error);
  EXPECT_EQ(rowCount(), 0);
}

TEST_F(SQLiteDBTest, NestedTransactionFailsAtBegin) {
  // BEGIN inside a transaction is an SQLite error; the outer one rolls back.
  EXPECT_THROW(db.transaction([&] {
    db.run("INSERT INTO t(v) VALUES(1)");
    db.transaction([] {});
  }),
               SQLError);
  EXPECT_EQ(rowCount(), 0);
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

TEST(SQLiteDBOpen, TwoConnectionsShareOneFile) {
  test::TempDir dir;
  auto path = (dir / "shared.sqlite").string();
  SQLiteDB first(path);
  SQLiteDB second(path);
  first.exec("PRAGMA journal_mode=WAL; CREATE TABLE t(v)");
  first.run("INSERT INTO t VALUES(1)");
  EXPECT_EQ(second.query("SELECT v FROM t").size(), 1u);
}

TEST(SQLiteDBOpen, UnopenablePathNamesThePath) {
  test::TempDir dir;
  auto path = (dir / "missing" / "deeper" / "db.sqlite").string();
  EXPECT_EQ(test::errorMessage<SQLError>([&] { SQLiteDB db(path); }),
            "Cannot open the library database at " + path);
}

TEST(SQLiteDBOpen, BusyWriterTimesOutWithAnError) {
  test::TempDir dir;
  auto path = (dir / "busy.sqlite").string();
  SQLiteDB holder(path);
  holder.exec("PRAGMA journal_mode=WAL; CREATE TABLE t(v)");
  SQLiteDB other(path);
  holder.exec("BEGIN IMMEDIATE");
  auto start = std::chrono::steady_clock::now();
  EXPECT_THROW(other.run("INSERT INTO t VALUES(1)"), SQLError);
  // The busy timeout made the second writer wait before giving up.
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3500));
  holder.exec("ROLLBACK");
  EXPECT_NO_THROW(other.run("INSERT INTO t VALUES(1)"));
}

}  // namespace
