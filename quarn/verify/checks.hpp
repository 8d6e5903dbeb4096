// What the files of checks share: the shape of a check, and where it reports.
//
// The checks themselves are declared from the list in <qn/verify.hpp>; each is defined in the file
// of its family.
#pragma once

#include "verify/batch.hpp"

#include <qn/verify.hpp>

#include <string>
#include <string_view>

namespace QN {

/// Takes the failures of one check at a time into a Verification. A check reports each node, block
/// or other entity at most once.
class Sink {
public:
    Sink(Verification& result, const VerifyOptions& options) noexcept
        : result_(result), options_(options) {}

    [[nodiscard]] const VerifyOptions& options() const noexcept { return options_; }
    /// The check whose failures follow.
    void begin(Check check) noexcept { check_ = check; }

    void fail(const verification::Survey& survey, verification::Where where, std::string message);
    /// At a node; the message begins with the name of its operation.
    void fail(const verification::Batch& batch, const verification::NodeFacts& node,
              std::string_view message);
    void fail(const Scope& scope, std::string message);
    void fail(const Function& function, std::string message);

    [[nodiscard]] std::size_t described() const noexcept { return result_.failures_.size(); }
    /// Puts the failures from number `first` on into the order of the checks.
    void sortFrom(std::size_t first);

private:
    void add(Place place, std::string message);

    Verification& result_;
    const VerifyOptions& options_;
    Check check_ = {};
};

namespace verification {

namespace checks {
#define QN_DECLARE_Graph(check) void check(const Survey& graph, Sink& sink)
#define QN_DECLARE_Nodes(check) void check(const Batch& batch, Sink& sink)
#define QN_DECLARE_Function(check) void check(const Function& function, Sink& sink)
#define QN_DECLARE_Scope(check) void check(const Scope& scope, Sink& sink)
#define QN_DECLARE(subject, check, id, meaning) QN_DECLARE_##subject(check);
QN_VERIFY_CHECKS(QN_DECLARE)
#undef QN_DECLARE
#undef QN_DECLARE_Graph
#undef QN_DECLARE_Nodes
#undef QN_DECLARE_Function
#undef QN_DECLARE_Scope
} // namespace checks

/// Source lines lie below this.
inline constexpr std::uint32_t lineLimit = 1U << 24;

/// "f64", or "no type" for null.
[[nodiscard]] inline std::string nameOf(const Type* type) {
    return type == nullptr ? "no type" : std::string(type->name());
}

} // namespace verification
} // namespace QN
