#include "cli/cli.h"

#include <gtest/gtest.h>

#include "cli/common.h"
#include "tests/support/cli_run.h"

using namespace lumivale;
using lumivale::cli::UsageError;
using test::runCli;

namespace {

TEST(CliIdsTest, AcceptsSinglesListsAndRangesAndNothingElse) {
  using Ids = std::vector<std::int64_t>;
  for (auto [text, ids] : {std::pair("7", Ids{7}),
                           {"3,7,9", {3, 7, 9}},
                           {"3-6", {3, 4, 5, 6}},
                           {"9,1-3,2", {9, 1, 2, 3}},
                           {"5-5", {5}}})
    EXPECT_EQ(cli::parseIds(text), ids) << text;
  for (const char* bad : {"", ",", "a", "0", "-3", "3-", "6-3", "1.5", "1-2-3", "7x", "1 2",
                          "99999999999999999999", "1-99999999999"})
    EXPECT_THROW(cli::parseIds(bad), UsageError) << bad;
}

TEST(CliTextTest, PrintableEscapesControlCharactersAndKeepsUnicode) {
  using P = std::pair<const char*, const char*>;
  for (auto [text, shown] :
       {P{"", ""},
        P{"plain \u00e9t\u00e9 \u65e5\u672c \U0001F4F7", "plain \u00e9t\u00e9 \u65e5\u672c \U0001F4F7"},
        P{"a\nb\r\tc", "a\\nb\\r\\tc"}, P{"\x1b[2J", "\\e[2J"}, P{"\x7f\x01", "\\x7f\\x01"},
        P{"\xc2\x9b"
          "1m",
          "\\u009b1m"},
        P{"\xff\xc3(", "\\xff\\xc3("}, P{"back\\slash", "back\\slash"}})
    EXPECT_EQ(cli::printable(text), shown) << text;
  EXPECT_EQ(cli::printable(std::string("a\0b", 3)), "a\\x00b");
}

TEST(CliArgumentsTest, SplitsOptionsFlagsAndPositionals) {
  cli::OptionSpec spec{{"--edited"}, {"--sort", "--label", "-o"}};
  auto a = cli::parseArguments({"sky", "--label", "red", "--sort=name", "--edited", "--label=blue", "-3",
                                "-o", "out.cube", "--", "--literal"},
                               spec);
  EXPECT_EQ(a.positional, (std::vector<std::string>{"sky", "-3", "--literal"}));
  EXPECT_EQ(a.all("--label"), (std::vector<std::string>{"red", "blue"}));
  EXPECT_EQ(a.value("--sort"), "name");
  EXPECT_EQ(a.value("-o"), "out.cube");
  EXPECT_TRUE(a.has("--edited"));
  EXPECT_FALSE(a.value("--missing"));
  EXPECT_THROW(cli::parseArguments({"--bogus"}, spec), UsageError);
  EXPECT_THROW(cli::parseArguments({"--sort"}, spec), UsageError);
  EXPECT_THROW(cli::parseArguments({"--edited=1"}, spec), UsageError);
}

TEST(CliTest, InfoReportsAFreshLibraryChosenByOptionOrEnvironment) {
  test::TempDir dir;
  const std::string folder = (dir / "lib").string();
  auto doc = runCli({"--library", folder, "--json", "info"}).json();
  EXPECT_GT(doc["databaseSize"].get<std::int64_t>(), 0);
  doc.erase("databaseSize");
  EXPECT_EQ(doc, (nlohmann::json{{"format", "KUVO Lumivale library 1"},
                                 {"photos", 0},
                                 {"library", folder},
                                 {"database", folder + "/Lumivale Library.sqlite"},
                                 {"thumbnails", folder + "/Thumbnails"}}));

  // Global options may also follow the command; the text form names each fact.
  auto r = runCli({"info", "--library=" + folder});
  ASSERT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("KUVO Lumivale library 1"), std::string::npos);
  EXPECT_NE(r.out.find("Photos:     0"), std::string::npos);

  setenv("LUMIVALE_LIBRARY", (dir / "env-lib").c_str(), 1);
  r = runCli({"--json", "info"});
  unsetenv("LUMIVALE_LIBRARY");
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.json()["library"], (dir / "env-lib").string());
}

TEST(CliTest, UsageErrorsExitTwoWithOneLine) {
  for (auto args : std::vector<std::vector<std::string>>{
           {}, {"frobnicate"}, {"--library"}, {"--wat", "info"}, {"info", "extra"}, {"info", "--bogus"}}) {
    test::expectError(runCli(args), 2);
  }
}

TEST(CliTest, HelpAtEveryLevel) {
  auto top = runCli({"--help"});
  EXPECT_EQ(top.status, 0);
  EXPECT_NE(top.out.find("info"), std::string::npos);
  EXPECT_EQ(runCli({"help"}).out, top.out);
  auto info = runCli({"info", "--help"});
  EXPECT_EQ(info.status, 0);
  EXPECT_NE(info.out.find("usage: lumivale-cli"), std::string::npos);
  EXPECT_EQ(runCli({"help", "info"}).out, info.out);
}

TEST(CliTest, LibraryThatCannotOpenIsAnErrorAndFilesStay) {
  test::TempDir dir;
  test::writeFile(dir / "plain", "keep me");
  test::expectError(runCli({"--library", (dir / "plain" / "lib").string(), "info"}), 1);
  EXPECT_EQ(test::readFile(dir / "plain"), "keep me");

  test::writeFile(dir / "bad" / "Lumivale Library.sqlite", "not a database at all");
  auto r = runCli({"--library", (dir / "bad").string(), "info"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "error: Cannot read the catalog \"" + (dir / "bad" / "Lumivale Library.sqlite").string() +
                       "\": file is not a database\n");
  EXPECT_EQ(test::readFile(dir / "bad" / "Lumivale Library.sqlite"), "not a database at all");
}

}  // namespace
