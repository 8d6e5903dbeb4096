// The process's own service container and the way to it. The container is an exported object with
// constant initialization: reaching it costs one address computation, at any time, also before
// main() and after it.
#pragma once

#include <qn/service_container.hpp>

#include <cstdint>

namespace tssv::debug {
class DebugLog;
}

namespace QN {

/// The container of debug services, together with the debug log in whose folder they write.
class DebugServices : public ServiceContainer {
public:
    constexpr DebugServices() noexcept = default;

    /// The process's debug log; lives as long as the process.
    [[nodiscard]] tssv::debug::DebugLog& debugLog();

    /// Numbers the watched runs of the process, from 1 on.
    [[nodiscard]] std::uint64_t nextRunId() noexcept { return ++runs_; }

private:
    std::uint64_t runs_ = 0;
};

namespace detail {

/// Holds the container without ever destroying it: services with static storage may leave it after
/// the destructors of this library have run.
union DebugServicesStorage {
    constexpr DebugServicesStorage() noexcept : services() {}
    ~DebugServicesStorage() {}
    DebugServices services;
};
extern DebugServicesStorage debugServicesStorage;

} // namespace detail

class DefaultServices {
public:
    /// The process's debug services; the object lives as long as the process.
    [[nodiscard]] static DebugServices& debugServices() noexcept {
        return detail::debugServicesStorage.services;
    }
};

} // namespace QN
