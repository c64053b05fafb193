#include "engine/catalog/library_query.h"

#include <gtest/gtest.h>

#include "tests/support/library.h"

using namespace lumivale;

namespace {

using Params = std::vector<SQLValue>;
using Ids = std::vector<std::int64_t>;
using Words = std::vector<std::string>;

const std::string anyField =
    "(name LIKE ? OR camera LIKE ? OR lens LIKE ? OR id IN (SELECT photo FROM keywords WHERE word LIKE ?))";

Params anyParams(const std::string& token) { return Params(4, "%" + token + "%"); }

// The keys are what the command line and stored queries use.
TEST(LibraryQueryEnumsTest, KeysParseBackAndNothingElseParses) {
  std::string keys;
  for (FlagFilter f : allFlagFilters())
    keys += std::string(key(f)) + (flagFilterFromKey(key(f)) == f ? " " : "! ");
  for (SortOrder s : allSortOrders())
    keys += std::string(key(s)) + (sortOrderFromKey(key(s)) == s ? " " : "! ");
  for (ColorLabel l : allColorLabels())
    keys += std::string(key(l)) + (colorLabelFromKey(key(l)) == l ? " " : "! ");
  EXPECT_EQ(keys,
            "any picks rejects unflagged notRejected captureDate importDate name rating editDate fileSize "
            "red yellow green blue purple ");
  for (const char* bad : {"", "Any", "pick", "notrejected", " any"})
    EXPECT_FALSE(flagFilterFromKey(bad)) << bad;
  for (const char* bad : {"", "date", "Name", "capturedate"}) EXPECT_FALSE(sortOrderFromKey(bad)) << bad;
  for (const char* bad : {"", "Red", "orange", "none"}) EXPECT_FALSE(colorLabelFromKey(bad)) << bad;
}

TEST(LibraryQueryTest, FiltersBecomeConditionsInTheirOrderWithTheirParameters) {
  const std::tuple<LibraryQuery, std::string, Params> cases[] = {
      {LibraryQuery{}, "", {}},
      {LibraryQuery{.minRating = 0, .flag = FlagFilter::picks}, " WHERE flag = 1", {}},  // 0 and below: none
      {LibraryQuery{.minRating = -4, .flag = FlagFilter::rejects}, " WHERE flag = -1", {}},
      {LibraryQuery{.minRating = 1, .flag = FlagFilter::unflagged}, " WHERE rating >= ? AND flag = 0", {1}}};
  for (const auto& [query, sql, params] : cases)
    EXPECT_EQ(query.whereClause(), (WhereClause{sql, params})) << sql;
  // Every filter, in its order; the folder scope is tested on a catalog.
  const LibraryQuery all{.text = "rating:<5 beach",
                         .minRating = 3,
                         .flag = FlagFilter::notRejected,
                         .labels = {"purple", "blue", "red"},
                         .collection = 12,
                         .editedOnly = true};
  EXPECT_EQ(all.whereClause(),
            (WhereClause{" WHERE rating >= ? AND flag >= 0 AND label IN (?,?,?)"
                         " AND id IN (SELECT photo FROM collection_items WHERE collection = ?)"
                         " AND edited = 1 AND rating < ? AND " +
                             anyField,
                         {3, "blue", "purple", "red", std::int64_t{12}, 5, "%beach%", "%beach%", "%beach%",
                          "%beach%"}}));
  // Each sort key's expression, the id breaking ties in the same direction;
  // what they do to stored values is tested against SQLite below.
  using enum SortOrder;
  for (auto [sort, expression] : {std::pair(captureDate, "COALESCE(capture, imported)"),
                                  {importDate, "imported"},
                                  {name, "name COLLATE NOCASE"},
                                  {rating, "rating"},
                                  {editDate, "COALESCE(editDate, 0)"},
                                  {fileSize, "size"}}) {
    EXPECT_EQ((LibraryQuery{.sort = sort, .ascending = true}.orderClause()),
              std::string(" ORDER BY ") + expression + " ASC, id ASC");
  }
  EXPECT_EQ(LibraryQuery{}.orderClause(), " ORDER BY COALESCE(capture, imported) DESC, id DESC");
}

TEST(LibraryQueryTest, TokensSplitAtUnicodeSpacesAndGroupByQuotes) {
  // An unbalanced quote groups to the end; other characters, and bytes that
  // are not UTF-8, stay in their token.
  using T = std::pair<const char*, Words>;
  for (const auto& [text, tokens] :
       {T{"", {}}, T{"   \t\n ", {}}, T{"  sky   sea ", {"sky", "sea"}},
        T{"camera:\"EOS R5\" sky", {"camera:EOS R5", "sky"}}, T{"\"new york\"", {"new york"}},
        T{"a\"b c\"d e", {"ab cd", "e"}}, T{"sky \"open ended", {"sky", "open ended"}}, T{"\"", {}},
        T{"\"\"", {}}, T{"\" \"", {" "}}, T{"x\"\"y", {"xy"}}, T{"a\xff\xfe b", {"a\xff\xfe", "b"}},
        T{"caf\u00e9\u00a0na\u00efve\u3000\u65e5\u672c", {"caf\u00e9", "na\u00efve", "\u65e5\u672c"}}})
    EXPECT_EQ(LibraryQuery::tokens(text), tokens) << text;
}

TEST(LibraryQueryTest, SearchTokensBuildTheirConditions) {
  using S = std::tuple<const char*, std::string, Params>;
  const auto check = [](const S& c) {
    const auto& [text, sql, params] = c;
    EXPECT_EQ(LibraryQuery{.text = text}.whereClause(),
              (WhereClause{sql.empty() ? "" : " WHERE " + sql, params}))
        << text;
  };
  const std::string keyword = "id IN (SELECT photo FROM keywords WHERE word LIKE ?)";
  for (const S& c :
       {S{"rating:>=4 flag:pick", "rating >= ? AND flag = 1", {4}}, S{"stars:2", "rating = ?", {2}},
        S{"RATING:<=2", "rating <= ?", {2}}, S{"iso:<800", "iso < ?", {800}},
        S{"iso:+6400", "iso = ?", {6400}}, S{"flag:rejects flag:none", "flag = -1 AND flag = 0", {}},
        S{"color:blue", "label = ?", {"blue"}}, S{"camera:\"EOS R5\"", "camera LIKE ?", {"%EOS R5%"}},
        S{"lens:50mm", "lens LIKE ?", {"%50mm%"}}, S{"file:IMG_1", "name LIKE ?", {"%IMG_1%"}},
        S{"name:a:b", "name LIKE ?", {"%a:b%"}}, S{"tag:\u00c9T\u00c9", keyword, {"%\u00e9t\u00e9%"}},
        S{"type:raw", "raw = 1", {}}, S{"type:HEIC", "(raw = 0 AND ext LIKE ?)", {"%heic%"}},
        S{"edited:Yes edited:1 edited:no", "edited = 1 AND edited = 1 AND edited = 0", {}}})
    check(c);
  // Not a whole number: the token keeps its condition, compared with 0.
  for (const S& c :
       {S{"rating:>=abc iso:>100", "rating >= ? AND iso > ?", {0, 100}}, S{"rating:>=", "rating >= ?", {0}},
        S{"rating:=>3", "rating = ?", {0}}, S{"iso:4.5", "iso = ?", {0}}, S{"iso:>+-5", "iso > ?", {0}},
        S{"iso:<99999999999999999999", "iso < ?", {0}}})
    check(c);
  // A key without a value, or no key at all, is a plain word.
  for (const char* text : {"sunset", "iso:", ":", "::", ":sky", "when:today"})
    check({text, anyField, anyParams(text)});

  // SQL typed into the search field only ever becomes parameters: five
  // tokens, five fixed conditions joined with AND.
  std::string sql = " WHERE ";
  Params params;
  for (const char* token : {"x');", "DROP", "TABLE", "photos;", "--"}) {
    sql += (params.empty() ? "" : " AND ") + anyField;
    for (const SQLValue& p : anyParams(token)) params.push_back(p);
  }
  EXPECT_EQ(LibraryQuery{.text = "x'); DROP TABLE photos; --"}.whereClause(), (WhereClause{sql, params}));
}

// ---- Against a real catalog ------------------------------------------------

class QueryCatalogTest : public test::LibraryTest {
 protected:
  std::int64_t add(const std::string& path, double imported, const test::Columns& more = {}) {
    test::Columns columns{{"imported", imported}};
    columns.insert(columns.end(), more.begin(), more.end());
    return addPhoto(path, columns);
  }
  Ids ids(const LibraryQuery& q) {
    Ids out;
    for (const PhotoRecord& r : library.photos(q)) out.push_back(r.id);
    return out;
  }
  Ids search(const std::string& text) {
    return ids({.text = text, .sort = SortOrder::importDate, .ascending = true});
  }
  Ids inFolder(const std::string& folder) {
    return ids({.folder = folder, .sort = SortOrder::importDate, .ascending = true});
  }
};

TEST_F(QueryCatalogTest, FolderScopeTakesSubfoldersButNotLookalikes) {
  const std::int64_t ab = add("/a/b/1.jpg", 1), abc = add("/a/b/c/2.jpg", 2), sibling = add("/a/bc/3.jpg", 3),
                     upper = add("/A/B/4.jpg", 4), underscore = add("/a_b/5.jpg", 5),
                     lookalike = add("/axb/6.jpg", 6), percent = add("/p%/7.jpg", 7),
                     percentOther = add("/pq/8.jpg", 8), dash = add("/a/b-c/9.jpg", 9),
                     zero = add("/a/b0/10.jpg", 10);
  EXPECT_EQ(inFolder("/a/b"), (Ids{ab, abc}));
  EXPECT_EQ(inFolder("/a/b/"), (Ids{ab, abc}));
  EXPECT_EQ(inFolder("/a/b/c"), (Ids{abc}));
  EXPECT_EQ(inFolder("/A/B"), (Ids{upper}));  // paths compare with case
  EXPECT_EQ(inFolder("/a_b"), (Ids{underscore}));
  EXPECT_EQ(inFolder("/p%"), (Ids{percent}));
  EXPECT_EQ(inFolder("/a"), (Ids{ab, abc, sibling, dash, zero}));
  EXPECT_EQ(inFolder("/"),
            (Ids{ab, abc, sibling, upper, underscore, lookalike, percent, percentOther, dash, zero}));
  EXPECT_EQ(inFolder("//"), inFolder("/"));
  EXPECT_EQ(inFolder("/nowhere"), (Ids{}));
}

TEST_F(QueryCatalogTest, SearchMatchesWhatTheRulesSayAndNothingMore) {
  const std::int64_t underscore = add("/p/IMG_1.jpg", 1, {{"rating", 2}, {"camera", "Canon EOS R5"}}),
                     plain = add("/p/IMGx1.jpg", 2, {{"rating", 4}, {"camera", "NIKON Z 6"}}),
                     percent = add("/p/100%.jpg", 3, {{"rating", 5}, {"camera", "Canon \"quoted\""}}),
                     quote = add("/p/it's.jpg", 4);
  library.db().run("INSERT INTO keywords(photo, word) VALUES(?, 'sky'), (?, 'sea')", {plain, quote});
  const Ids all{underscore, plain, percent, quote};
  EXPECT_EQ(search(""), all);
  EXPECT_EQ(search("%"), all);  // LIKE wildcards typed by the user keep their LIKE meaning
  EXPECT_EQ(search("IMG_1"), (Ids{underscore, plain}));
  EXPECT_EQ(search("canon"), (Ids{underscore, percent}));
  EXPECT_EQ(search("canon rating:>=3"), (Ids{percent}));
  EXPECT_EQ(search("it's"), (Ids{quote}));
  EXPECT_EQ(search("keyword:SKY"), (Ids{plain}));
  EXPECT_EQ(search("sea"), (Ids{quote}));
  EXPECT_EQ(search("\"EOS R5\""), (Ids{underscore}));
  EXPECT_EQ(search("rating:>=abc"), all);
  EXPECT_EQ(search("rating:abc"), (Ids{quote}));  // a comparison that is not a number compares with 0
  EXPECT_EQ(search("iso:>abc"), Ids{});
  EXPECT_EQ(search("\"canon"), (Ids{underscore, percent}));
  for (const char* nothing : {"iso:", ":", "'; DELETE FROM photos; --", "x' OR '1'='1"})
    EXPECT_EQ(search(nothing), Ids{}) << nothing;
  EXPECT_EQ(library.count(), 4);
}

TEST_F(QueryCatalogTest, CollectionLabelAndEditedScopes) {
  const std::int64_t a = add("/p/a.jpg", 1, {{"label", "red"}}), b = add("/p/b.jpg", 2),
                     c = add("/p/c.jpg", 3, {{"label", "blue"}, {"edited", 1}});
  library.db().run("INSERT INTO collection_items(collection, photo) VALUES(7, ?), (7, ?), (8, ?)", {a, b, c});
  LibraryQuery q{.collection = 7, .sort = SortOrder::importDate, .ascending = true};
  EXPECT_EQ(ids(q), (Ids{a, b}));
  q.labels = {"red", "blue"};
  EXPECT_EQ(ids(q), (Ids{a}));
  q.collection.reset();
  EXPECT_EQ(ids(q), (Ids{a, c}));
  q.editedOnly = true;
  EXPECT_EQ(ids(q), (Ids{c}));
}

// photos() sorts in memory; its order must be SQLite's ORDER BY order for
// every sort key and direction, whatever the stored values: NULLs, integers
// in REAL columns and reals in INTEGER ones, texts and blobs where numbers
// belong, names differing only in case or outside ASCII, and many ties.
TEST_F(QueryCatalogTest, InMemorySortAgreesWithSqliteOrderBy) {
  const std::vector<SQLValue> odd({SQLValue(), std::int64_t{5}, 5.0, 4.5, std::int64_t{-3}, "5", "abc", "ABC",
                                   Blob{1, 2}, Blob{}, std::int64_t{9007199254740993}, 9007199254740992.0});
  const std::vector<SQLValue> names({"b.jpg", "B.jpg", "a.JPG", "\u00e9t\u00e9.heic", "\u00c9t\u00e9.heic",
                                     "_x.png", "[x].png", SQLValue(), std::int64_t{7}, "b.jpg2", "",
                                     Blob{'b'}});
  std::uint32_t seed = 12345;
  auto next = [&](const std::vector<SQLValue>& values) {
    seed = seed * 1664525u + 1013904223u;
    return values[(seed >> 8) % values.size()];
  };
  for (int i = 0; i < 300; ++i) {
    library.db().run(
        "INSERT INTO photos(path, folder, name, capture, imported, rating, editDate, size) "
        "VALUES(?,?,?,?,?,?,?,?)",
        {"/p/" + std::to_string(i), "/p", next(names), next(odd), next(odd), next(odd), next(odd),
         next(odd)});
  }
  for (SortOrder sort : allSortOrders()) {
    for (bool ascending : {false, true}) {
      for (int minRating : {0, 2}) {
        const LibraryQuery q{.minRating = minRating, .sort = sort, .ascending = ascending};
        const WhereClause where = q.whereClause();
        Ids expected;
        for (const SQLRow& row :
             library.db().query("SELECT id FROM photos" + where.sql + q.orderClause(), where.params))
          expected.push_back(*row[0].intValue());
        ASSERT_GT(expected.size(), 20u);
        EXPECT_EQ(ids(q), expected) << key(sort) << (ascending ? " ascending" : " descending") << " min "
                                    << minRating;
      }
    }
  }
}

}  // namespace
