#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "engine/util/text.h"
#include "tests/support/cli_run.h"

using namespace lumivale;
using Json = nlohmann::json;

namespace {

using test::Args;
using test::Ids;

// A library with four photos in two folders, made directly in the catalog.
class OrganizeCliTest : public test::CliLibraryTest {
 protected:
  void SetUp() override {
    addPhoto("/pics/trip/IMG_1.jpg", {{"capture", 400.0}, {"camera", "Canon EOS R5"}});
    addPhoto("/pics/trip/IMG_2.jpg", {{"capture", 300.0}, {"camera", "Canon EOS R5"}});
    addPhoto("/pics/trip/sub/DSC_3.NEF", {{"capture", 200.0}, {"camera", "NIKON Z 6"}});
    addPhoto("/pics/tripod/DSC_4.NEF", {{"capture", 100.0}, {"camera", "NIKON Z 6"}});
    library.db().run("INSERT INTO folders(path, added) VALUES('/pics/trip', 0), ('/pics/tripod', 0)");
  }

  Ids listed(std::vector<std::string> args) {
    args.insert(args.begin(), {"--json", "list"});
    Ids ids;
    for (const Json& record : ok(args).json()) ids.push_back(record["id"].get<std::int64_t>());
    return ids;
  }

  std::string dump() {
    return test::dumpRows(library, {"SELECT id, rating, flag, label FROM photos ORDER BY id",
                                    "SELECT * FROM keywords ORDER BY photo, word",
                                    "SELECT id, name FROM collections ORDER BY id",
                                    "SELECT * FROM collection_items ORDER BY collection, photo"});
  }
};

TEST_F(OrganizeCliTest, ListFiltersSortsAndSearches) {
  EXPECT_EQ(listed({}), (Ids{1, 2, 3, 4}));  // newest capture first
  EXPECT_EQ(listed({"--ascending"}), (Ids{4, 3, 2, 1}));
  EXPECT_EQ(listed({"--sort", "name", "--ascending"}), (Ids{3, 4, 1, 2}));
  EXPECT_EQ(listed({"--folder", "/pics/trip/"}), (Ids{1, 2, 3}));
  EXPECT_EQ(listed({"canon"}), (Ids{1, 2}));
  // Several words are one search text: every word must match.
  EXPECT_EQ(listed({"nikon", "DSC_4"}), (Ids{4}));
  EXPECT_EQ(listed({"camera:\"Z 6\"", "name:DSC_3"}), (Ids{3}));
  EXPECT_EQ(listed({"rating:>=abc"}), (Ids{1, 2, 3, 4}));

  for (const Args& args : {Args{"rate", "1,3", "4"}, Args{"flag", "3", "reject"},
                           Args{"label", "2,3", "blue"}, Args{"label", "4", "red"}})
    ok(args);
  EXPECT_EQ(listed({"--min-rating", "4"}), (Ids{1, 3}));
  EXPECT_EQ(listed({"--min-rating", "4", "--flag", "notRejected"}), (Ids{1}));
  EXPECT_EQ(listed({"--label", "blue", "--label", "red"}), (Ids{2, 3, 4}));
  EXPECT_EQ(listed({"--label", "red,blue", "--flag", "rejects"}), (Ids{3}));
  EXPECT_EQ(listed({"--edited"}), (Ids{}));
  // A comparison that is not a number compares with 0: only unrated photos.
  EXPECT_EQ(listed({"rating:abc"}), (Ids{2, 4}));
}

TEST_F(OrganizeCliTest, ListTextShowsOneLinePerPhotoAndFoldersMayBeRelative) {
  for (const Args& args : {Args{"rate", "2", "3"}, Args{"flag", "2", "pick"}, Args{"label", "2", "green"}})
    ok(args);
  library.db().run("UPDATE photos SET capture = NULL WHERE id = 2");  // a "-" date, no summary
  const std::string out = ok({"list", "IMG_2"}).out;
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
  EXPECT_EQ(out.substr(out.size() - 4), "  -\n") << "no padding after the last column";
  for (const char* part : {"2  ", "IMG_2.jpg", "\u2605\u2605\u2605\u2606\u2606", "pick", "green"})
    EXPECT_NE(out.find(part), std::string::npos) << part << " in " << out;
  EXPECT_EQ(ok({"list", "nothing-matches"}).out, "No photos.\n");
  EXPECT_NE(
      ok({"list", "--help"})
          .out.find(
              "\nSearch: words, rating:>=3, flag:pick, label:red, iso:>800, camera:canon, keyword:sky\n"),
      std::string::npos);

  const auto previous = std::filesystem::current_path();
  std::filesystem::create_directories(dir / "work");
  std::filesystem::current_path(dir / "work");
  library.db().run("UPDATE photos SET folder = ? WHERE id = 2", {(dir / "shots").string()});
  const Ids ids = listed({"--folder", "../work/./../shots/"});
  std::filesystem::current_path(previous);
  EXPECT_EQ(ids, (Ids{2}));
}

TEST_F(OrganizeCliTest, MalformedValuesExitTwoAndUnknownIdsExitOne) {
  std::string before = dump();
  expectRefused(
      2, {Args{"list", "--sort", "date"}, Args{"list", "--flag", "pick"}, Args{"list", "--label", "orange"},
          Args{"list", "--min-rating", "6"}, Args{"list", "--collection", "abc"}, Args{"rate", "1", "x"},
          Args{"rate", "1", "4.5"}, Args{"rate", "1,x", "3"}, Args{"flag", "1", "picked"},
          Args{"label", "1", "Red"}, Args{"keyword", "add", "1", " ; , "}, Args{"keyword", "tag", "1", "sky"},
          Args{"collection", "create", "  "}, Args{"collection", "rename", "0", "x"},
          Args{"collection", "frob"}});
  expectRefused(1,
                {Args{"list", "--collection", "9"}, Args{"rate", "1,2,99", "3"}, Args{"flag", "1-5", "pick"},
                 Args{"label", "7", "red"}, Args{"keywords", "42"}, Args{"keyword", "add", "1,42", "sky"},
                 Args{"keyword", "remove", "42", "sky"}, Args{"collection", "create", "x", "1,42"},
                 Args{"collection", "add", "5", "1"}, Args{"collection", "delete", "5"},
                 Args{"remove", "42", "--yes"}, Args{"remove", "1,42", "--yes"}});
  EXPECT_EQ(dump(), before);
  // The missing ids are named.
  test::expectError(run({"rate", "1,8,2,9", "3"}), 1, "8, 9");
}

TEST_F(OrganizeCliTest, RatingsOutOfRangeAreClamped) {
  EXPECT_EQ(ok({"--json", "rate", "1,2", "7"}).json(), Json::parse(R"({"ids":[1,2],"rating":5})"));
  EXPECT_EQ(ok({"rate", "3", "-2"}).out, "Rated 1 photo \u2606\u2606\u2606\u2606\u2606\n");
  ok({"rate", "4", "99999999999"});
  std::vector<int> ratings;
  for (std::int64_t id : {1, 2, 3, 4}) ratings.push_back(library.photo(id)->rating);
  EXPECT_EQ(ratings, (std::vector<int>{5, 5, 0, 5}));
}

TEST_F(OrganizeCliTest, KeywordsAreSplitNormalisedAndCounted) {
  ok({"keyword", "add", "1-3", "Sky,", "Blue", "Hour;", " sea ,SKY"});
  EXPECT_EQ(library.keywords(2), (Args{"blue hour", "sea", "sky"}));
  EXPECT_EQ(ok({"keyword", "remove", "1,2,4", "SEA"}).out, "Removed sea from 2 photos\n");
  // A word none of the photos has is most likely mistyped: it is an error.
  const std::string before = dump();
  test::expectError(run({"keyword", "remove", "1,2", "sea"}), 1,
                    "no photo of the 2 photos has the keyword \"sea\"");
  test::expectError(run({"keyword", "remove", "4", "Sky"}), 1, "no photo has the keyword \"sky\"");
  EXPECT_EQ(dump(), before);
  EXPECT_EQ(
      ok({"--json", "keywords"}).json(),
      Json::parse(R"([{"word":"blue hour","count":3},{"word":"sea","count":1},{"word":"sky","count":3}])"));
  EXPECT_EQ(ok({"--json", "keywords", "3"}).json(),
            Json::parse(R"({"id":3,"keywords":["blue hour","sea","sky"]})"));
  EXPECT_EQ(ok({"keywords", "4"}).out, "");
}

TEST_F(OrganizeCliTest, CollectionsFromCreateToDelete) {
  const Json made = ok({"--json", "collection", "create", "Trips", "1,2"}).json();
  const std::int64_t id = made["id"];
  const std::string name = std::to_string(id);
  EXPECT_EQ(std::pair(made["created"], made["count"]), std::pair(Json(true), Json(2)));
  const Json again = ok({"--json", "collection", "create", "Trips"}).json();
  EXPECT_EQ(std::pair(again["id"], again["created"]), std::pair(Json(id), Json(false)));

  ok({"collection", "create", "best"});
  test::expectError(run({"collection", "rename", name, "best"}), 1, "already exists");
  for (const Args& args : {Args{"collection", "rename", name, "Alps"}, Args{"collection", "add", name, "3,1"},
                           Args{"collection", "remove", name, "2"}})
    ok(args);
  EXPECT_EQ(listed({"--collection", name}), (Ids{1, 3}));
  EXPECT_EQ(ok({"--json", "collection", "list"}).json(),
            Json::parse(R"([{"id":)" + name + R"(,"name":"Alps","count":2},{"id":)" + std::to_string(id + 1) +
                        R"(,"name":"best","count":0}])"));
  ok({"collection", "delete", name});
  EXPECT_EQ(library.collections().size(), 1u);
  EXPECT_EQ(library.count(), 4);
}

TEST_F(OrganizeCliTest, FoldersListsRootsAndCountsAndRemoveNeedsYesOffTheTerminal) {
  EXPECT_EQ(ok({"--json", "folders"}).json(), Json::parse(R"({"importFolders":["/pics/trip","/pics/tripod"],
      "folders":[{"path":"/pics/trip","count":2},{"path":"/pics/trip/sub","count":1},
                 {"path":"/pics/tripod","count":1}]})"));

  const auto thumb = library.thumbFolder() / "2.jpg";
  test::writeFile(thumb, "jpeg");
  test::expectError(run({"remove", "2"}), 1, "--yes");
  EXPECT_EQ(library.count(), 4);
  EXPECT_EQ(ok({"--json", "remove", "2,3", "-y"}).json()["removed"], Json::parse("[2,3]"));
  EXPECT_EQ(listed({}), (Ids{1, 4}));
  EXPECT_FALSE(std::filesystem::exists(thumb));
}

TEST_F(OrganizeCliTest, RemoveOnATerminalAsksFirst) {
  struct Answer {
    std::istringstream in;
    std::streambuf* saved;
    explicit Answer(const std::string& text) : in(text), saved(std::cin.rdbuf(in.rdbuf())) {}
    ~Answer() { std::cin.rdbuf(saved); }
  };
  const auto remove = [&](const std::string& ids, const std::string& answer) {
    Answer typed(answer);
    std::ostringstream out, err;
    int status = cli::run({"--library", folder.string(), "remove", ids}, out, err, false, true);
    return std::pair(status, err.str());
  };
  const auto [refused, asked] = remove("1,2", "n\n");
  EXPECT_EQ(refused, 1);
  EXPECT_EQ(asked.substr(0, asked.find(" [y/N]")),
            "Remove 2 photos from the library?\nThe photo files stay on this computer, untouched. Their "
            "ratings, keywords and edits in KUVO Lumivale are removed.");
  EXPECT_EQ(library.count(), 4);
  const auto [removed, one] = remove("3", "y\n");
  EXPECT_EQ(removed, 0);
  EXPECT_EQ(one.rfind("Remove 1 photo from the library?\n", 0), 0u) << one;
  EXPECT_EQ(listed({}), (Ids{1, 2, 4}));
}

// Names and stored texts reach the terminal escaped, whatever the command:
// a file name cannot clear the screen or split a list line in two.
TEST_F(OrganizeCliTest, HumanOutputShowsControlCharactersAsEscapes) {
  const std::string name = "a\x1b[2J\nb\t\x7f\xc2\x9b\xff\u00e9.jpg";
  const std::string shown = "a\\e[2J\\nb\\t\\x7f\\u009b\\xff\u00e9.jpg";
  library.db().run("UPDATE photos SET name = ?, path = ?, camera = ?, lens = ?, label = ? WHERE id = 1",
                   {name, "/pics/" + name, name, name, name});
  library.db().run("INSERT INTO folders(path, added) VALUES(?, 0)", {"/x/" + name});
  library.addKeywords({1}, {name});
  library.addToCollection(library.createCollection(name), {1});
  library.saveSettings(1, EditSettings{.masks = {PhotoMask(MaskKind::radial, name)}}, name);
  library.addSnapshot(1, name, {});
  library.savePreset(name, {}, {});

  EXPECT_NE(ok({"list"}).out.find("  " + shown + "  "), std::string::npos);
  EXPECT_NE(ok({"show", "1"}).out.find("Name:         " + shown + "\n"), std::string::npos);
  for (const Args& args :
       {Args{"list"}, Args{"show", "1"}, Args{"keywords"}, Args{"keywords", "1"}, Args{"collection", "list"},
        Args{"folders"}, Args{"history", "1"}, Args{"snapshot", "list", "1"}, Args{"preset", "list"},
        Args{"mask", "list", "1"}}) {
    const std::string out = ok(args).out;
    EXPECT_TRUE(isUtf8(out)) << args[0];
    EXPECT_EQ(std::count_if(out.begin(), out.end(),
                            [](char c) { return (c >= 0 && c < 0x20 && c != '\n') || c == 0x7f; }),
              0)
        << args[0] << ": " << out;
    EXPECT_EQ(out.find("\u009b"), std::string::npos) << args[0];
    EXPECT_NE(out.find("\\e[2"), std::string::npos) << args[0] << ": " << out;
  }
  const std::string list = ok({"list"}).out;
  EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 4);
  // JSON keeps the text itself.
  EXPECT_EQ(ok({"--json", "show", "1"}).json()["camera"],
            name.substr(0, name.find('\xff')) + "\ufffd\u00e9.jpg");
}

}  // namespace
