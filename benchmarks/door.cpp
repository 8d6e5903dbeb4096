// The groups `door` and `script`: every operation of subject.hpp through every subject.
#include "groups.hpp"
#include "subject.hpp"

#include <memory>
#include <utility>
#include <vector>

namespace bench {
namespace {

using Subjects = std::vector<std::shared_ptr<Subject>>;
using LoopOf = Loop (Subject::*)(Operation);

Group build(const Subjects& subjects, LoopOf loopOf, bool (*isPart)(const OperationName&)) {
    Group group;
    for (const auto& subject : subjects) {
        if (subject->name() != "varnix")
            subject->verify();
        group.subjects.push_back(subject->name());
    }
    for (const OperationName& entry : operations) {
        if (!isPart(entry)) {
            continue;
        }
        Row row;
        row.operation = entry.row;
        row.instructionRepetitions = liveObjects(entry.operation) >= 10'000 ? 4
                                     : liveObjects(entry.operation) != 0    ? 300
                                                                            : 1000;
        for (const auto& subject : subjects) {
            row.makers.push_back([subject, loopOf, operation = entry.operation] {
                return (subject.get()->*loopOf)(operation);
            });
        }
        group.rows.push_back(std::move(row));
    }
    return group;
}

} // namespace

Group buildDoor() {
    return build({makeVarnix(), makeCPython(), makeCPythonResolved(), makePybind11(), makeLua()},
                 &Subject::fromNative, [](const OperationName& entry) {
                     return entry.operation != Operation::emptyLoop;
                 });
}

Group buildScript() {
    return build({makeVarnix(), makeCPython(), makePybind11(), makeLua()}, &Subject::fromScript,
                 [](const OperationName& entry) { return entry.function != nullptr; });
}

} // namespace bench
