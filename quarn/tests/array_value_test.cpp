// The elements of arrays: what is taken again after it was freed is as new.
#include "tests/mapping_support.hpp"

#include <qn/array_value.hpp>

#include <cstring>
#include <gtest/gtest.h>
#include <malloc.h>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) // g++ has no header with this
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

using namespace QN;

namespace {

constexpr std::uint64_t garbage = 0x0101010101010101;

/// Sizes around those of which freed buffers are kept, and around their steps.
constexpr std::int64_t sizes[] = {1, 3, 4, 5, 8, 63, 64, 65, 100, 1000};

ArrayValue filled(std::int64_t size) {
    ArrayValue array(ScalarKind::Double, 1, size);
    for (std::int64_t i = 1; i <= size; ++i) {
        array.set(i, garbage);
    }
    return array;
}

/// Frees more buffers of each size than are kept.
void freeMany() {
    for (const std::int64_t size : sizes) {
        std::vector<ArrayValue> arrays;
        for (int i = 0; i < 20; ++i) {
            arrays.push_back(filled(size));
        }
    }
}

/// What the process has taken from the allocator and not given back, in bytes.
std::size_t allocatedBytes() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return ::mallinfo2().uordblks;
#endif
}

/// More than one thread keeps, and much less than it would keep of what the tests below free.
constexpr std::size_t mostKept = 100'000;

} // namespace

TEST(ArrayValue, ElementsAreZeroAgainAfterOthersWereFreed) {
    freeMany();
    for (const std::int64_t size : sizes) {
        std::vector<ArrayValue> arrays;
        for (int i = 0; i < 20; ++i) {
            arrays.emplace_back(ScalarKind::Double, 1, size);
            for (std::int64_t at = 1; at <= size; ++at) {
                ASSERT_EQ(arrays.back().get(at), 0U) << "element " << at << " of " << size;
            }
            std::memset(arrays.back().writableData(), 1, static_cast<std::size_t>(size) * 8);
        }
    }
}

TEST(ArrayValue, ElementsThatAnArrayGrowsByAreZero) {
    freeMany();
    for (const std::int64_t size : sizes) {
        ArrayValue array = filled(size);
        for (const std::int64_t longer : {size + 1, size + 2, size + size / 2 + 1, 3 * size}) {
            array.resize(1, longer);
            for (std::int64_t at = 1; at <= longer; ++at) {
                ASSERT_EQ(array.get(at), at <= size ? garbage : 0) << at << " of " << longer;
            }
        }
    }
}

TEST(ArrayValue, ACopyThatIsWrittenToLeavesTheOtherOne) {
    for (const std::int64_t size : sizes) {
        const ArrayValue array = filled(size);
        for (int turn = 0; turn < 20; ++turn) {
            ArrayValue copy = array;
            copy.set(size, 7);
            ArrayValue another = copy;
            copy = ArrayValue();
            another.set(1, 8);
            EXPECT_EQ(another.get(1), 8U);
            EXPECT_EQ(another.get(size), size == 1 ? 8U : 7U);
            EXPECT_EQ(array.get(1), garbage);
            EXPECT_EQ(array.get(size), garbage);
        }
    }
}

TEST(ArrayValue, ThreadsKeepBuffersOfTheirOwn) {
    ArrayValue from;
    std::thread([&from] {
        freeMany();
        from = filled(5);
    }).join();
    EXPECT_EQ(from.get(5), garbage);
    from = ArrayValue(); // freed by another thread than the one that took it
    std::thread(freeMany).join();
}

TEST(ArrayValue, FewOfManyFreedBuffersAreKept) {
    const std::size_t before = allocatedBytes();
    for (const std::int64_t size : {1, 5, 64}) {
        std::vector<ArrayValue> arrays;
        for (int i = 0; i < 10'000; ++i) {
            arrays.push_back(filled(size));
        }
        EXPECT_GT(allocatedBytes(), before + 10'000 * 8 * static_cast<std::size_t>(size));
    }
    EXPECT_LT(allocatedBytes(), before + mostKept);
}

TEST(ArrayValue, WhatAThreadKeepsGoesWithIt) {
    const std::size_t before = allocatedBytes();
    for (int i = 0; i < 100; ++i) {
        std::thread(freeMany).join();
    }
    EXPECT_LT(allocatedBytes(), before + mostKept);
}

TEST(ArrayValue, LargePagesAreWishedForManyElements) {
    if (!testing_support::hasLargePages()) {
        GTEST_SKIP() << "this kernel has no large pages";
    }
    const ArrayValue many(ScalarKind::Double, 1, std::int64_t{4} << 20);
    const auto* const elements = static_cast<const std::byte*>(many.data());
    EXPECT_EQ(testing_support::wishesLargePages(elements + (std::size_t{16} << 20)), true);
}
