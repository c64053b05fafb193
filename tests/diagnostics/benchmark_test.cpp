#include "diagnostics/benchmark.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "engine/render/segmentation_model.h"

using namespace lumivale;
using namespace lumivale::diagnostics;

TEST(BenchmarkTest, MedianOfOddAndEvenCounts) {
  EXPECT_EQ(median({}), 0);
  EXPECT_EQ(median({7}), 7);
  EXPECT_EQ(median({9, 1, 5}), 5);
  EXPECT_EQ(median({4, 1, 100, 2}), 3);
}

// Every line on small inputs, once each: the lines run, measure something
// and report it in both forms. The real sizes are the program's own run.
TEST(BenchmarkTest, EveryLineRunsAndIsReportedInBothForms) {
  std::ostringstream progress;
  const BenchmarkReport report = measure(
      {.fullWidth = 480, .fullHeight = 320, .previewSide = 150, .catalogRows = 300, .runs = 2, .slowRuns = 1},
      progress);
  const std::vector<std::string> expected = {"tone cube build",
                                             "preview render, exposure only",
                                             "preview render, tone",
                                             "preview render, all stages",
                                             "decode to preview",
                                             "full-size export to JPEG",
                                             "sky mask",
                                             "subject mask",
                                             "catalog query"};
  ASSERT_EQ(report.lines.size(), expected.size()) << progress.str();
  const bool model = SegmentationModel::find().has_value();
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const BenchmarkLine& line = report.lines[i];
    SCOPED_TRACE(line.name);
    EXPECT_EQ(line.name, expected[i]);
    if (line.name == "subject mask" && !model) {
      EXPECT_TRUE(line.skipped);
      continue;
    }
    EXPECT_FALSE(line.skipped) << *line.skipped;
    EXPECT_EQ(line.milliseconds.size(),
              line.name.find("export") != std::string::npos || line.name == "subject mask" ? 1u : 2u);
    EXPECT_GT(line.median(), 0);
  }
  EXPECT_EQ(report.lines[1].input, "150 × 100");
  EXPECT_EQ(report.lines[8].input, "300 rows");

  std::ostringstream table, json;
  printTable(report, table);
  EXPECT_EQ(table.str().rfind("KUVO Lumivale benchmark: " + std::to_string(report.cores) + " cores, ", 0), 0u)
      << table.str();
  EXPECT_NE(table.str().find("preview render, all stages"), std::string::npos);
  printJson(report, json);
  const auto parsed = nlohmann::json::parse(json.str());
  EXPECT_EQ(parsed["cores"], report.cores);
  EXPECT_EQ(parsed["buildType"], report.buildType);
  ASSERT_EQ(parsed["lines"].size(), expected.size());
  EXPECT_EQ(parsed["lines"][0]["name"], "tone cube build");
  EXPECT_EQ(parsed["lines"][0]["runsMs"].size(), 2u);
  EXPECT_DOUBLE_EQ(parsed["lines"][0]["medianMs"].get<double>(), report.lines[0].median());
}
