// The base of services that act before a transform, after it, or on both sides, on runs that a
// filter selects. A debug service sits in DefaultServices::debugServices() exactly while one of its
// three requests is on, and takes care of that itself.
//
// Owner: whoever makes it. To add one: derive, give the folder's name to the constructor, override
// prepass() and postpass() (or added() and removed()) and begin them with wantsBefore(run) or
// wantsAfter(run); call settingChanged() in each setter whose effect shows in a compilation.
#pragma once

#include <qn/scope.hpp>
#include <qn/service.hpp>
#include <qn/transform_run.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace re2 {
class RE2;
}

namespace QN {

class DebugService : public Service {
public:
    ~DebugService() override;

    // Requests. Each setter returns the value that it replaces.

    /// Whether the service acts before the transforms that its filter selects.
    [[nodiscard]] bool requestedBefore() const noexcept { return before_; }
    bool setRequestedBefore(bool requested);
    /// Whether the service acts after them.
    [[nodiscard]] bool requestedAfter() const noexcept { return after_; }
    bool setRequestedAfter(bool requested);
    /// Whether it acts on runs over the global scope and its functions too; off at start. By itself
    /// this selects neither side.
    [[nodiscard]] bool requestedGlobalScope() const noexcept { return globalScope_; }
    bool setRequestedGlobalScope(bool requested);

    /// The pattern (RE2) that is searched for, unanchored, in the tags of runs; empty selects all.
    [[nodiscard]] const std::string& filter() const noexcept { return filter_; }
    /// A pattern that does not compile is kept as text, reported once on the console, and selects
    /// nothing.
    void setFilter(const std::string& pattern);

    /// The folder in which this service leaves its files: FOLDER, or FOLDER-PID if the debug log
    /// puts the process id in names, under the debug log's folder. Found afresh on each call;
    /// nothing is created.
    [[nodiscard]] std::string outputFolderName() const;

protected:
    /// `folder` is a plain name that lives as long as the service, such as a literal; empty for the
    /// debug log's folder itself. With `before` or `after` the service is registered here, and then
    /// an override of added() is not called, because the deriving part does not exist yet.
    DebugService(bool before, bool after, std::string_view folder = {});

    /// Whether the service is to act before, or after, this run.
    [[nodiscard]] bool wantsBefore(const TransformRun& run) const {
        return before_ && selects(run);
    }
    [[nodiscard]] bool wantsAfter(const TransformRun& run) const { return after_ && selects(run); }
    /// Whether filter and scope select this run, whatever sides are requested.
    [[nodiscard]] bool selects(const TransformRun& run) const {
        return selectsScopeOf(run) && (pattern_ == nullptr || matches(run));
    }

    /// selects() in two parts, for who has no time: whether a side is requested and there is no
    /// filter, and whether the scope is selected.
    [[nodiscard]] bool isRequestedUnfiltered() const noexcept { return requestedUnfiltered_; }
    [[nodiscard]] bool selectsScope(const Scope& scope) const noexcept {
        return globalScope_ || scope.flavor() != ScopeFlavor::Global;
    }
    [[nodiscard]] bool selectsScopeOf(const TransformRun& run) const noexcept {
        return selectsScope(run.scope());
    }

    /// Tells the container that what this service does has changed, so that code compiled under
    /// the old settings is compiled anew.
    void settingChanged() const noexcept;

private:
    bool matches(const TransformRun& run) const;
    bool setRequest(bool& request, bool requested);
    void noteRequests() noexcept {
        requestedUnfiltered_ = (before_ || after_) && pattern_ == nullptr;
    }

    std::string_view folder_;
    std::string filter_;
    std::unique_ptr<re2::RE2> pattern_; // null for an empty filter
    bool before_;
    bool after_;
    bool globalScope_ = false;
    bool requestedUnfiltered_ = false;
};

} // namespace QN
