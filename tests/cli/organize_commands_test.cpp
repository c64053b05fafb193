#include <gtest/gtest.h>

#include "tests/support/cli_run.h"

using namespace lumivale;
using Json = nlohmann::json;

namespace {

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

  ASSERT_EQ(run({"rate", "1,3", "4"}).status, 0);
  ASSERT_EQ(run({"flag", "3", "reject"}).status, 0);
  ASSERT_EQ(run({"label", "2,3", "blue"}).status, 0);
  ASSERT_EQ(run({"label", "4", "red"}).status, 0);
  EXPECT_EQ(listed({"--min-rating", "4"}), (Ids{1, 3}));
  EXPECT_EQ(listed({"--min-rating", "4", "--flag", "notRejected"}), (Ids{1}));
  EXPECT_EQ(listed({"--label", "blue", "--label", "red"}), (Ids{2, 3, 4}));
  EXPECT_EQ(listed({"--label", "red,blue", "--flag", "rejects"}), (Ids{3}));
  EXPECT_EQ(listed({"--edited"}), (Ids{}));
}

TEST_F(OrganizeCliTest, ListFolderAcceptsARelativePath) {
  auto previous = std::filesystem::current_path();
  std::filesystem::create_directories(dir / "work");
  std::filesystem::current_path(dir / "work");
  library.db().run("UPDATE photos SET folder = ? WHERE id = 2", {(dir / "shots").string()});
  Ids ids = listed({"--folder", "../work/./../shots/"});
  std::filesystem::current_path(previous);
  EXPECT_EQ(ids, (Ids{2}));
}

TEST_F(OrganizeCliTest, ListTextShowsOneLinePerPhoto) {
  run({"rate", "2", "3"});
  run({"flag", "2", "pick"});
  run({"label", "2", "green"});
  test::CliResult r = run({"list", "IMG_2"});
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1);
  for (const char* part : {"2  ", "IMG_2.jpg", "\u2605\u2605\u2605\u2606\u2606", "pick", "green"}) {
    EXPECT_NE(r.out.find(part), std::string::npos) << part << " in " << r.out;
  }
  EXPECT_EQ(run({"list", "nothing-matches"}).out, "No photos.\n");
}

TEST_F(OrganizeCliTest, MalformedValuesExitTwoAndUnknownIdsExitOne) {
  std::string before = dump();
  struct Case {
    std::vector<std::string> args;
    int status;
  };
  for (const Case& c : std::vector<Case>{
           {{"list", "--sort", "date"}, 2},
           {{"list", "--flag", "pick"}, 2},
           {{"list", "--label", "orange"}, 2},
           {{"list", "--min-rating", "6"}, 2},
           {{"list", "--collection", "abc"}, 2},
           {{"list", "--collection", "9"}, 1},
           {{"rate", "1", "6"}, 2},
           {{"rate", "1", "-1"}, 2},
           {{"rate", "1,x", "3"}, 2},
           {{"rate", "1,2,99", "3"}, 1},
           {{"flag", "1", "picked"}, 2},
           {{"flag", "1-5", "pick"}, 1},
           {{"label", "1", "Red"}, 2},
           {{"label", "7", "red"}, 1},
           {{"keywords", "42"}, 1},
           {{"keyword", "add", "1,42", "sky"}, 1},
           {{"keyword", "add", "1", " ; , "}, 2},
           {{"keyword", "tag", "1", "sky"}, 2},
           {{"keyword", "remove", "42", "sky"}, 1},
           {{"collection", "create", "x", "1,42"}, 1},
           {{"collection", "create", "  "}, 2},
           {{"collection", "add", "5", "1"}, 1},
           {{"collection", "delete", "5"}, 1},
           {{"collection", "rename", "0", "x"}, 2},
           {{"collection", "frob"}, 2},
           {{"remove", "42", "--yes"}, 1},
           {{"remove", "1,42", "--yes"}, 1},
       }) {
    SCOPED_TRACE(c.args[0] + " " + c.args[1]);
    test::expectError(run(c.args), c.status);
  }
  EXPECT_EQ(dump(), before);
  // The missing ids are named.
  test::CliResult r = run({"rate", "1,8,2,9", "3"});
  EXPECT_NE(r.err.find("8, 9"), std::string::npos) << r.err;
}

