// The transform log: one line per run of a transform, with its number, tag, time, nodes before and
// after, and whether it changed anything. The lines go to a text file "transform-log" in the debug
// log's folder.
//
// Owner: whoever makes it. Both of its sides are requested from the start, global scope included;
// whether it writes is its own switch.
#pragma once

#include <qn/debug_service.hpp>

#include <memory>
#include <string>

namespace QN {

class TransformLogService : public DebugService {
public:
    /// Off.
    TransformLogService();
    ~TransformLogService() override;

    [[nodiscard]] bool getEnable() const noexcept { return enabled_; }
    void setEnable(bool enable);

    /// The file that the last line went to; empty before the first.
    [[nodiscard]] std::string logFile() const;

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;

private:
    struct State;
    bool enabled_ = false;
    std::unique_ptr<State> state_;
};

} // namespace QN
