// Writes the IR before and after transforms as binary files that load back to equal IR (see
// serializer.hpp), one per run and side: NNNN-before-TAG.fbt and NNNN-after-TAG.fbt in
// outputFolderName(), numbered without gaps. quarn-opt reads them like QNEL.
//
// Owner: whoever makes it.
#pragma once

#include <qn/debug_service.hpp>

#include <memory>

namespace QN {

class SerializerFbtService : public DebugService {
public:
    /// With the sides that are requested from the start.
    SerializerFbtService(bool before, bool after);
    ~SerializerFbtService() override;

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;

private:
    struct State;
    void write(const TransformRun& run, bool after);

    std::unique_ptr<State> state_;
};

} // namespace QN
