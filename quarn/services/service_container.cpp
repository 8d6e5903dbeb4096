// Registration of services, and the process's own container.
#include <qn/assertion.hpp>
#include <qn/default_services.hpp>
#include <ts/debug_log.hpp>

#include <algorithm>

namespace QN {

namespace {

std::uint64_t lastWalkWithGaps = 0; // of any container

} // namespace

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
    for (const auto& services : {slots_, aside_}) {
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
    return service != nullptr && (isIn(slots_) || isIn(aside_));
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
    const bool waits = walkWithGaps_ != 0 && service.leftDuring_ == walkWithGaps_;
    if (service.idle_ || waits) {
        aside_.push_back(&service);
    } else {
        slots_.push_back(&service);
        ++awake_;
    }
}

void ServiceContainer::makeRoom(bool idle) {
    if (idle || walkWithGaps_ != 0) { // or it may have to wait
        aside_.reserve(aside_.size() + 1);
    }
    if (!idle) {
        slots_.reserve(slots_.size() + 1);
    }
}

void ServiceContainer::leave(Service& service) noexcept {
    if (std::erase(aside_, &service) > 0) {
        return;
    }
    const auto slot = std::find(slots_.begin(), slots_.end(), &service);
    --awake_;
    if (walks_ > 0) {
        *slot = nullptr;
        if (walkWithGaps_ == 0) {
            walkWithGaps_ = ++lastWalkWithGaps;
        }
        service.leftDuring_ = walkWithGaps_;
    } else {
        slots_.erase(slot);
    }
}

void ServiceContainer::closeGaps() noexcept {
    std::erase(slots_, nullptr);
    walkWithGaps_ = 0;
    for (Service* const service : aside_) {
        if (!service->idle_) { // waited, so that one of the gaps was its own
            slots_.push_back(service);
            ++awake_;
        }
    }
    std::erase_if(aside_, [](const Service* service) { return !service->idle_; });
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
