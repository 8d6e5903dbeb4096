// internal.quarn.Timer: one stopwatch, made by the user or found in the IR library's registry.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace QN {
class Timer;
}

namespace quarn_vi::debug {

/// Owns its timer when it made it; otherwise the timer is the library's and must outlive the
/// handle.
class TimerVI : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.Timer";

    /// Makes a timer, which goes with this object.
    explicit TimerVI(const std::string& name);
    /// Refers to a timer that belongs to somebody else. Null is reported as a failed assertion.
    explicit TimerVI(QN::Timer* timer);
    ~TimerVI() override;

    std::string name() const;
    void start();
    void stop();
    void reset();
    std::int64_t hits() const;
    /// In seconds.
    double elapsedTime() const;
    bool isRunning() const;

    /// Prints one line per timer: name, elapsed time, hits, time per hit.
    static void disp(const std::vector<TimerVI*>& timers);

private:
    bool fOwnsTimer;
    QN::Timer* fTimer;
};

/// Prints one line of the table that disp prints: `name` padded to `width`, `elapsed` in seconds
/// (in milliseconds below 0.1), `hits`, and the time per hit in the same unit.
void printTimerLine(const std::string& name, std::size_t width, double elapsed, std::int64_t hits);

class CosTimer : public objsys::factory::HandleClassInfo<TimerVI, 1> {
public:
    CosTimer();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
