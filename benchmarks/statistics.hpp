// The native object that every subject exposes: a controller with a few settings, in the manner of
// the ones a debugging package is made of.
//
// Why it exists: doors can only be compared when what is behind them is the same. Its members are
// defined out of line, so every subject pays the same real call, and the default constructor
// allocates nothing, so "construct, destroy" measures the door and not the object.
// Readers of strings and lists take references: a subject that must copy does so itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// What a binding hangs on a native object so that it finds the object's one handle again, and so
/// that a native object that dies first can tell its handle.
struct HandleSlot {
    void* handle = nullptr;
    void (*invalidate)(void* handle) = nullptr; ///< called by the dying native object
};

class Statistics {
public:
    Statistics() noexcept;
    Statistics(const Statistics&) = delete;
    Statistics& operator=(const Statistics&) = delete;
    ~Statistics();

    bool enabled() const;
    void setEnabled(bool value);
    std::int32_t threshold() const;
    void setThreshold(std::int32_t value);
    std::uint64_t count() const;
    void setCount(std::uint64_t value);
    const std::string& outputFormat() const;
    void setOutputFormat(std::string_view value);
    const std::vector<std::string>& fields() const;
    Statistics* child() const;                          ///< owned; null until populate()
    const std::vector<Statistics*>& violations() const; ///< owned; empty until populate()
    void reset();
    std::string hello() const;

    /// Gives the object its ten fields, a child, and as many violations as asked for.
    void populate(std::size_t violationCount);

    /// How often reset() was called.
    std::uint64_t resets() const { return resets_; }

    HandleSlot slot;

private:
    bool enabled_ = false;
    std::int32_t threshold_ = 0;
    std::uint64_t count_ = 0;
    std::uint64_t resets_ = 0;
    std::string outputFormat_;
    std::vector<std::string> fields_;
    std::vector<Statistics*> violations_; // each owned, deleted by the destructor
    Statistics* child_ = nullptr;         // owned, deleted by the destructor
};

/// The values that the operations read and write, in every subject.
inline constexpr std::int32_t thresholdValue = 4711;
inline constexpr std::uint64_t countValue = 123'456'789;
inline constexpr std::string_view formatValue = "QNEL text"; // short enough to need no heap
inline constexpr std::string_view helloValue = "(-: hello :-)";

/// An object with those values, populated; what an operation works on.
std::shared_ptr<Statistics> makeStatistics(std::size_t violationCount);

} // namespace bench