TEST_F(OrganizeCliTest, KeywordsAreSplitNormalisedAndCounted) {
  test::CliResult r = run({"keyword", "add", "1-3", "Sky,", "Blue", "Hour;", " sea ,SKY"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(library.keywords(2), (std::vector<std::string>{"blue hour", "sea", "sky"}));
  ASSERT_EQ(run({"keyword", "remove", "1,2", "SEA"}).status, 0);

  r = run({"--json", "keywords"});
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.json(), Json::parse(R"([{"word":"blue hour","count":3},{"word":"sea","count":1},
                                      {"word":"sky","count":3}])"));
  r = run({"--json", "keywords", "3"});
  EXPECT_EQ(r.json(), Json::parse(R"({"id":3,"keywords":["blue hour","sea","sky"]})"));
  EXPECT_EQ(run({"keywords", "4"}).out, "");
}

TEST_F(OrganizeCliTest, CollectionsFromCreateToDelete) {
  test::CliResult r = run({"--json", "collection", "create", "Trips", "1,2"});
  ASSERT_EQ(r.status, 0) << r.err;
  Json made = r.json();
  std::int64_t id = made["id"];
  EXPECT_EQ(made["created"], true);
  EXPECT_EQ(made["count"], 2);
  r = run({"--json", "collection", "create", "Trips"});
  EXPECT_EQ(r.json()["id"], id);
  EXPECT_EQ(r.json()["created"], false);

  ASSERT_EQ(run({"collection", "create", "best"}).status, 0);
  r = run({"collection", "rename", std::to_string(id), "best"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("already exists"), std::string::npos);
  ASSERT_EQ(run({"collection", "rename", std::to_string(id), "Alps"}).status, 0);
  ASSERT_EQ(run({"collection", "add", std::to_string(id), "3,1"}).status, 0);
  ASSERT_EQ(run({"collection", "remove", std::to_string(id), "2"}).status, 0);
  EXPECT_EQ(listed({"--collection", std::to_string(id)}), (Ids{1, 3}));

  r = run({"--json", "collection", "list"});
  EXPECT_EQ(r.json(), Json::parse(R"([{"id":)" + std::to_string(id) + R"(,"name":"Alps","count":2},
                                      {"id":)" +
                                  std::to_string(id + 1) + R"(,"name":"best","count":0}])"));
  ASSERT_EQ(run({"collection", "delete", std::to_string(id)}).status, 0);
  EXPECT_EQ(library.collections().size(), 1u);
  EXPECT_EQ(library.count(), 4);
}

TEST_F(OrganizeCliTest, FoldersListsRootsAndCounts) {
  test::CliResult r = run({"--json", "folders"});
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.json(), Json::parse(R"({"importFolders":["/pics/trip","/pics/tripod"],
      "folders":[{"path":"/pics/trip","count":2},{"path":"/pics/trip/sub","count":1},
                 {"path":"/pics/tripod","count":1}]})"));
}

TEST_F(OrganizeCliTest, RemoveNeedsYesOffTheTerminal) {
  auto thumb = library.thumbFolder() / "2.jpg";
  test::writeFile(thumb, "jpeg");
  test::CliResult r = run({"remove", "2"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("--yes"), std::string::npos);
  EXPECT_EQ(library.count(), 4);

  r = run({"--json", "remove", "2,3", "-y"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.json()["removed"], Json::parse("[2,3]"));
  EXPECT_EQ(listed({}), (Ids{1, 4}));
  EXPECT_FALSE(std::filesystem::exists(thumb));
}

}  // namespace
