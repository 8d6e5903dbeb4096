// A list of registered services. The membership of a service is kept inside the service, so that
// asking for it is one comparison and needs no table.
//
// Owner: the container refers to its services and owns none. It must outlive them or be emptied
// first; the process's own container is never destroyed. One thread only.
#pragma once

#include <qn/service.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QN {

class ServiceContainer {
public:
    constexpr ServiceContainer() noexcept = default;
    ServiceContainer(const ServiceContainer&) = delete;
    ServiceContainer& operator=(const ServiceContainer&) = delete;
    ~ServiceContainer();

    /// Whether `service` is registered here; false for null.
    [[nodiscard]] bool isRegistered(const Service* service) const noexcept {
        return service != nullptr && service->container_ == this;
    }

    /// The same of a service that may be gone: nothing is read from it.
    [[nodiscard]] bool holds(const Service* service) const noexcept;

    /// The service that is awake if it is the only one and no other one left during a run that is
    /// under way, otherwise null.
    [[nodiscard]] Service* onlyAwake() const noexcept {
        return slots_.size() == 1 ? slots_.front() : nullptr;
    }

    /// Registers `service` after the ones that are there. Does nothing if it is registered here
    /// already; a service registered elsewhere leaves its old container first. Null is reported as
    /// a failed assertion.
    void addService(Service* service);

    /// Takes `service` out; does nothing if it is not registered here (or null). May be called from
    /// a hook of this or another service.
    void removeService(Service* service);

    [[nodiscard]] std::size_t size() const noexcept { return awake_ + aside_.size(); }
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    /// Whether nobody has to be called around a run: none is registered, or all are idle.
    [[nodiscard]] bool isQuiet() const noexcept { return awake_ == 0; }

    /// Calls `visit(Service&)` for each registered service that is not idle, in the order in which
    /// they were registered or woke up. Services that `visit` adds are visited too; services that
    /// it removes are not visited any more, also if they come back.
    template <typename Visitor>
    void forEach(Visitor&& visit) {
        const Walk walk(*this);
        for (std::size_t i = 0; i < slots_.size(); ++i) {
            if (Service* service = slots_[i]; service != nullptr) {
                visit(*service);
            }
        }
    }

    /// The same, last one first. Services that `visit` adds are not visited.
    template <typename Visitor>
    void forEachReversed(Visitor&& visit) {
        const Walk walk(*this);
        for (std::size_t i = slots_.size(); i-- > 0;) {
            if (Service* service = slots_[i]; service != nullptr) {
                visit(*service);
            }
        }
    }

    /// Grows whenever a service comes or goes or noteChange() is called. Who keeps compiled code
    /// can tell from it whether the code was made under the present settings.
    [[nodiscard]] std::uint64_t generation() const noexcept { return generation_; }

    /// A registered service calls this when a setting changes that shows in what it does.
    void noteChange() noexcept { ++generation_; }

private:
    friend class Service;
    friend class ServiceBracket; // the hooks around one run of a transform

    /// While a walk is under way, services that leave or fall asleep leave a null slot behind, so
    /// that indices stay valid; the slots are closed when the last walk ends. Who comes back before
    /// that waits for it, as nobody knows any more which walks have called it already.
    class Walk {
    public:
        explicit Walk(ServiceContainer& container) noexcept : container_(container) {
            ++container_.walks_;
        }
        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;
        ~Walk() {
            if (--container_.walks_ == 0 && container_.walkWithGaps_ != 0) [[unlikely]] {
                container_.closeGaps();
            }
        }

    private:
        ServiceContainer& container_;
    };

    void detach(Service& service) noexcept;
    void enter(Service& service);
    /// Lets the next enter() of an idle service, or of one that is awake, need no memory.
    void makeRoom(bool idle);
    void leave(Service& service) noexcept;
    void closeGaps() noexcept;

    std::vector<Service*> slots_; // those that are awake, and gaps
    std::size_t awake_ = 0;
    std::vector<Service*> aside_; // those that are idle, and those that wait for the end of a walk
    std::uint64_t generation_ = 0;
    std::uint64_t walkWithGaps_ = 0; // a number of its own, 0 while there are none
    std::uint32_t walks_ = 0;
};

} // namespace QN
