#include "engine/catalog/library_query.h"

#include <gtest/gtest.h>

#include "tests/support/library.h"

using namespace lumivale;

namespace {

using Params = std::vector<SQLValue>;
using Ids = std::vector<std::int64_t>;

const char* const anyField =
    "(name LIKE ? OR camera LIKE ? OR lens LIKE ? OR id IN (SELECT photo FROM keywords WHERE word LIKE ?))";

WhereClause searchClause(const std::string& text) {
  LibraryQuery q;
  q.text = text;
  return q.whereClause();
}

// The keys are what the command line and stored queries use.
TEST(LibraryQueryEnumsTest, KeysParseBackAndNothingElseParses) {
  std::string keys;
  for (FlagFilter f : allFlagFilters()) {
    keys += std::string(key(f)) + " ";
    EXPECT_EQ(flagFilterFromKey(key(f)), f);
  }
  for (SortOrder s : allSortOrders()) {
    keys += std::string(key(s)) + " ";
    EXPECT_EQ(sortOrderFromKey(key(s)), s);
  }
  for (ColorLabel l : allColorLabels()) {
    keys += std::string(key(l)) + " ";
    EXPECT_EQ(colorLabelFromKey(key(l)), l);
  }
  EXPECT_EQ(keys,
            "any picks rejects unflagged notRejected captureDate importDate name rating editDate fileSize "
            "red yellow green blue purple ");
  for (const char* bad : {"", "Any", "pick", "notrejected", " any"})
    EXPECT_FALSE(flagFilterFromKey(bad)) << bad;
  for (const char* bad : {"", "date", "Name", "capturedate"}) EXPECT_FALSE(sortOrderFromKey(bad)) << bad;
  for (const char* bad : {"", "Red", "orange", "none"}) EXPECT_FALSE(colorLabelFromKey(bad)) << bad;
}

TEST(LibraryQueryTest, DefaultQueryHasNoConditionsAndSortsNewestFirst) {
  LibraryQuery q;
  EXPECT_EQ(q.whereClause(), WhereClause{});
  EXPECT_EQ(q.orderClause(), " ORDER BY COALESCE(capture, imported) DESC, id DESC");
  q.sort = SortOrder::name;
  q.ascending = true;
  EXPECT_EQ(q.orderClause(), " ORDER BY name COLLATE NOCASE ASC, id ASC");
}

TEST(LibraryQueryTest, CombinedFiltersKeepTheirOrderAndParameters) {
  LibraryQuery q;
  q.minRating = 3;
  q.flag = FlagFilter::notRejected;
  q.labels = {"purple", "blue", "red"};
  q.folder = "/photos/2024";
  q.collection = 12;
  q.editedOnly = true;
  q.text = "rating:<5 beach";
  WhereClause w = q.whereClause();
  EXPECT_EQ(w.sql, std::string(" WHERE rating >= ? AND flag >= 0 AND label IN (?,?,?)"
                               " AND (folder = ? OR (folder >= ? AND folder < ?))"
                               " AND id IN (SELECT photo FROM collection_items WHERE collection = ?)"
                               " AND edited = 1 AND rating < ? AND ") +
                       anyField);
  EXPECT_EQ(w.params, (Params{3, "blue", "purple", "red", "/photos/2024", "/photos/2024/", "/photos/20240",
                              std::int64_t{12}, 5, "%beach%", "%beach%", "%beach%", "%beach%"}));
}

TEST(LibraryQueryTest, FlagFiltersAndRatingThreshold) {
  LibraryQuery q;
  q.minRating = 0;  // zero and below mean no rating filter
  q.flag = FlagFilter::picks;
  EXPECT_EQ(q.whereClause().sql, " WHERE flag = 1");
  q.flag = FlagFilter::rejects;
  q.minRating = -4;
  EXPECT_EQ(q.whereClause().sql, " WHERE flag = -1");
  q.flag = FlagFilter::unflagged;
  q.minRating = 1;
  EXPECT_EQ(q.whereClause(), (WhereClause{" WHERE rating >= ? AND flag = 0", {1}}));
}

struct TokenCase {
  const char* text;
  std::vector<std::string> tokens;
};

class TokensTest : public ::testing::TestWithParam<TokenCase> {};

TEST_P(TokensTest, Splits) { EXPECT_EQ(LibraryQuery::tokens(GetParam().text), GetParam().tokens); }

INSTANTIATE_TEST_SUITE_P(
    Texts, TokensTest,
    ::testing::Values(TokenCase{"", {}}, TokenCase{"   \t\n ", {}}, TokenCase{"sky", {"sky"}},
                      TokenCase{"  sky   sea ", {"sky", "sea"}},
                      TokenCase{"camera:\"EOS R5\" sky", {"camera:EOS R5", "sky"}},
                      TokenCase{"\"new york\"", {"new york"}}, TokenCase{"a\"b c\"d e", {"ab cd", "e"}},
                      // An unbalanced quote groups to the end of the text.
                      TokenCase{"sky \"open ended", {"sky", "open ended"}}, TokenCase{"\"", {}},
                      TokenCase{"\"\"", {}}, TokenCase{"\" \"", {" "}}, TokenCase{"x\"\"y", {"xy"}},
                      // Unicode spaces separate too; other characters are kept whole.
                      TokenCase{"caf\u00e9\u00a0na\u00efve\u3000\u65e5\u672c",
                                {"caf\u00e9", "na\u00efve", "\u65e5\u672c"}},
                      // Bytes that are not UTF-8 stay in their token.
                      TokenCase{"a\xff\xfe b", {"a\xff\xfe", "b"}}));

struct SearchCase {
  const char* text;
  std::string sql;
  Params params;
};

class SearchTokenTest : public ::testing::TestWithParam<SearchCase> {};

TEST_P(SearchTokenTest, BuildsCondition) {
  WhereClause w = searchClause(GetParam().text);
  EXPECT_EQ(w.sql, GetParam().sql.empty() ? "" : " WHERE " + GetParam().sql);
  EXPECT_EQ(w.params, GetParam().params);
}

Params anyParams(const std::string& token) {
  std::string p = "%" + token + "%";
  return {p, p, p, p};
}

INSTANTIATE_TEST_SUITE_P(
    Tokens, SearchTokenTest,
    ::testing::Values(
        SearchCase{"rating:>=4 flag:pick", "rating >= ? AND flag = 1", {4}},
        SearchCase{"sunset", anyField, anyParams("sunset")}, SearchCase{"stars:2", "rating = ?", {2}},
        SearchCase{"RATING:<=2", "rating <= ?", {2}}, SearchCase{"rating:>3", "rating > ?", {3}},
        SearchCase{"rating:=0", "rating = ?", {0}}, SearchCase{"iso:<800", "iso < ?", {800}},
        SearchCase{"iso:+6400", "iso = ?", {6400}}, SearchCase{"iso:>=-1", "iso >= ?", {-1}},
        // Not a whole number: the comparison is left out rather than failing.
        SearchCase{"rating:>=abc", "", {}}, SearchCase{"rating:>=", "", {}}, SearchCase{"iso:4.5", "", {}},
        SearchCase{"iso:99999999999999999999", "", {}},
        SearchCase{"rating:=>3 sky", anyField, anyParams("sky")},
        SearchCase{"rating:>=abc iso:>100", "iso > ?", {100}},
        // A key without a value, or no key at all, is a plain word.
        SearchCase{"iso:", anyField, anyParams("iso:")}, SearchCase{":", anyField, anyParams(":")},
        SearchCase{"::", anyField, anyParams("::")}, SearchCase{":sky", anyField, anyParams(":sky")},
        SearchCase{"when:today", anyField, anyParams("when:today")},
        SearchCase{"flag:picked", "flag = 1", {}}, SearchCase{"flag:rejects", "flag = -1", {}},
        SearchCase{"flag:none", "flag = 0", {}}, SearchCase{"label:red", "label = ?", {"red"}},
        SearchCase{"color:blue", "label = ?", {"blue"}},
        SearchCase{"camera:\"EOS R5\"", "camera LIKE ?", {"%EOS R5%"}},
        SearchCase{"lens:50mm", "lens LIKE ?", {"%50mm%"}},
        SearchCase{"file:IMG_1", "name LIKE ?", {"%IMG_1%"}},
        SearchCase{"name:a:b", "name LIKE ?", {"%a:b%"}},
        SearchCase{"kw:Sky", "id IN (SELECT photo FROM keywords WHERE word LIKE ?)", {"%sky%"}},
        SearchCase{
            "tag:\u00c9T\u00c9", "id IN (SELECT photo FROM keywords WHERE word LIKE ?)", {"%\u00e9t\u00e9%"}},
        SearchCase{"type:raw", "raw = 1", {}},
        SearchCase{"type:HEIC", "(raw = 0 AND ext LIKE ?)", {"%heic%"}},
        SearchCase{"edited:Yes edited:1 edited:no", "edited = 1 AND edited = 1 AND edited = 0", {}}));

// SQL typed into the search field only ever becomes parameters: five tokens,
// five fixed conditions joined with AND.
TEST(SearchTokenSqlTest, SqlInTheSearchTextStaysAParameter) {
  WhereClause w = searchClause("x'); DROP TABLE photos; --");
  std::string expected = " WHERE ";
  Params params;
  for (const char* token : {"x');", "DROP", "TABLE", "photos;", "--"}) {
    expected += (params.empty() ? "" : " AND ") + std::string(anyField);
    auto p = anyParams(token);
    params.insert(params.end(), p.begin(), p.end());
  }
  EXPECT_EQ(w.sql, expected);
  EXPECT_EQ(w.params, params);
}

TEST(TextTest, LowercasesUnicodeAndKeepsBrokenBytes) {
  EXPECT_EQ(lowercased("Sky"), "sky");
  EXPECT_EQ(lowercased("\u00c9T\u00c9 \u041c\u041e\u0421\u041a\u0412\u0410"),
            "\u00e9t\u00e9 \u043c\u043e\u0441\u043a\u0432\u0430");
  EXPECT_EQ(lowercased("A\xff\xc3"), "a\xff\xc3");
  EXPECT_EQ(lowercased("\xe6\x97\xa5"), "\xe6\x97\xa5");
}

TEST(TextTest, TrimsUnicodeWhiteSpaceAtBothEndsOnly) {
  EXPECT_EQ(trimmed("  sky \n"), "sky");
  EXPECT_EQ(trimmed("\u00a0\u3000blue sky\u2003\r\n"), "blue sky");
  EXPECT_EQ(trimmed(" \t "), "");
  EXPECT_EQ(trimmed(""), "");
  EXPECT_EQ(trimmed("\u00e9"), "\u00e9");
  EXPECT_EQ(trimmed(" \xff "), "\xff");
  EXPECT_EQ(trimmed("x\xa0"), "x\xa0");  // a lone continuation byte is not a space
}

// ---- Against a real catalog ------------------------------------------------

class QueryCatalogTest : public test::LibraryTest {
 protected:
  std::int64_t add(const std::string& path, std::optional<double> capture, double imported,
                   std::optional<double> editDate = {}, int rating = 0, const std::string& camera = "",
                   std::int64_t size = 0) {
    return addPhoto(path, {{"capture", SQLValue::optional(capture)},
                           {"imported", imported},
                           {"editDate", SQLValue::optional(editDate)},
                           {"rating", rating},
                           {"camera", camera},
                           {"size", size}});
  }

