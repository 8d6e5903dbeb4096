// Adaptive batches and interleaved sampling; see measure.hpp for why.
#include "measure.hpp"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <ctime>

namespace bench {
namespace {

double reportedNanoseconds = 0;

} // namespace

double readClock(Clock clock) {
    if (clock == Clock::reported) {
        return reportedNanoseconds;
    }
    timespec time{};
    clock_gettime(clock == Clock::wall ? CLOCK_MONOTONIC : CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

namespace {

double nanosecondsOf(Loop& loop, std::size_t count, Clock clock) {
    const double begin = readClock(clock);
    loop(count);
    return readClock(clock) - begin;
}

struct Batch {
    std::size_t count = 0;
    double nanoseconds = 0;
};

/// Finds how many operations fill a batch: grows the count until a run takes a tenth of the wanted
/// time, where the clock's own cost no longer matters, and scales from there.
Batch findBatch(Loop& loop, const Effort& effort) {
    const double wantedNanoseconds = effort.batchNanoseconds;
    std::size_t count = 1;
    while (true) {
        const double taken = nanosecondsOf(loop, count, effort.clock);
        if (taken >= wantedNanoseconds) {
            return {count, taken};
        }
        if (taken >= wantedNanoseconds / 10) {
            const double scaled = static_cast<double>(count) * wantedNanoseconds / taken;
            return {std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(scaled))),
                    wantedNanoseconds};
        }
        count *= 4;
    }
}

std::size_t samplesFor(double roundNanoseconds, const Effort& effort) {
    const double affordable = effort.rowNanoseconds / roundNanoseconds;
    return affordable >= static_cast<double>(effort.samples)
               ? effort.samples
               : std::max<std::size_t>(3, static_cast<std::size_t>(affordable));
}

} // namespace

void reportTime(double nanoseconds) {
    reportedNanoseconds += nanoseconds;
}

double median(std::vector<double> values) {
    assert(!values.empty());
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::vector<Timing> measureInterleaved(std::span<Loop> loops, const Effort& effort) {
    std::vector<std::size_t> batches(loops.size(), 0);
    double roundNanoseconds = 1;
    for (std::size_t i = 0; i < loops.size(); ++i) {
        if (loops[i]) {
            const Batch batch = findBatch(loops[i], effort);
            batches[i] = batch.count;
            roundNanoseconds += batch.nanoseconds;
        }
    }
    const std::size_t rounds = samplesFor(roundNanoseconds, effort);

    std::vector<std::vector<double>> samples(loops.size());
    for (std::size_t round = 0; round < rounds; ++round) {
        for (std::size_t turn = 0; turn < loops.size(); ++turn) {
            const std::size_t i = (round + turn) % loops.size();
            if (loops[i]) {
                samples[i].push_back(nanosecondsOf(loops[i], batches[i], effort.clock) /
                                     static_cast<double>(batches[i]));
            }
        }
    }

    std::vector<Timing> timings(loops.size());
    for (std::size_t i = 0; i < loops.size(); ++i) {
        if (loops[i]) {
            timings[i] = {.median = median(samples[i]),
                          .minimum = *std::min_element(samples[i].begin(), samples[i].end()),
                          .batch = batches[i],
                          .samples = samples[i].size()};
        }
    }
    return timings;
}

} // namespace bench
