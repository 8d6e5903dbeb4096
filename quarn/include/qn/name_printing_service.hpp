// Prints the tag of every run of a transform, one line each, before the transform acts; so the last
// line names the transform in which a compilation died.
//
// Owner: whoever makes it; it takes no part in requests and filters, and acts while it is
// registered.
#pragma once

#include <qn/service.hpp>

#include <iosfwd>

namespace QN {

class NamePrintingService : public Service {
public:
    /// Keeps a reference to `stream`, which must outlive the service. A stream that has failed
    /// swallows the lines.
    explicit NamePrintingService(std::ostream& stream) noexcept : stream_(stream) {}

    /// Prints the tag and flushes.
    void prepass(TransformRun& run) override;

private:
    std::ostream& stream_;
};

} // namespace QN
