// The driver: surveys each graph, runs every check over it, and puts the failures in order.
#include "ir/fetch_ahead.hpp"
#include "verify/checks.hpp"
#include "verify/quick_look.hpp"

#include <algorithm>

namespace QN {

using namespace verification;

namespace {

constexpr CheckInfo infos[] = {
#define QN_INFO(subject, function, id, meaning) {id, meaning},
    QN_VERIFY_CHECKS(QN_INFO)
#undef QN_INFO
};

// The checks of each subject. The rows of the other subjects come to nothing.
template <typename Function>
struct Row {
    Check check;
    Function* run;
};
#define QN_NO_ROW(function)
#define QN_ROW(function) {Check::function, checks::function},

constexpr Row<void(const Survey&, Sink&)> graphChecks[] = {
#define QN_ROW_Graph QN_ROW
#define QN_ROW_Nodes QN_NO_ROW
#define QN_ROW_Function QN_NO_ROW
#define QN_ROW_Scope QN_NO_ROW
#define QN_SELECT(subject, function, id, meaning) QN_ROW_##subject(function)
    QN_VERIFY_CHECKS(QN_SELECT)
#undef QN_ROW_Graph
#undef QN_ROW_Nodes
};

constexpr Row<void(const Batch&, Sink&)> nodesChecks[] = {
#define QN_ROW_Graph QN_NO_ROW
#define QN_ROW_Nodes QN_ROW
    QN_VERIFY_CHECKS(QN_SELECT)
#undef QN_ROW_Nodes
#undef QN_ROW_Function
};

constexpr Row<void(const Function&, Sink&)> functionChecks[] = {
#define QN_ROW_Nodes QN_NO_ROW
#define QN_ROW_Function QN_ROW
    QN_VERIFY_CHECKS(QN_SELECT)
#undef QN_ROW_Function
#undef QN_ROW_Scope
};

constexpr Row<void(const Scope&, Sink&)> scopeChecks[] = {
#define QN_ROW_Function QN_NO_ROW
#define QN_ROW_Scope QN_ROW
    QN_VERIFY_CHECKS(QN_SELECT)
#undef QN_ROW_Graph
#undef QN_ROW_Nodes
#undef QN_ROW_Function
#undef QN_ROW_Scope
#undef QN_SELECT
};
#undef QN_ROW
#undef QN_NO_ROW

template <typename Checks, typename Subject>
void runAll(const Checks& checks, const Subject& subject, Sink& sink) {
    for (const auto& row : checks) {
        sink.begin(row.check);
        row.run(subject, sink);
    }
}

// What a verification works with.
struct Tools {
    QuickLook quickLook;
    Survey survey;
    Batch batch{survey};
    std::vector<std::uint32_t> batches; // where each one ended
};

// Lives for the process: fetching fresh memory for its tables would be a tenth of the time of every
// verification of a large function. It refers to nothing once a verification is over; what a very
// large function has made it grow to is given back.
Tools& tools() {
    static Tools& kept = *new Tools;
    constexpr std::size_t mostNodesKept = std::size_t{1} << 19;
    constexpr std::size_t mostTableBytesKept = std::size_t{16} << 20;
    if (kept.survey.nodes().capacity() > mostNodesKept ||
        kept.survey.memory().tableBytes() > mostTableBytesKept) {
        kept.survey = Survey();
    }
    if (kept.quickLook.tableBytes() > mostTableBytesKept) {
        kept.quickLook = QuickLook();
    }
    return kept;
}

} // namespace

// The only place that fills a Verification.
class Verifier {
public:
    explicit Verifier(const VerifyOptions& options) noexcept
        : options_(options), sink_(result_, options_) {}

    /// `scope` is where the function really lies, null if names cannot be looked up from there.
    /// `upcoming` is the graph of the function after it.
    void function(const Function& function, const Scope* scope, detail::Upcoming upcoming = {}) {
        const std::size_t before = sink_.described();
        if (!function.hasCfg()) {
            runAll(functionChecks, function, sink_);
        } else if (options_.thorough ||
                   !tools_.quickLook.findsNothing(function, scope, options_, upcoming)) {
            ++result_.numDoubted_;
            runAll(functionChecks, function, sink_);
            graph(function, scope);
        }
        upcoming.fetchRest();
        sink_.sortFrom(before);
    }

