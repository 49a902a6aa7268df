// The host of Python calls and the locks that keep two threads from using one
// container at the same time.
#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unordered_map>

#include "common.h"

namespace tundrel::py_bind {

bool PythonHost::stopRequested() {
    if (interrupt_) return true;
    py::gil_scoped_acquire gil;
    if (PyErr_CheckSignals() == 0) return false;
    interrupt_.emplace();  // takes the pending error
    return true;
}

void PythonHost::raiseInterrupt() {
    if (!interrupt_) return;
    py::error_already_set e = std::move(*interrupt_);
    interrupt_.reset();
    throw e;
}

namespace {

// The containers that calls hold now.
struct Registry {
    std::mutex mutex;
    std::condition_variable released;
    std::unordered_map<const void*, std::thread::id> busy;  // and the thread that holds each
};

Registry& registry() {
    static auto* r = new Registry();  // outlives every thread that may still release
    return *r;
}

}  // namespace

ContainerLocks::ContainerLocks(std::vector<const void*> objects) : objects_(std::move(objects)) {
    std::sort(objects_.begin(), objects_.end());
    objects_.erase(std::unique(objects_.begin(), objects_.end()), objects_.end());
    Registry& r = registry();
    std::unique_lock<std::mutex> lock(r.mutex);
    // A call made from within a call of this thread (a signal handler's)
    // uses what the outer call holds.
    std::erase_if(objects_, [&](const void* o) {
        const auto it = r.busy.find(o);
        return it != r.busy.end() && it->second == std::this_thread::get_id();
    });
    for (const void* o : objects_) {
        r.released.wait(lock, [&] { return r.busy.count(o) == 0; });
        r.busy.emplace(o, std::this_thread::get_id());
    }
}

void refuseWhileInUse(const void* container) {
    Registry& r = registry();
    const std::lock_guard<std::mutex> lock(r.mutex);
    const auto it = r.busy.find(container);
    if (it != r.busy.end() && it->second != std::this_thread::get_id())
        throw std::runtime_error("the object is in use by a call on another thread; wait for it to return");
}

ContainerLocks::~ContainerLocks() {
    Registry& r = registry();
    {
        const std::lock_guard<std::mutex> lock(r.mutex);
        for (const void* o : objects_) r.busy.erase(o);
    }
    r.released.notify_all();
}

}  // namespace tundrel::py_bind
