// Large arrays and the memory that there is.
#include "tests/value_helpers.hpp"
#include "value/memory_limit.hpp"

#include <limits>

namespace varnix::testing {
namespace {

TEST(MemoryLimit, ReadsNumbersOfTheSystem) {
    const std::string_view text = "MemFree:   5 kB\nMemAvailable:  70 kB\nlast";
    EXPECT_EQ(detail::numberAfter(text, "MemAvailable:"), 70u);
    EXPECT_EQ(detail::numberAfter(text, "MemFree:"), 5u);
    EXPECT_EQ(detail::numberAfter(text, "SwapFree:"), std::nullopt);
    EXPECT_EQ(detail::numberAfter("max\n", ""), std::nullopt);
    EXPECT_EQ(detail::numberAfter("123\n", ""), 123u);
    EXPECT_EQ(detail::numberAfter("", ""), std::nullopt);
    EXPECT_EQ(detail::numberAfter("MemAvailable:", "MemAvailable:"), std::nullopt);
}

TEST(MemoryLimit, RefusesWhatIsNotThere) {
    EXPECT_EQ(errorOf([] {
                  requireMemoryFor(checkedFromBytes);
                  requireMemoryFor(0);
                  return 0;
              }),
              "");
    const std::string error = errorOf([] {
        requireMemoryFor(std::numeric_limits<std::size_t>::max() - 1);
        return 0;
    });
    EXPECT_TRUE(error.starts_with("varnix:outOfMemory: there is no memory for")) << error;
}

} // namespace
} // namespace varnix::testing
