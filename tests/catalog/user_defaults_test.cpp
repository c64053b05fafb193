#include "engine/catalog/user_defaults.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "engine/media/safe_file.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

using test::ScopedEnv;

class UserDefaultsTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  UserDefaults store{dir / "config" / "KUVO"};
};

TEST_F(UserDefaultsTest, KeepsAnyBytesUnderAKeyUntilChangedOrRemoved) {
  EXPECT_EQ(store.data("kuvo.ph.gridSize"), std::nullopt);
  const std::string binary("\xff\x00\xfe\"\\/", 6);
  store.set("kuvo.ph.gridSize", "180");
  store.set("text", "{\"quoted\": \"ü ©\"}\n");
  store.set("binary", binary);
  store.set("empty", "");
  EXPECT_EQ(store.data("kuvo.ph.gridSize"), "180");
  EXPECT_EQ(store.data("text"), "{\"quoted\": \"ü ©\"}\n");
  EXPECT_EQ(store.data("binary"), binary);
  EXPECT_EQ(store.data("empty"), "");

  store.set("kuvo.ph.gridSize", "240");
  store.remove("text");
  store.remove("never stored");
  EXPECT_EQ(store.all(), (std::map<std::string, std::string>{
                             {"binary", binary}, {"empty", ""}, {"kuvo.ph.gridSize", "240"}}));
  // Another handle on the same folder (another program) sees the same.
  EXPECT_EQ(UserDefaults(dir / "config" / "KUVO").data("binary"), binary);
}

TEST_F(UserDefaultsTest, ADamagedStoreHoldsNoKeysAndIsWrittenAnewOnTheNextChange) {
  for (const std::string& damaged : std::initializer_list<std::string>{
           "", "not json", "{\"a\": \"1\"", "[\"a\"]", "{\"a\": 1}", "{\"a\": {\"base64\": \"%%%\"}}",
           "{\"a\": {\"hex\": \"00\"}}", "{\"a\": \"1\"} trailing", std::string("\0\0\0", 3)}) {
    SCOPED_TRACE(damaged);
    test::writeFile(store.file(), damaged);
    EXPECT_EQ(store.data("a"), std::nullopt);
    EXPECT_TRUE(store.all().empty());
  }
  store.set("b", "2");
  EXPECT_EQ(store.all(), (std::map<std::string, std::string>{{"b", "2"}}));
}

TEST_F(UserDefaultsTest, AFolderInThePlaceOfTheStoreReadsAsEmptyAndRefusesWrites) {
  std::filesystem::create_directories(store.file());
  EXPECT_TRUE(store.all().empty());
  EXPECT_THROW(store.set("a", "1"), MediaError);
}

TEST_F(UserDefaultsTest, AStoreThatCannotBeWrittenStaysAsItWas) {
  store.set("a", "1");
  // A name that the store's folder cannot take: its parent is a file.
  test::writeFile(dir / "file", "x");
  EXPECT_THROW(UserDefaults(dir / "file" / "KUVO").set("a", "2"), MediaError);
  // /proc takes no new files, even from root.
  EXPECT_THROW(UserDefaults("/proc").set("a", "2"), MediaError);
  EXPECT_EQ(store.data("a"), "1");
}

// Two programs changing different keys at the same time must both keep
// their change: each change reads, edits and writes the file under a lock.
TEST_F(UserDefaultsTest, ConcurrentChangesOfDifferentKeysAreAllKept) {
  constexpr int writers = 4, changes = 10;
  std::vector<std::thread> threads;
  for (int w = 0; w < writers; ++w) {
    threads.emplace_back([&, w] {
      const UserDefaults own(dir / "config" / "KUVO");
      for (int i = 0; i < changes; ++i) own.set("key" + std::to_string(w), std::to_string(i));
    });
  }
  for (std::thread& t : threads) t.join();
  const auto values = store.all();
  ASSERT_EQ(values.size(), std::size_t(writers));
  for (const auto& [key, value] : values) EXPECT_EQ(value, std::to_string(changes - 1)) << key;
}

TEST(UserDefaultsLocation, FollowsLumivaleConfigThenXdgConfigHomeThenHome) {
  const ScopedEnv home("HOME", "/home/someone");
  {
    const ScopedEnv config("LUMIVALE_CONFIG", "/tmp/lumivale-test-config");
    const ScopedEnv xdg("XDG_CONFIG_HOME", "/xdg");
    EXPECT_EQ(UserDefaults::standard().file(), "/tmp/lumivale-test-config/Lumivale.json");
  }
  const ScopedEnv config("LUMIVALE_CONFIG", "");
  {
    const ScopedEnv xdg("XDG_CONFIG_HOME", "/xdg");
    EXPECT_EQ(UserDefaults::standard().file(), "/xdg/KUVO/Lumivale.json");
  }
  for (const char* ignored : {"", "relative/config"}) {
    const ScopedEnv xdg("XDG_CONFIG_HOME", ignored);
    EXPECT_EQ(UserDefaults::standard().file(), "/home/someone/.config/KUVO/Lumivale.json");
  }
}

}  // namespace
