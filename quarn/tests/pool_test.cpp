// Pools: accounting, the peak, records, canaries and poison.
#include "tests/mapping_support.hpp"

#include <qn/pool.hpp>
#include <qn/testing_hooks.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <span>
#include <vector>

using namespace QN;

namespace {

/// Turns a hook on for the life of the object.
class HookOn {
public:
    explicit HookOn(TsTestingHook* hook) : hook_(hook), old_(hook->setHookValFromC(1)) {}
    HookOn(const HookOn&) = delete;
    HookOn& operator=(const HookOn&) = delete;
    ~HookOn() { hook_->setHookValFromC(old_); }

private:
    TsTestingHook* hook_;
    int old_;
};

// Of the first chunks each holds what was allocated in it, in order and up to the last byte.
void expectFirstChunksToHold(const Pool& pool, const std::vector<std::span<const char>>& pieces) {
    ASSERT_GT(pool.numFirst(), 0U);
    std::size_t chunk = 0;
    for (const std::span<const char>& piece : pieces) {
        const auto holds = [&] {
            const std::span<const std::byte> bytes = pool.first(chunk);
            const auto* const start = reinterpret_cast<const char*>(bytes.data());
            return !std::less<>()(piece.data(), start) &&
                   !std::less<>()(start + bytes.size(), piece.data() + piece.size());
        };
        if (!holds()) {
            ++chunk; // what comes behind the first chunks is in none of them
            if (chunk == pool.numFirst()) {
                EXPECT_EQ(pool.numFirst(), Pool::mostFirst);
                return;
            }
            ASSERT_TRUE(holds());
        }
    }
    EXPECT_EQ(chunk + 1, pool.numFirst());
    const std::span<const std::byte> last = pool.first(chunk);
    EXPECT_EQ(reinterpret_cast<const char*>(last.data() + last.size()),
              pieces.back().data() + pieces.back().size());
}

} // namespace

TEST(Pool, HandsOutDistinctAlignedMemory) {
    Pool pool;
    std::set<char*> seen;
    for (std::size_t i = 0; i < 5000; ++i) {
        const std::size_t bytes = 1 + i % 70;
        auto* const memory = static_cast<char*>(pool.allocate(bytes));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 8, 0U);
        std::memset(memory, static_cast<int>(i), bytes);
        EXPECT_TRUE(seen.insert(memory).second);
        EXPECT_TRUE(pool.owns(memory));
    }
    Pool other;
    EXPECT_FALSE(pool.owns(other.allocate(8)));
    int local = 0;
    EXPECT_FALSE(pool.owns(&local));
}

TEST(Pool, CountsWhatItHandedOut) {
    Pool pool;
    EXPECT_EQ(pool.bytesAllocated(), 0U);
    EXPECT_EQ(pool.bytesReserved(), 0U);
    std::size_t sum = 0;
    for (int i = 0; i < 1000; ++i) {
        (void)pool.allocate(24);
        sum += 24;
        EXPECT_EQ(pool.bytesAllocated(), sum);
    }
    EXPECT_GE(pool.bytesReserved(), sum);
    void* const last = pool.allocate(20);
    pool.release(last, 20);
    EXPECT_EQ(pool.bytesReleased(), 24U);
}

TEST(Pool, TakesAllocationsLargerThanAChunk) {
    Pool pool;
    auto* const large = static_cast<char*>(pool.allocate(5'000'000));
    large[0] = 1;
    large[4'999'999] = 1;
    EXPECT_TRUE(pool.owns(large + 4'999'999));
}

