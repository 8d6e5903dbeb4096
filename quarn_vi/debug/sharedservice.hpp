// The services that all controllers of one kind share.
#pragma once

namespace quarn_vi::debug {

/// The module's one service of that class, made on first use with `arguments` and never destroyed,
/// so that settings outlive every controller. If making it throws, the next use tries again.
template <class Service, auto... arguments>
Service& sharedService() {
    static Service* const service = new Service(arguments...);
    return *service;
}

} // namespace quarn_vi::debug
