#include "../tools/veltra/repeat.h"

#include <gtest/gtest.h>

TEST(NearestRankTest, IsTheSmallestThatSoManyPercentDoNotExceed) {
    const std::size_t cases[][3] = {{1, 99, 0}, {2, 90, 1}, {10, 90, 8}, {3, 40, 1}};
    for (const auto& [count, percent, place] : cases)
        EXPECT_EQ(tool::nearestRank(count, percent), place) << count << ", " << percent << " %";
}
