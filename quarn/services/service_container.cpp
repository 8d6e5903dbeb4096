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

void Service::setIdle(bool idle) {
    if (idle == idle_) {
        return;
    }
    if (container_ == nullptr) {
        idle_ = idle;
        return;
    }
    container_->makeRoom(idle);
    container_->leave(*this);
    idle_ = idle;
    container_->enter(*this);
}

ServiceContainer::~ServiceContainer() {
    for (const auto& services : {slots_, idle_}) {
        for (Service* const service : services) {
            if (service != nullptr) {
                service->container_ = nullptr;
            }
        }
    }
}

bool ServiceContainer::holds(const Service* service) const noexcept {
    const auto isIn = [service](const std::vector<Service*>& services) {
        return std::find(services.begin(), services.end(), service) != services.end();
    };
    return service != nullptr && (isIn(slots_) || isIn(idle_));
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
    enter(*service);
    service->container_ = this;
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
    leave(service);
    service.container_ = nullptr;
    ++generation_;
}

void ServiceContainer::enter(Service& service) {
    if (service.idle_) {
        idle_.push_back(&service);
    } else {
        slots_.push_back(&service);
        ++awake_;
    }
}

void ServiceContainer::makeRoom(bool idle) {
    std::vector<Service*>& services = idle ? idle_ : slots_;
    services.reserve(services.size() + 1);
}

void ServiceContainer::leave(Service& service) noexcept {
    if (service.idle_) {
        std::erase(idle_, &service);
        return;
    }
    const auto slot = std::find(slots_.begin(), slots_.end(), &service);
    --awake_;
    if (walks_ > 0) {
        *slot = nullptr;
        hasGaps_ = true;
    } else {
        slots_.erase(slot);
    }
}

void ServiceContainer::closeGaps() noexcept {
    std::erase(slots_, nullptr);
    hasGaps_ = false;
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
