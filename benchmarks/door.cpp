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

Group build(const Subjects& subjects, LoopOf loopOf) {
    Group group;
    for (const auto& subject : subjects) {
        subject->verify();
        group.subjects.push_back(subject->name());
    }
    for (const OperationName& entry : operations) {
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
    Group group = build({makeCPython(), makeCPythonResolved(), makePybind11(), makeLua()},
                        &Subject::fromNative);
    group.rows.erase(group.rows.begin()); // the empty turn is of a script only
    return group;
}

Group buildScript() {
    return build({makeCPython(), makePybind11(), makeLua()}, &Subject::fromScript);
}

} // namespace bench
