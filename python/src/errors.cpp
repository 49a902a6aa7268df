// The library's errors and messages as Python exceptions and warnings.
#include <charconv>
#include <cmath>

#include "common.h"

namespace tundrel::py_bind {

namespace {

// The exception class of tundrel.errors for an error's code.
py::object errorClass(int code) {
    py::module_ errors = py::module_::import("tundrel.errors");
    switch (code) {
        case arrayWorks::IndexError::kCode: return errors.attr("IndexError");
        case arrayWorks::FileError::kCode: return errors.attr("FileError");
        case arrayWorks::StateError::kCode: return errors.attr("StateError");
        default: return errors.attr("GenericError");
    }
}

std::string text(const char* s) { return s != nullptr ? std::string(s) : std::string(); }

void setError(const arrayWorks::GenericError& e, const std::vector<std::string>& messages) {
    py::object cls = errorClass(e.code);
    py::object instance = cls(text(e.message), e.code, text(e.file), e.line, messages);
    PyErr_SetObject(cls.ptr(), instance.ptr());
}

}  // namespace

py::error_already_set libraryError(const arrayWorks::GenericError& e, const std::vector<std::string>& messages) {
    setError(e, messages);
    return py::error_already_set();
}

void raiseMessages(const std::vector<std::string>& messages) {
    py::object cls = py::module_::import("tundrel.errors").attr("MessageError");
    PyErr_SetObject(cls.ptr(), cls(messages).ptr());
    throw py::error_already_set();
}

void warnMessages(const std::vector<std::string>& messages) {
    py::object cls = py::module_::import("tundrel.errors").attr("MessageWarning");
    py::object warn = py::module_::import("warnings").attr("warn");
    for (const std::string& m : messages) warn(m, cls, 3);
}

void settle(bool ok, const std::vector<std::string>& messages) {
    if (messages.empty()) return;
    if (!ok) raiseMessages(messages);
    warnMessages(messages);
}

std::string numberText(double v) {
    if (!std::isfinite(v)) throw py::value_error("a dialog value must be a finite number");
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

namespace {

void checkValues(const PatchBase& p, std::size_t nodes, const char* what, int k) {
    for (const auto& v : p.variables)
        if (v && v->values.size() != nodes)
            throw py::value_error(std::string(what) + " " + std::to_string(k) + ": variable \"" + v->name + "\" holds " +
                                  std::to_string(v->values.size()) + " values for " + std::to_string(nodes) +
                                  " nodes");
}

}  // namespace

void checkFaces(const region_fe& reg_fe) {
    for (int k = 0; k < reg_fe.patchCount(); ++k) {
        if (!reg_fe.patches.exists(k)) continue;
        const FacePatch& p = reg_fe.patch(k);
        const std::string where = "face patch " + std::to_string(k);
        if (p.nodes < 0 || p.nodes != p.N || p.faces < 0 || p.indexLength < 0 ||
            static_cast<std::size_t>(p.indexLength) != p.faceIndex.size() ||
            static_cast<std::int64_t>(p.faces) * 4 > p.indexLength)
            throw py::value_error(where + ": " + std::to_string(p.faces) + " faces do not fit an index list of " +
                                  std::to_string(p.faceIndex.size()) + " entries");
        for (std::size_t i = 0; i < p.faceIndex.size(); ++i) {
            const std::int32_t n = p.faceIndex[i];
            if (n < -1 || n >= p.nodes)
                throw py::value_error(where + ": faceIndex[" + std::to_string(i) + "] = " + std::to_string(n) +
                                      " is not -1 or a node number below " + std::to_string(p.nodes));
        }
        checkValues(p, static_cast<std::size_t>(p.nodes), "face patch", k);
    }
}

void checkPatches(const region& reg) {
    for (int k = 0; k < reg.patchCount(); ++k)
        if (reg.patches.exists(k)) checkValues(reg.patch(k), static_cast<std::size_t>(reg.patch(k).N), "patch", k);
}

void bindErrors(py::module_& m) {
    // Errors thrown outside underHost (checked access of the containers).
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const arrayWorks::GenericError& e) {
            setError(e, {});
        }
    });
    m.attr("kNoValue") = arrayWorks::kNoValue;
}

}  // namespace tundrel::py_bind
