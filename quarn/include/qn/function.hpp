// A function: its name and signature, and, as long as it is kept, its graph.
//
// Owner: a Scope owns its functions; a Function owns its Cfg.
#pragma once

#include <qn/cfg.hpp>

#include <memory>
#include <string_view>
#include <vector>

namespace QN {

class Function {
public:
    Function(const Function&) = delete;
    Function& operator=(const Function&) = delete;
    ~Function();

    /// Unique in its scope.
    [[nodiscard]] std::string_view name() const noexcept { return name_; }
    [[nodiscard]] Scope& scope() const noexcept { return *scope_; }
    /// void if the function gives no result.
    [[nodiscard]] const Type* resultType() const noexcept { return resultType_; }
    [[nodiscard]] const std::vector<const Type*>& paramTypes() const noexcept {
        return paramTypes_;
    }
    /// The line of the source at which the function starts, 0 if unknown.
    [[nodiscard]] std::uint32_t line() const noexcept { return line_; }
    void setLine(std::uint32_t line) noexcept { line_ = line; }
    /// Whether the function is called from outside its scope, so that it stays although no function
    /// calls it. True at start.
    [[nodiscard]] bool isExported() const noexcept { return exported_; }
    void setExported(bool exported) noexcept { exported_ = exported; }

    /// Appends a parameter to the signature and to the graph, which must be there.
    Var* addParam(const Type* type, std::string_view name, std::uint32_t line = 0);

    [[nodiscard]] bool hasCfg() const noexcept { return cfg_ != nullptr; }
    /// The graph; there must be one.
    [[nodiscard]] Cfg& cfg() const noexcept { return *cfg_; }
    /// Frees the graph; name and signature stay.
    void deleteCfg() noexcept;
    /// Puts `cfg`, which was made for this function and has its parameters, in place of the graph.
    void replaceCfg(std::unique_ptr<Cfg> cfg) noexcept;

private:
    friend class Scope;
    Function(Scope& scope, std::string_view nameInPool, const Type* resultType);

    Scope* scope_;
    std::string_view name_;
    const Type* resultType_;
    std::vector<const Type*> paramTypes_;
    std::unique_ptr<Cfg> cfg_;
    std::uint32_t line_ = 0;
    bool exported_ = true;
};

} // namespace QN
