#include "Measurement.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using bench::Measurement;

Measurement made(std::vector<std::pair<std::string, double>> values) {
  Measurement measurement;
  for (const auto& value : values)
    measurement.set(value.first, value.second);
  return measurement;
}

// A child's whole output reaches the parent: the launcher's summary, then the result line. A
// broken line leaves the figures alone.
TEST(MeasurementTest, TheResultLineComesBackFromAmongAChildsOutput) {
  const Measurement sent = made({{"total_ms", 140.5}, {"baseline_kb", 10188}, {"peak_kb", 70516}});
  Measurement received;
  std::string error;
  ASSERT_TRUE(Measurement::parse("== run ==\n" + sent.format() + "\nended\n", received, error));
  EXPECT_EQ(received.values(), sent.values());
  EXPECT_DOUBLE_EQ(received.peakAboveBaselineBytes(), (70516.0 - 10188.0) * 1024);
  EXPECT_EQ(made({{"baseline_kb", 500}, {"peak_kb", 400}}).peakAboveBaselineBytes(), 0);
  for (const char* broken :
       {"no result here\n", "morvik-bench-result total_ms=\n", "morvik-bench-result =3\n",
        "morvik-bench-result total_ms=1x\n", "morvik-bench-result total_ms\n"}) {
    EXPECT_FALSE(Measurement::parse(broken, received, error)) << broken;
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(received.values(), sent.values());
  }
}

// Each figure on its own: a minimum's figures may come from different runs.
TEST(MeasurementTest, MedianAndMinimumAreTakenFigureByFigure) {
  const std::vector<Measurement> runs = {made({{"a_ms", 9}, {"b_ms", 1}}),
                                         made({{"a_ms", 1}, {"b_ms", 7}}),
                                         made({{"a_ms", 5}, {"b_ms", 3}})};
  EXPECT_EQ(Measurement::median(runs).values(), (made({{"a_ms", 5}, {"b_ms", 3}}).values()));
  EXPECT_EQ(Measurement::minimum(runs).values(), (made({{"a_ms", 1}, {"b_ms", 1}}).values()));
  EXPECT_DOUBLE_EQ(Measurement::median({made({{"a_ms", 4}}), made({{"a_ms", 1}}),
                                        made({{"a_ms", 100}}), made({{"a_ms", 2}})})
                       .get("a_ms"),
                   3);
  EXPECT_TRUE(Measurement::median({}).values().empty() &&
              Measurement::minimum({}).values().empty());
}

}  // namespace
