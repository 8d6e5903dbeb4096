// Registration of services, and the process's own container.
#include <qn/assertion.hpp>
#include <qn/default_services.hpp>
#include <ts/debug_log.hpp>

#include <algorithm>

namespace QN {

Service::~Service() {
    if (container_ != nullptr) {
        container_->detach(*this);
    }
}

void Service::prepass(TransformRun&) {}
void Service::postpass(TransformRun&) {}
void Service::added() {}
void Service::removed() {}

ServiceContainer::~ServiceContainer() {
    for (Service* service : slots_) {
        if (service != nullptr) {
            service->container_ = nullptr;
        }
    }
}

void ServiceContainer::addService(Service* service) {
    if (service == nullptr) {
        client_assertion_failed(__FILE__, __LINE__, "service != 0");
        return;
    }
    if (service->container_ == this) {
        return;
    }
    if (service->container_ != nullptr) {
        service->container_->removeService(service);
    }
    slots_.push_back(service);
    service->container_ = this;
    ++count_;
    ++generation_;
    service->added();
}

void ServiceContainer::removeService(Service* service) {
    if (isRegistered(service)) {
        detach(*service);
        service->removed();
    }
}

void ServiceContainer::detach(Service& service) noexcept {
    const auto slot = std::find(slots_.begin(), slots_.end(), &service);
    service.container_ = nullptr;
    --count_;
    ++generation_;
    if (walks_ > 0) {
        *slot = nullptr;
    } else {
        slots_.erase(slot);
    }
}

void ServiceContainer::closeGaps() noexcept {
    std::erase(slots_, nullptr);
}

namespace detail {
constinit DebugServicesStorage debugServicesStorage;
}

tssv::debug::DebugLog& DebugServices::debugLog() {
    // Never destroyed, so that services may still ask for paths while the process ends.
    static auto& log = *new tssv::debug::DebugLog;
    return log;
}

} // namespace QN
