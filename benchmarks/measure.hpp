// The measuring core: what a repeatable operation is, and how several of them are timed fairly.
//
// Why it exists: every number of these benchmarks is a comparison, made on machines that are never
// quiet. All subjects of a row are therefore timed turn by turn in one run, so that a slow second
// of the machine falls on all of them; a ratio of two medians then means something. To extend: a
// new subject or operation only has to give a Loop; nothing here changes.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <utility>
#include <vector>

namespace bench {

/// Performs one operation `count` times. The loop is inside, so that the indirect call is paid once
/// for a whole batch. Whatever the operation needs is owned by the captured state and freed with
/// it.
using Loop = std::function<void(std::size_t count)>;

/// Makes a Loop of a body that performs the operation once. The two or three instructions of the
/// counting loop stay in the result, for every subject alike. Each batch works on a copy of the
/// body of its own, so that what the body holds can stay in registers.
template <class Body>
Loop repeat(Body body) {
    return [body = std::move(body)](std::size_t count) {
        Body local = body;
        for (; count != 0; --count) {
            local();
        }
    };
}

/// Keeps the compiler from leaving out the computation of `value`; costs no instruction.
template <class T>
inline void keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

/// What time is measured.
enum class Clock {
    processor, ///< what this process used: other programs on the machine do not count
    wall,      ///< what passed: for work that other processes do
    reported,  ///< what other processes say that they took: reportTime()
};

/// Nanoseconds since some moment.
double readClock(Clock clock);

/// Adds to the time of Clock::reported. A loop of a group with that clock calls it for each
/// operation.
void reportTime(double nanoseconds);

/// What `work` takes of the processor, in nanoseconds.
template <class Work>
double processorTimeOf(Work work) {
    const double begin = readClock(Clock::processor);
    work();
    return readClock(Clock::processor) - begin;
}

/// How much to measure.
struct Effort {
    Clock clock = Clock::processor;
    std::size_t samples = 15;        ///< batches timed of every loop; at least 7
    double batchNanoseconds = 2.0e6; ///< a batch is made long enough to take about this
    /// Where all samples of all loops would take longer than this, there are fewer of them, but
    /// three: a batch that is seconds long has most disturbances averaged out by itself.
    double rowNanoseconds = 1e18;
};

/// What one operation took, in nanoseconds per operation over all samples.
struct Timing {
    double median = 0;
    double minimum = 0;
    std::size_t batch = 0; ///< operations in one sample
    std::size_t samples = 0;
};

/// Times all `loops` interleaved: a batch of each in turn, the starting one rotating, until every
/// one has its samples. An empty loop gives a Timing of zero samples. Each loop is first run until
/// its batch size is found, which warms it up too.
std::vector<Timing> measureInterleaved(std::span<Loop> loops, const Effort& effort);

/// The middle value of `values` (the mean of the two middle ones when their number is even).
/// `values` must not be empty; it is taken by value because it is sorted.
double median(std::vector<double> values);

} // namespace bench
