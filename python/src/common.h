// Shared pieces of the Python bindings: NumPy views of the library's memory,
// the scripted host that every library call runs under, and the translation
// of the library's errors and messages into Python exceptions.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "api/TundrelApi.h"

namespace tundrel::py_bind {

namespace py = pybind11;

// An array over memory that `owner` keeps alive (no copy). The view is
// writeable; its base is `owner`.
template <class T>
py::array view(T* data, std::vector<py::ssize_t> shape, std::vector<py::ssize_t> strides, py::handle owner) {
    return py::array(py::dtype::of<T>(), std::move(shape), std::move(strides), data, owner);
}

template <class T>
py::array flatView(T* data, std::size_t n, py::handle owner) {
    return view(data, {static_cast<py::ssize_t>(n)}, {static_cast<py::ssize_t>(sizeof(T))}, owner);
}

// Raises the tundrel exception class for a library error (with the texts the
// call had shown before it) and returns the error_already_set to throw.
py::error_already_set libraryError(const arrayWorks::GenericError& e, const std::vector<std::string>& messages);

// Raises tundrel.MessageError with the given texts.
[[noreturn]] void raiseMessages(const std::vector<std::string>& messages);
// Issues tundrel.MessageWarning for each text (the call succeeded).
void warnMessages(const std::vector<std::string>& messages);

// The host of every Python call: a scripted host (dialogs answered from its
// queue, messages recorded) that, asked whether to stop, takes the GIL back
// and lets Python run its signal handlers; a KeyboardInterrupt (or any error
// a handler raises) is kept, the operation asked to stop, and the error
// raised when the call returns.
class PythonHost : public ScriptedHost {
public:
    bool stopRequested() override;
    // Raises the kept error, if any (the GIL held).
    void raiseInterrupt();

private:
    std::optional<py::error_already_set> interrupt_;
};

// Calls on one container from two Python threads take turns: a call holds
// every container it is given (regions, field containers, marker sets) from
// its start to its end, taken in address order so that no two calls wait for
// each other crosswise.
class ContainerLocks {
public:
    explicit ContainerLocks(std::vector<const void*> objects);
    ~ContainerLocks();
    ContainerLocks(const ContainerLocks&) = delete;
    ContainerLocks& operator=(const ContainerLocks&) = delete;

private:
    std::vector<const void*> objects_;
};

// Waits, with the GIL released, until no call on another thread holds any of
// `used`, and holds them until the result is destroyed. The first statement
// of every binding that calls the library.
template <class... Used>
std::unique_ptr<ContainerLocks> hold(const Used&... used) {
    py::gil_scoped_release release;
    return std::make_unique<ContainerLocks>(std::vector<const void*>{static_cast<const void*>(&used)...});
}

// Raises RuntimeError while a call on another thread holds `container` (the
// GIL held: no call can start meanwhile). For the containers' own methods,
// which run with the GIL held and must not read what such a call changes.
void refuseWhileInUse(const void* container);

// A member function of a container as a method that refuses while the
// container is in use (refuseWhileInUse): guarded<&C::f>.
template <auto M, class T = decltype(M)>
struct Guarded;
template <auto M, class R, class C, class... A>
struct Guarded<M, R (C::*)(A...) const> {
    static R call(const C& c, A... a) {
        refuseWhileInUse(&c);
        return (c.*M)(a...);
    }
};
template <auto M, class R, class C, class... A>
struct Guarded<M, R (C::*)(A...) const noexcept> : Guarded<M, R (C::*)(A...) const> {};
template <auto M>
constexpr auto guarded = &Guarded<M>::call;

// Runs one call of the library with `host` installed for this thread and the
// GIL released (the containers it uses held by the caller, see hold).
// Library errors become Python exceptions that carry the recorded messages;
// an interrupt seen at a progress step is raised once the call has returned.
template <class F>
auto underHost(PythonHost& host, F&& f) -> decltype(f()) {
    HostScope scope(host);
    try {
        if constexpr (std::is_void_v<decltype(f())>) {
            {
                py::gil_scoped_release release;
                f();
            }
            host.raiseInterrupt();
        } else {
            auto result = [&] {
                py::gil_scoped_release release;
                return f();
            }();
            host.raiseInterrupt();
            return result;
        }
    } catch (const arrayWorks::GenericError& e) {
        throw libraryError(e, host.messages);
    }
}

// A library call whose success is known afterwards: messages of a failed call
// raise MessageError, those of a successful one are issued as warnings.
void settle(bool ok, const std::vector<std::string>& messages);

// Text typed into a dialog's edit box for a number (shortest form that reads
// back exactly).
std::string numberText(double v);

// The shared pointer that holds `p` in a list of owning pointers.
template <class T>
std::shared_ptr<T> holderOf(const arrayWorks::PtrList<T>& list, const T* p) {
    for (const auto& item : list)
        if (item.get() == p) return item;
    return nullptr;
}

// Checks that every face patch can be walked safely: its face index list has
// the stored length and holds only -1 or node numbers below its node count,
// and every variable has one value per node. Raises ValueError otherwise.
void checkFaces(const region_fe& reg_fe);
// The same for structured patches: one value per node in every variable.
void checkPatches(const region& reg);

// Raises ValueError while a NumPy view of the container's positions is alive
// (adding or replacing blocks may move the positions' storage).
void refuseWhilePositionsViewed(const FieldMasterD& fm);

void bindErrors(py::module_& m);
void bindGeometry(py::module_& m);
void bindFields(py::module_& m);
void bindOperations(py::module_& m);

}  // namespace tundrel::py_bind
