// The machine's stack: frames of running script code and their registers.
//
// Registers lie in segments that never move, so that built-ins may look at arguments in place while
// they call back into scripts. Everything above the top frame is Unset: entering a function costs
// nothing for its registers, leaving clears them.
#pragma once

#include "lang/bytecode.hpp"
#include "value/value.hpp"

#include <cstddef>
#include <memory>
#include <unordered_map>
#include <vector>

namespace varnix {

/// Variables by name: the global workspace, and those that eval made in a function that does not
/// mention them.
using Variables = std::unordered_map<objsys::COSNameID, Value>;

struct Frame {
    enum Flags : std::uint8_t {
        /// Entered from C++: leaving it ends that run of the machine.
        Entry = 1,
        /// Its named registers stand for variables of the workspace around it (eval, capture, the
        /// prompt), from which they were moved and to which they go back.
        Shares = 2,
        /// Has extra variables or a function to keep alive.
        Holds = 4,
        /// Runs because its compiled code has met an error, which is to be raised here.
        MustFail = 8,
    };

    const Code* code = nullptr;
    const Instruction* ip = nullptr; ///< the instruction being executed
    Value* base = nullptr;
    std::uint16_t result = 0; ///< where the caller wants its results
    std::uint16_t requested = 0;
    std::uint8_t flags = 0;
    std::uint32_t segment = 0;
    std::uint32_t workspace = 0; ///< with Shares: number of that frame, 0: the global workspace
    Variables* extras = nullptr; ///< owned; null: none
    Value function;              ///< an anonymous function, kept alive while it runs
};

/// Memory for registers.
class RegisterStack {
public:
    RegisterStack() { addSegment(minSegment); }

    /// The place for `count` registers above `end`, which lies in segment `segment`; `segment`
    /// becomes that of the place.
    Value* above(Value* end, std::size_t count, std::uint32_t& segment) {
        if (count <= static_cast<std::size_t>(segments_[segment].end - end)) [[likely]]
            return end;
        return next(count, segment);
    }
    [[nodiscard]] Value* start() const { return segments_.front().start.get(); }

private:
    static constexpr std::size_t minSegment = std::size_t{1} << 16;

    struct Segment {
        std::unique_ptr<Value[]> start;
        Value* end = nullptr;
    };

    Value* next(std::size_t count, std::uint32_t& segment) {
        ++segment;
        // Segments above the one in use are empty; one that is too small is replaced.
        if (segment == segments_.size())
            addSegment(count);
        else if (static_cast<std::size_t>(segments_[segment].end - segments_[segment].start.get()) <
                 count) {
            segments_.resize(segment);
            addSegment(count);
        }
        return segments_[segment].start.get();
    }
    void addSegment(std::size_t atLeast) {
        const std::size_t size = atLeast > minSegment ? atLeast : minSegment;
        Segment segment{std::make_unique<Value[]>(size), nullptr};
        segment.end = segment.start.get() + size;
        segments_.push_back(std::move(segment));
    }

    std::vector<Segment> segments_;
};

} // namespace varnix
