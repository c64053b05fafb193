// Randomised damage to valid stored settings: whatever the bytes, decoding
// gives a record, and that record survives its own stored form exactly.

#include <gtest/gtest.h>

#include <random>

#include "engine/edit/edit_settings.h"
#include "tests/edit/sample_settings.h"

using namespace lumivale;

namespace {

std::vector<std::string> seedBlobs() {
  std::vector<std::string> seeds;
  seeds.push_back(*EditSettings{}.encoded());
  seeds.push_back(*test::richSettings().encoded());
  EditSettings one;
  one.masks.push_back(test::sampleMask(MaskKind::people, 2));
  one.curveRed.points = {{0.2, 0.3}};
  seeds.push_back(*one.encoded());
  seeds.push_back(R"({"exposure":1.5,"hsl":[{"hue":1,"saturation":2,"luminance":3}],"version":7})");
  return seeds;
}

// Pieces that steer mutations toward the reader's interesting paths.
const char* const fragments[] = {"{",    "}",    "[",       "]",        "\"",         ",",         ":",
                                 "\\",   "\\u",  "\\ud800", "1e999",    "-0",         "null",      "true",
                                 "25.5", "\xff", "\xc3",    "\xf0\x9f", "\"masks\":", "\"hsl\":[", "{\"x\":"};

std::string mutate(std::string blob, std::mt19937_64& random) {
  const int steps = 1 + static_cast<int>(random() % 4);
  for (int step = 0; step < steps; ++step) {
    const std::size_t at = blob.empty() ? 0 : random() % blob.size();
    const std::size_t kind = random() % 7;
    if (kind == 0 && !blob.empty()) blob[at] = static_cast<char>(random());  // replace a byte
    if (kind == 1 && !blob.empty())
      blob[at] = static_cast<char>(blob[at] ^ (1 << (random() % 8)));  // flip a bit
    if (kind == 2) blob.resize(at);                                    // truncate
    if (kind == 3)
      blob.insert(at, std::string(1 + random() % 4, static_cast<char>(random())));  // insert bytes
    if (kind == 4) blob.insert(at, fragments[random() % std::size(fragments)]);     // insert a token
    if (kind == 5) blob.erase(at, random() % 16);                                   // delete a slice
    if (kind == 6) {  // duplicate a slice elsewhere
      const std::string slice = blob.substr(at, random() % 64);
      blob.insert(blob.empty() ? 0 : random() % blob.size(), slice);
    }
  }
  return blob;
}

TEST(DecodeMutationTest, DamagedBlobsDecodeToRecordsThatRoundTrip) {
  const auto seeds = seedBlobs();
  std::mt19937_64 random(20240611);
  int changedSomething = 0;
  for (int i = 0; i < 40000; ++i) {
    const std::string damaged = mutate(seeds[i % seeds.size()], random);
    const EditSettings decoded = EditSettings::decode(damaged);
    ASSERT_EQ(decoded.hsl.size(), 8u) << damaged;
    const auto blob = decoded.encoded();
    ASSERT_TRUE(blob.has_value()) << damaged;
    const EditSettings again = EditSettings::decode(*blob);
    ASSERT_EQ(again, decoded) << damaged;
    ASSERT_EQ(again.encoded(), blob) << damaged;
    changedSomething += !decoded.isDefault();
  }
  // Most damage is local: many damaged blobs still carry some settings.
  EXPECT_GT(changedSomething, 4000);
}

}  // namespace
