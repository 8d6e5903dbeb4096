// Tells which variables of the user's program are alive, that is, still read, written or pointed
// to, before and after each run, and which transform optimized one away. The lines go to a text
// file "user-variables" in the debug log's folder.
//
// Owner: whoever makes it.
#pragma once

#include <qn/debug_service.hpp>

#include <memory>
#include <string>

namespace QN {

class UserVarLoggingService : public DebugService {
public:
    /// With the sides that are requested from the start.
    UserVarLoggingService(bool before, bool after);
    ~UserVarLoggingService() override;

    /// The file that the last line went to; empty before the first.
    [[nodiscard]] std::string logFile() const;

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace QN