TEST(Pool, TellsItsFirstChunks) {
    EXPECT_EQ(Pool().numFirst(), 0U);
    for (const std::size_t bytes : {8U, 104U, 1024U, 5000U, 400'000U}) {
        Pool pool;
        std::vector<std::span<const char>> pieces;
        while (pieces.size() < 300) {
            pieces.emplace_back(static_cast<const char*>(pool.allocate(bytes)), bytes);
            SCOPED_TRACE(testing::Message() << pieces.size() << " of " << bytes << " bytes");
            expectFirstChunksToHold(pool, pieces);
            if (HasFatalFailure() || HasNonfatalFailure()) {
                return;
            }
        }
    }
}

TEST(Pool, FirstChunksAreTheOnlyOnesOfASmallPool) {
    Pool pool;
    (void)pool.allocate(900);
    (void)pool.allocate(3000); // needs a larger chunk
    (void)pool.allocate(1200);
    ASSERT_EQ(pool.numFirst(), 3U);
    EXPECT_EQ(pool.first(0).size(), 1024U);
    EXPECT_EQ(pool.first(1).size(), 4096U);
    EXPECT_GE(pool.first(2).size(), 1200U); // as far as memory was handed out
    EXPECT_LT(pool.first(2).size(), 2048U);
    EXPECT_EQ(pool.bytesReserved(), 1024U + 4096U + 2048U);
}

TEST(Pool, PeakStaysWhenMemoryGoes) {
    Pool::resetPeak();
    const std::size_t before = Pool::totalReserved();
    EXPECT_EQ(Pool::peakReserved(), before);
    {
        Pool pool;
        (void)pool.allocate(100'000);
    }
    EXPECT_EQ(Pool::totalReserved(), before);
    EXPECT_GE(Pool::peakReserved(), before + 100'000);
    Pool::resetPeak();
    EXPECT_EQ(Pool::peakReserved(), before);
}

TEST(Pool, LargePagesAreWishedForBehindTheFirstMegabytes) {
    if (!testing_support::hasLargePages()) {
        GTEST_SKIP() << "this kernel has no large pages";
    }
    Pool pool;
    void* last = nullptr;
    for (int i = 0; i < 8; ++i) {
        last = pool.allocate(std::size_t{1} << 20);
    }
    EXPECT_EQ(testing_support::wishesLargePages(last), true);
}

// Some pages stay, so that the next pools need not touch new ones. A quarter is left for what the
// sanitizers note of each byte, and for whatever else the process does.
TEST(Pool, MostPagesGoBackToTheSystem) {
    const auto residentBytes = [] {
        std::ifstream file("/proc/self/statm");
        std::size_t pages = 0;
        file >> pages >> pages;
        return pages * 4096;
    };
    constexpr std::size_t bytes = std::size_t{120} << 20;
    constexpr std::size_t kept = std::size_t{32} << 20;
    constexpr std::size_t each = 1000;
    const std::size_t before = residentBytes();
    {
        Pool pool;
        for (std::size_t i = 0; i < bytes / each; ++i) {
            std::memset(pool.allocate(each), 1, each);
        }
        EXPECT_GT(residentBytes(), before + bytes / 2);
    }
    EXPECT_LT(residentBytes(), before + kept + bytes / 4);
}

// Graphs that are made where others have gone lie one behind the other as the first ones did, and
// so does each of them, whatever the order in which the others went.
TEST(Pool, ChunksThatHaveComeBackAreTakenInOrder) {
    const auto make = [] {
        std::vector<std::unique_ptr<Pool>> pools;
        for (int i = 0; i < 2000; ++i) {
            pools.push_back(std::make_unique<Pool>());
            for (int chunk = 0; chunk < 3; ++chunk) {
                (void)pools.back()->allocate(900);
            }
        }
        return pools;
    };
    auto pools = make();
    std::mt19937 random(1);
    std::shuffle(pools.begin(), pools.end(), random);
    pools.clear();
    pools = make();
    std::size_t apart = 0;
    const std::byte* last = nullptr;
    for (const auto& pool : pools) {
        std::vector<std::span<const std::byte>> extents = pool->extents();
        ASSERT_EQ(extents.size(), 3U);
        for (auto extent = extents.rbegin(); extent != extents.rend(); ++extent) {
            EXPECT_GT(extent->data(), last);
            apart += last != nullptr && extent->data() - last != 1024 ? 1 : 0;
            last = extent->data();
        }
    }
    EXPECT_LE(apart, 10U); // what earlier pools of the process have left
}

// Few that come and go keep to the memory that the processor has seen last.
TEST(Pool, ChunkThatCameBackLastIsTakenFirst) {
    auto first = std::make_unique<Pool>();
    auto second = std::make_unique<Pool>();
    void* const a = first->allocate(8);
    void* const b = second->allocate(8);
    second.reset();
    first.reset();
    Pool next;
    EXPECT_EQ(next.allocate(8), a);
    Pool nextButOne;
    EXPECT_EQ(nextButOne.allocate(8), b);
}

TEST(Pool, RecordsNameWhatIsStillAlive) {
    const HookOn on(TSFEAT_QUARNCfgPoolInternalLeakDetection);
    Pool scopePool(PoolKind::Scope);
    EXPECT_FALSE(scopePool.keepsRecords());
    Pool pool(PoolKind::Graph);
    ASSERT_TRUE(pool.keepsRecords());
    EXPECT_FALSE(pool.hasCanaries());
    void* const a = pool.allocate(16, EntityKind::Node);
    void* const b = pool.allocate(24, EntityKind::Var);
    pool.release(a, 16);
    ASSERT_EQ(pool.records().size(), 2U);
    EXPECT_EQ(pool.records()[0].address, a);
    EXPECT_TRUE(pool.records()[0].released);
    EXPECT_EQ(pool.records()[1].address, b);
    EXPECT_EQ(pool.records()[1].kind, EntityKind::Var);
    EXPECT_EQ(pool.records()[1].bytes, 24U);
    EXPECT_FALSE(pool.records()[1].released);
}

// Over many chunks, and allocations larger than one.
TEST(Pool, RecordsAreThoseOfAllAllocationsInOrder) {
    for (TsTestingHook* const hook :
         {TSFEAT_QUARNPoolInternalLeakDetection, TSFEAT_QUARNPoolSanityChecks}) {
        const HookOn on(hook);
        Pool pool;
        std::vector<Pool::Record> made;
        for (std::size_t i = 0; i < 5000; ++i) {
            const std::size_t bytes = i % 977 == 976 ? 300'000 : 8 * (1 + i * i % 30);
            const auto kind = static_cast<EntityKind>(i % entityKindCount);
            made.push_back({pool.allocate(bytes, kind), bytes, kind, false});
        }
        for (std::size_t i = 0; i < made.size(); i += 7) {
            const std::size_t place = i * 11 % made.size();
            made[place].released = true;
            pool.release(made[place].address, made[place].bytes);
        }
        const std::vector<Pool::Record> records = pool.records();
        ASSERT_EQ(records.size(), made.size());
        for (std::size_t i = 0; i < made.size(); ++i) {
            ASSERT_EQ(records[i].address, made[i].address) << i;
            ASSERT_EQ(records[i].bytes, made[i].bytes) << i;
            ASSERT_EQ(records[i].kind, made[i].kind) << i;
            ASSERT_EQ(records[i].released, made[i].released) << i;
        }
        EXPECT_TRUE(pool.checkCanaries().empty());
    }
}

// The least that an allocation can take, and nothing: there are more records than the chunks' bytes
// would let expect.
TEST(Pool, RecordsOfTheSmallestAllocations) {
    const HookOn on(TSFEAT_QUARNPoolInternalLeakDetection);
    Pool pool;
    std::vector<Pool::Record> made;
    for (std::size_t i = 0; i < 6000; ++i) {
        const std::size_t bytes = i < 2000 ? 8 : i < 4000 ? 0 : i % 3 * 8;
        const auto kind = static_cast<EntityKind>(i % entityKindCount);
        made.push_back({pool.allocate(bytes, kind), bytes, kind, false});
    }
    const std::vector<Pool::Record> records = pool.records();
    ASSERT_EQ(records.size(), made.size());
    for (std::size_t i = 0; i < made.size(); ++i) {
        ASSERT_EQ(records[i].address, made[i].address) << i;
        ASSERT_EQ(records[i].bytes, made[i].bytes) << i;
        ASSERT_EQ(records[i].kind, made[i].kind) << i;
    }
}

TEST(Pool, CanariesCatchWritesOutside) {
    const HookOn on(TSFEAT_QUARNPoolSanityChecks);
    Pool pool;
    (void)pool.allocate(16, EntityKind::Const);
    auto* const b = static_cast<char*>(pool.allocate(16, EntityKind::Node));
    (void)pool.allocate(16, EntityKind::Var);
    EXPECT_TRUE(pool.checkCanaries().empty());
    b[16] = 0;
    auto damages = pool.checkCanaries();
    ASSERT_EQ(damages.size(), 1U);
    EXPECT_EQ(damages[0].what, Pool::Damage::What::Overrun);
    EXPECT_EQ(damages[0].record.address, b);
    EXPECT_EQ(damages[0].record.kind, EntityKind::Node);
    b[16] = static_cast<char>(0xC5);
    b[-1] = 0;
    damages = pool.checkCanaries();
    ASSERT_EQ(damages.size(), 1U);
    EXPECT_EQ(damages[0].what, Pool::Damage::What::Underrun);
}

TEST(Pool, PoisonCatchesWritesAfterRelease) {
    const HookOn on(TSFEAT_QUARNPoolSanityChecks);
    Pool pool;
    auto* const a = static_cast<char*>(pool.allocate(32, EntityKind::Node));
    pool.release(a, 32);
    EXPECT_TRUE(pool.checkCanaries().empty());
    EXPECT_EQ(static_cast<unsigned char>(a[5]), 0xDD);
    a[5] = 1;
    const auto damages = pool.checkCanaries();
    ASSERT_EQ(damages.size(), 1U);
    EXPECT_EQ(damages[0].what, Pool::Damage::What::UseAfterRelease);
}

TEST(Pool, EveryPoolAsksItsHooks) {
    const auto before = TSFEAT_QUARNPoolSanityChecks->useCount();
    const Pool pool;
    EXPECT_EQ(TSFEAT_QUARNPoolSanityChecks->useCount(), before + 1);
}
