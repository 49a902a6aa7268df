// The error family of the library and the checked owning pointer list that
// every geometry container uses.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "api/export.h"

namespace arrayWorks {

// Header paths carried by the errors, as the library's sources name them.
namespace source {
inline constexpr const char* arrayWorks = "..\\api\\arrayWorks.h";
inline constexpr const char* geo = "..\\api\\geo.h";
inline constexpr const char* ngeo = "..\\api\\ngeo.h";
inline constexpr const char* field_selection = "..\\api\\field_selection.h";
inline constexpr const char* markers = "..\\api\\markers.h";
inline constexpr const char* markersImport = "..\\api\\markersImport.cpp";
inline constexpr const char* IOdom = "..\\api\\IOdom.cpp";
}  // namespace source

// One failed check: fixed message and code of its kind, and where it failed.
struct TUNDREL_API ErrorInfo {
    const char* message;
    std::int32_t code;
    const char* file;
    std::int32_t line;

    constexpr ErrorInfo(const char* file_, int line_, const char* message_, int code_) noexcept
        : message(message_), code(code_), file(file_), line(line_) {}
};

class TUNDREL_API GenericError : public ErrorInfo {
public:
    using ErrorInfo::ErrorInfo;
};

// An index outside the bounds of a container.
class TUNDREL_API IndexError : public GenericError {
public:
    static constexpr int kCode = 1;
    static constexpr const char* kMessage = "Index error!";
    constexpr IndexError(const char* file_, int line_) noexcept : GenericError(file_, line_, kMessage, kCode) {}
};

// A stream failed while a file was read or written.
class TUNDREL_API FileError : public GenericError {
public:
    static constexpr int kCode = 4;
    static constexpr const char* kMessage = "File error!";
    constexpr FileError(const char* file_, int line_) noexcept : GenericError(file_, line_, kMessage, kCode) {}
};

// An index in range whose slot holds nothing, or an object in the wrong state.
class TUNDREL_API StateError : public GenericError {
public:
    static constexpr int kCode = 5;
    static constexpr const char* kMessage = "State error!";
    constexpr StateError(const char* file_, int line_) noexcept : GenericError(file_, line_, kMessage, kCode) {}
};

// Ordered growable list of owning pointers (patches of a region, variables of
// a patch). Ownership is shared: a by-value copy of a region shares the
// patches of the original, and the last holder frees them.
template <class T>
class PtrList {
public:
    using Ptr = std::shared_ptr<T>;

    int size() const noexcept { return static_cast<int>(items_.size()); }
    bool empty() const noexcept { return items_.empty(); }

    bool exists(int k) const noexcept {
        return k >= 0 && !items_.empty() && k < size() && items_[static_cast<std::size_t>(k)] != nullptr;
    }

    T* get(int k) const {
        if (k < 0 || k >= size()) throw IndexError(source::arrayWorks, __LINE__);
        T* p = items_[static_cast<std::size_t>(k)].get();
        if (p == nullptr) throw StateError(source::arrayWorks, __LINE__);
        return p;
    }

    // The owning pointer of slot k (checked as get).
    const Ptr& shared(int k) const {
        get(k);
        return items_[static_cast<std::size_t>(k)];
    }

    void append(Ptr p) { items_.push_back(std::move(p)); }

    // Replaces slot k; the previous object is released when nobody else holds it.
    void set(int k, Ptr p) {
        if (k < 0 || k >= size()) throw IndexError(source::arrayWorks, __LINE__);
        items_[static_cast<std::size_t>(k)] = std::move(p);
    }

    // Empties the slot (the object is released when nobody else holds it).
    void reset(int k) { set(k, nullptr); }

    void clear() noexcept { items_.clear(); }

    auto begin() const noexcept { return items_.begin(); }
    auto end() const noexcept { return items_.end(); }

private:
    std::vector<Ptr> items_;
};

}  // namespace arrayWorks
