// See the header.
#include <qn/name_printing_service.hpp>
#include <qn/transform_run.hpp>

#include <ostream>

namespace QN {

void NamePrintingService::prepass(TransformRun& run) {
    stream_ << run.tag() << std::endl;
}

} // namespace QN