  Ids ids(const LibraryQuery& q) {
    Ids out;
    for (const PhotoRecord& r : library.photos(q)) out.push_back(r.id);
    return out;
  }

  Ids search(const std::string& text) {
    LibraryQuery q;
    q.text = text;
    q.sort = SortOrder::importDate;
    q.ascending = true;
    return ids(q);
  }

  Ids inFolder(const std::string& folder) {
    LibraryQuery q;
    q.folder = folder;
    q.ascending = true;
    q.sort = SortOrder::importDate;
    return ids(q);
  }
};

TEST_F(QueryCatalogTest, FolderScopeTakesSubfoldersButNotLookalikes) {
  auto ab = add("/a/b/1.jpg", {}, 1);
  auto abc = add("/a/b/c/2.jpg", {}, 2);
  auto abSibling = add("/a/bc/3.jpg", {}, 3);
  auto upper = add("/A/B/4.jpg", {}, 4);
  auto underscore = add("/a_b/5.jpg", {}, 5);
  auto lookalike = add("/axb/6.jpg", {}, 6);
  auto percent = add("/p%/7.jpg", {}, 7);
  auto percentOther = add("/pq/8.jpg", {}, 8);
  auto dash = add("/a/b-c/9.jpg", {}, 9);
  auto slashName = add("/a/b0/10.jpg", {}, 10);

  EXPECT_EQ(inFolder("/a/b"), (Ids{ab, abc}));
  EXPECT_EQ(inFolder("/a/b/"), (Ids{ab, abc}));
  EXPECT_EQ(inFolder("/a/b/c"), (Ids{abc}));
  EXPECT_EQ(inFolder("/A/B"), (Ids{upper}));  // paths compare with case
  EXPECT_EQ(inFolder("/a_b"), (Ids{underscore}));
  EXPECT_EQ(inFolder("/p%"), (Ids{percent}));
  EXPECT_EQ(inFolder("/a"), (Ids{ab, abc, abSibling, dash, slashName}));
  EXPECT_EQ(inFolder("/"),
            (Ids{ab, abc, abSibling, upper, underscore, lookalike, percent, percentOther, dash, slashName}));
  EXPECT_EQ(inFolder("//"), inFolder("/"));
  EXPECT_EQ(inFolder("/nowhere"), (Ids{}));
}

TEST_F(QueryCatalogTest, SearchMatchesWhatTheRulesSayAndNothingMore) {
  auto underscore = add("/p/IMG_1.jpg", {}, 1, {}, 2, "Canon EOS R5");
  auto plain = add("/p/IMGx1.jpg", {}, 2, {}, 4, "NIKON Z 6");
  auto percent = add("/p/100%.jpg", {}, 3, {}, 5, "Canon \"quoted\"");
  auto quote = add("/p/it's.jpg", {}, 4, {}, 0, "");
  library.db().run("INSERT INTO keywords(photo, word) VALUES(?, 'sky'), (?, 'sea')", {plain, quote});

  EXPECT_EQ(search(""), (Ids{underscore, plain, percent, quote}));
  // LIKE wildcards typed by the user keep their LIKE meaning.
  EXPECT_EQ(search("%"), (Ids{underscore, plain, percent, quote}));
  EXPECT_EQ(search("IMG_1"), (Ids{underscore, plain}));
  EXPECT_EQ(search("canon"), (Ids{underscore, percent}));
  EXPECT_EQ(search("canon rating:>=3"), (Ids{percent}));
  EXPECT_EQ(search("it's"), (Ids{quote}));
  EXPECT_EQ(search("keyword:SKY"), (Ids{plain}));
  EXPECT_EQ(search("sea"), (Ids{quote}));
  EXPECT_EQ(search("\"EOS R5\""), (Ids{underscore}));
  EXPECT_EQ(search("rating:>=abc"), (Ids{underscore, plain, percent, quote}));
  EXPECT_EQ(search("iso:"), (Ids{}));
  EXPECT_EQ(search(":"), (Ids{}));
  EXPECT_EQ(search("\"canon"), (Ids{underscore, percent}));
  EXPECT_EQ(search("'; DELETE FROM photos; --"), (Ids{}));
  EXPECT_EQ(search("x' OR '1'='1"), (Ids{}));
  EXPECT_EQ(library.count(), 4);
}

TEST_F(QueryCatalogTest, CaptureSortFallsBackToImportAndTiesBreakById) {
  auto a = add("/p/a.jpg", 500.0, 900);
  auto noCapture = add("/p/b.jpg", {}, 700);
  auto tieFirst = add("/p/c.jpg", 600.0, 100);
  auto tieSecond = add("/p/d.jpg", 600.0, 100);
  LibraryQuery q;
  EXPECT_EQ(ids(q), (Ids{noCapture, tieSecond, tieFirst, a}));
  q.ascending = true;
  EXPECT_EQ(ids(q), (Ids{a, tieFirst, tieSecond, noCapture}));
}

TEST_F(QueryCatalogTest, EditDateSortTakesNeverEditedAsZero) {
  auto never = add("/p/a.jpg", 1.0, 1, {});
  auto early = add("/p/b.jpg", 2.0, 1, 50.0);
  auto late = add("/p/c.jpg", 3.0, 1, 80.0);
  auto never2 = add("/p/d.jpg", 4.0, 1, {});
  LibraryQuery q;
  q.sort = SortOrder::editDate;
  EXPECT_EQ(ids(q), (Ids{late, early, never2, never}));
  q.ascending = true;
  EXPECT_EQ(ids(q), (Ids{never, never2, early, late}));
}

TEST_F(QueryCatalogTest, NameRatingAndSizeSorts) {
  auto b = add("/p/b.jpg", {}, 1, {}, 3, "", 30);
  auto upperA = add("/p/A.jpg", {}, 1, {}, 5, "", 10);
  auto c = add("/p/c.jpg", {}, 1, {}, 3, "", 20);
  LibraryQuery q;
  q.sort = SortOrder::name;
  q.ascending = true;
  EXPECT_EQ(ids(q), (Ids{upperA, b, c}));  // without regard to case
  q.sort = SortOrder::rating;
  q.ascending = false;
  EXPECT_EQ(ids(q), (Ids{upperA, c, b}));  // equal ratings: larger id first
  q.sort = SortOrder::fileSize;
  EXPECT_EQ(ids(q), (Ids{b, c, upperA}));
}

TEST_F(QueryCatalogTest, CollectionAndLabelScopes) {
  auto a = add("/p/a.jpg", {}, 1);
  auto b = add("/p/b.jpg", {}, 2);
  auto c = add("/p/c.jpg", {}, 3);
  library.db().run("UPDATE photos SET label = 'red' WHERE id = ?", {a});
  library.db().run("UPDATE photos SET label = 'blue', edited = 1 WHERE id = ?", {c});
  library.db().run("INSERT INTO collection_items(collection, photo) VALUES(7, ?), (7, ?), (8, ?)", {a, b, c});
  LibraryQuery q;
  q.sort = SortOrder::importDate;
  q.ascending = true;
  q.collection = 7;
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
class SortAgreementTest : public QueryCatalogTest,
                          public ::testing::WithParamInterface<std::tuple<SortOrder, bool>> {};

TEST_P(SortAgreementTest, MatchesSqliteOrderBy) {
  std::vector<SQLValue> odd{SQLValue(),
                            SQLValue(std::int64_t{5}),
                            SQLValue(5.0),
                            SQLValue(4.5),
                            SQLValue(std::int64_t{-3}),
                            SQLValue("5"),
                            SQLValue("abc"),
                            SQLValue("ABC"),
                            SQLValue(Blob{1, 2}),
                            SQLValue(Blob{}),
                            SQLValue(std::int64_t{9007199254740993}),
                            SQLValue(9007199254740992.0)};
  std::vector<SQLValue> names{SQLValue("b.jpg"),
                              SQLValue("B.jpg"),
                              SQLValue("a.JPG"),
                              SQLValue("\u00e9t\u00e9.heic"),
                              SQLValue("\u00c9t\u00e9.heic"),
                              SQLValue("_x.png"),
                              SQLValue("[x].png"),
                              SQLValue(),
                              SQLValue(std::int64_t{7}),
                              SQLValue("b.jpg2"),
                              SQLValue(""),
                              SQLValue(Blob{'b'})};
  std::uint32_t seed = 12345;
  auto next = [&](std::size_t n) {
    seed = seed * 1664525u + 1013904223u;
    return static_cast<std::size_t>((seed >> 8) % n);
  };
  for (int i = 0; i < 300; ++i) {
    library.db().run(
        "INSERT INTO photos(path, folder, name, capture, imported, rating, editDate, size) "
        "VALUES(?,?,?,?,?,?,?,?)",
        {"/p/" + std::to_string(i), "/p", names[next(names.size())], odd[next(odd.size())],
         odd[next(odd.size())], odd[next(odd.size())], odd[next(odd.size())], odd[next(odd.size())]});
  }
  auto [sort, ascending] = GetParam();
  for (int minRating : {0, 2}) {
    LibraryQuery q;
    q.sort = sort;
    q.ascending = ascending;
    q.minRating = minRating;
    WhereClause where = q.whereClause();
    Ids expected;
    for (const SQLRow& row :
         library.db().query("SELECT id FROM photos" + where.sql + q.orderClause(), where.params)) {
      expected.push_back(*row[0].intValue());
    }
    ASSERT_GT(expected.size(), 20u);
    EXPECT_EQ(ids(q), expected) << key(sort) << (ascending ? " ascending" : " descending") << " min "
                                << minRating;
  }
}

INSTANTIATE_TEST_SUITE_P(AllOrders, SortAgreementTest,
                         ::testing::Combine(::testing::ValuesIn(allSortOrders()), ::testing::Bool()));

}  // namespace
