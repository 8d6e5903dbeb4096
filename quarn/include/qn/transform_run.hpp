// The description of one run of a transform: which transform acts on what, and how it went. The
// pass manager makes one per run and shows it to every registered service before and after.
//
// Owner: the pass manager; a run lives until its last postpass() has returned. Services that want
// to remember something of it copy it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace QN {

class Function;
class Scope;

/// How one run ended; Running until the transform has returned.
enum class RunOutcome : std::uint8_t { Running, Unchanged, Changed, Failed };

class TransformRun {
public:
    /// A run of the function transform `transform` on `function` in `scope`. The transform's name
    /// lives as long as the process, the function's at least as long as the run.
    TransformRun(std::uint64_t id, std::string_view transform, Scope& scope, Function& function,
                 std::string_view functionName) noexcept
        : id_(id), transform_(transform), target_(functionName), scope_(&scope),
          function_(&function) {}

    /// A run of the scope transform `transform` on `scope`.
    TransformRun(std::uint64_t id, std::string_view transform, Scope& scope,
                 std::string_view scopeName) noexcept
        : id_(id), transform_(transform), target_(scopeName), scope_(&scope) {}

    TransformRun(const TransformRun&) = delete;
    TransformRun& operator=(const TransformRun&) = delete;

    /// The number of the run in this process, from 1 on, without gaps.
    [[nodiscard]] std::uint64_t id() const noexcept { return id_; }
    [[nodiscard]] std::string_view transformName() const noexcept { return transform_; }
    /// The name of the function or scope that the transform acts on.
    [[nodiscard]] std::string_view targetName() const noexcept { return target_; }
    [[nodiscard]] bool isScopeRun() const noexcept { return function_ == nullptr; }

    /// "NAME-fcn_FUNCTION" or "NAME-scope_SCOPE"; put together at the first call.
    [[nodiscard]] const std::string& tag() const;

    /// The function of a function run, null in a scope run.
    [[nodiscard]] Function* function() const noexcept { return function_; }
    /// The scope of a scope run, or the one that the function belongs to.
    [[nodiscard]] Scope& scope() const noexcept { return *scope_; }

    /// How the run went; Running before the transform has returned.
    [[nodiscard]] RunOutcome outcome() const noexcept { return outcome_; }
    [[nodiscard]] bool changed() const noexcept { return outcome_ == RunOutcome::Changed; }
    [[nodiscard]] bool failed() const noexcept { return outcome_ == RunOutcome::Failed; }
    void setOutcome(RunOutcome outcome) noexcept { outcome_ = outcome; }

    /// A service calls this to end the compilation with an error after the hooks of this side have
    /// run; the first reason given is kept. An empty reason is taken for "stopped".
    void requestStop(std::string_view reason);
    [[nodiscard]] bool stopRequested() const noexcept {
        return texts_ != nullptr && !texts_->stopReason.empty();
    }
    /// Empty unless a stop was requested.
    [[nodiscard]] std::string_view stopReason() const noexcept {
        return stopRequested() ? std::string_view(texts_->stopReason) : std::string_view();
    }

private:
    // Most runs need neither, and making empty strings would be a part of the cost of each.
    struct Texts {
        std::string tag;
        std::string stopReason;
    };
    struct FreeTexts { // out of line, as it is seldom called
        void operator()(Texts* texts) const noexcept;
    };
    Texts& texts() const {
        if (texts_ == nullptr) {
            texts_.reset(new Texts);
        }
        return *texts_;
    }

    std::uint64_t id_;
    std::string_view transform_;
    std::string_view target_;
    Scope* scope_;
    Function* function_ = nullptr;
    RunOutcome outcome_ = RunOutcome::Running;
    mutable std::unique_ptr<Texts, FreeTexts> texts_;
};

} // namespace QN
