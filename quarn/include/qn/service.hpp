// The base of everything that watches transforms. While a service sits in a service container, the
// pass manager calls its hooks around every run of a transform.
//
// Owner: whoever makes a service owns it; a container only refers to it. A service that is
// destroyed while registered takes itself out of its container. To add a service, derive from this
// class (or from DebugService, which adds filters and sides).
#pragma once

#include <cstdint>

namespace QN {

class Function;
class RunSequence;
class ServiceContainer;
struct Transform;
class TransformRun;

class Service {
public:
    Service() noexcept = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    virtual ~Service();

    /// Called before the transform acts; the IR is as the previous transform left it.
    virtual void prepass(TransformRun& run);

    /// Called after the transform has acted, also when it failed (see TransformRun::failed()), once
    /// for each prepass() call that returned. Services are called in reverse order of prepass(). A
    /// service that leaves its container or falls asleep meanwhile is not called for that run any
    /// more, also if it comes back.
    virtual void postpass(TransformRun& run);

    /// Runs `transform` on `function` as the only service that is awake, and returns whether that
    /// changed anything. What stands here does as for any number of services: it describes the run
    /// and calls the hooks around it. A service that measures may override it to stand closer to
    /// the transform; it must then record what its hooks would have. `sequence` tells of the run
    /// before, if that has just ended.
    virtual bool runAlone(const Transform& transform, Function& function, RunSequence& sequence);

    /// Called at the end of ServiceContainer::addService().
    virtual void added();

    /// Called at the end of ServiceContainer::removeService(), but not when the service leaves its
    /// container because it is being destroyed.
    virtual void removed();

    /// The container in which this service is registered, null if none.
    [[nodiscard]] ServiceContainer* container() const noexcept { return container_; }

    /// Whether the service has said that it has nothing to do for now. It stays registered, but its
    /// hooks are not called, and if that holds for all, a run costs what it costs without services.
    [[nodiscard]] bool isIdle() const noexcept { return idle_; }

protected:
    /// Falls asleep or wakes up. A service that wakes up while a transform acts waits for the next
    /// run, and is from then on called behind those that were awake before it. Throws
    /// std::bad_alloc, and then nothing has changed.
    void setIdle(bool idle);

private:
    friend class ServiceContainer;
    ServiceContainer* container_ = nullptr;
    std::uint64_t leftDuring_ = 0; // the last walk of a container that it left
    bool idle_ = false;
};

} // namespace QN
