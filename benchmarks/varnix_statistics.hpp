// The measured object as the host sees it: a native controller and the script classes over it.
//
// Why it exists: it is declared with the module's framework exactly as the module's own controllers
// are, so what is measured is the door that they use.
#pragma once

#include "statistics.hpp"

#include <objsys/factory/wrappable.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bench {

/// The script class of objects that somebody in C++ owns.
inline constexpr const char* statisticsClass = "internal.bench.Statistics";
/// The script class of objects that scripts make and that die with their handles.
inline constexpr const char* ownedStatisticsClass = "internal.bench.OwnedStatistics";

/// The controller. Its members are its own, as the framework asks for, and give strings and lists
/// as values; behind each stands the same call out of line that the other subjects make.
class ScriptStatistics : public objsys::factory::full::Wrappable, public Statistics {
public:
    static constexpr const char* scriptClassName = statisticsClass;

    bool isEnabled() const { return enabled(); }
    void enable(bool value) { setEnabled(value); }
    std::int32_t currentThreshold() const { return threshold(); }
    void changeThreshold(std::int32_t value) { setThreshold(value); }
    std::uint64_t currentCount() const { return count(); }
    void changeCount(std::uint64_t value) { setCount(value); }
    const std::string& currentOutputFormat() const { return outputFormat(); }
    void changeOutputFormat(const std::string& value) { setOutputFormat(value); }
    const std::vector<std::string>& currentFields() const { return fields(); }
    ScriptStatistics* childObject() const;
    const std::vector<ScriptStatistics*>& violationObjects() const;
    void resetCounts() { reset(); }
    std::string greeting() const { return hello(); }

    /// Gives the object its fields, a child, and as many violations as asked for.
    void populateObjects(std::size_t violationCount);

private:
    struct Family;
    struct DeleteFamily {
        void operator()(Family* family) const;
    };
    std::unique_ptr<Family, DeleteFamily> family_; ///< child and violations; null until populated
};

/// The same controller under its other script class.
class OwnedStatistics : public ScriptStatistics {
public:
    static constexpr const char* scriptClassName = ownedStatisticsClass;
};

/// An object with the values that all subjects' objects have, populated.
std::shared_ptr<ScriptStatistics> makeScriptStatistics(std::size_t violationCount);

/// Adds the package internal.bench with both classes to the host, once for the process.
void publishStatistics();

} // namespace bench
