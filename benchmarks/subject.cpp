// What all subjects share.
#include "subject.hpp"

#include <stdexcept>

namespace bench {

const char* scriptFunction(Operation operation) {
    for (const OperationName& entry : operations) {
        if (entry.operation == operation) {
            return entry.function;
        }
    }
    throw std::logic_error("an operation is missing from the table of operations");
}

void require(bool holds, const Subject& subject, const char* what) {
    if (!holds) {
        throw std::runtime_error(subject.name() + ": " + what);
    }
}

} // namespace bench