    void scope(const Scope& scope, bool parentsAreSound) {
        if (options_.thorough || !QuickLook::findsNothing(scope)) {
            runAll(scopeChecks, scope, sink_);
        }
        const std::vector<std::unique_ptr<Function>>& functions = scope.functions();
        for (std::size_t i = 0; i < functions.size(); ++i) {
            const detail::Upcoming upcoming = detail::fetchAhead(functions, i);
            if (functions[i] != nullptr) {
                function(*functions[i], parentsAreSound ? &scope : nullptr, upcoming);
            }
        }
        for (const auto& child : scope.children()) {
            if (child != nullptr) {
                this->scope(*child, parentsAreSound && child->parent() == &scope);
            }
        }
    }

    [[nodiscard]] Verification result() && { return std::move(result_); }

private:
    void graph(const Function& function, const Scope* scope) {
        tools_.survey.take(function, scope);
        tools_.batches.clear();
        const auto end = static_cast<std::uint32_t>(tools_.survey.nodes().size());
        for (std::uint32_t next = 0; next < end;) {
            next = tools_.batch.fill(next);
            tools_.batches.push_back(next);
            runAll(nodesChecks, tools_.batch, sink_);
        }
        if (!tools_.survey.usersAreRight()) {
            tools_.survey.followUsesAgain(tools_.batches);
        }
        runAll(graphChecks, tools_.survey, sink_);
    }

    const VerifyOptions options_;
    Verification result_;
    Sink sink_;
    Tools& tools_ = tools();
};

Verification verify(const Function& function, const VerifyOptions& options) {
    Verifier verifier(options);
    verifier.function(function, &function.scope());
    return std::move(verifier).result();
}

Verification verify(const Scope& scope, const VerifyOptions& options) {
    Verifier verifier(options);
    verifier.scope(scope, true);
    return std::move(verifier).result();
}

std::span<const CheckInfo> allChecks() noexcept {
    return infos;
}

const CheckInfo& infoOf(Check check) noexcept {
    return infos[static_cast<std::size_t>(check)];
}

// Failures

void Sink::add(Place place, std::string message) {
    auto& counts = result_.counts_;
    counts.resize(std::size(infos));
    ++result_.total_;
    if (++counts[static_cast<std::size_t>(check_)] <= options_.detailsPerCheck) {
        result_.failures_.push_back({check_, std::move(message), std::move(place)});
    }
}

void Sink::sortFrom(std::size_t first) {
    auto& failures = result_.failures_;
    std::stable_sort(failures.begin() + static_cast<std::ptrdiff_t>(first), failures.end(),
                     [](const Failure& a, const Failure& b) { return a.check < b.check; });
}

void Sink::fail(const Survey& survey, Where where, std::string message) {
    Place place;
    place.function = survey.function().name();
    place.line = where.line;
    std::uint32_t block = where.block;
    if (where.node != noIndex) {
        const Node& node = *survey.nodes()[where.node];
        block = survey.blockOf(where.node);
        place.node = where.node - survey.firstNode(block);
        place.nodeId = node.id();
        place.line = node.line();
    }
    if (block != noIndex) {
        place.block = survey.blocks()[block]->id();
    }
    add(std::move(place), std::move(message));
}

void Sink::fail(const Batch& batch, const NodeFacts& node, std::string_view message) {
    std::string text;
    if (static_cast<std::size_t>(node.op) < opCount) {
        text.append(infoOf(node.op).text).append(": ");
    }
    fail(batch.survey(), Where::atNode(node.number), text.append(message));
}

void Sink::fail(const Scope& scope, std::string message) {
    Place place;
    place.scope = scope.name();
    add(std::move(place), std::move(message));
}

void Sink::fail(const Function& function, std::string message) {
    Place place;
    place.function = function.name();
    place.line = function.line();
    add(std::move(place), std::move(message));
}

std::string toString(const Place& place) {
    std::string text = place.scope.empty() ? place.function : "scope " + place.scope;
    const auto append = [&](std::string_view word, std::uint32_t number) {
        text.append(text.empty() ? "" : ": ").append(word).append(std::to_string(number));
    };
    if (place.block) {
        append("block ", *place.block);
    }
    if (place.node) {
        append("node ", *place.node);
    }
    if (place.nodeId) {
        text.append(" (id ").append(std::to_string(*place.nodeId)).append(")");
    }
    if (place.line != 0) {
        append("line ", place.line);
    }
    return text;
}

std::string toString(const Failure& failure) {
    return toString(failure.place) + ": " + failure.message + " [" +
           std::string(infoOf(failure.check).id) + "]";
}

} // namespace QN
