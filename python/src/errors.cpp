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

// The model's invariants, as the library states them, before a call trusts
// the geometry.
void checkFaces(const region_fe& reg_fe) {
    if (std::string broken = tundrel::validate(region{}, reg_fe); !broken.empty()) throw py::value_error(broken);
}

void checkPatches(const region& reg) {
    if (std::string broken = tundrel::validate(reg, region_fe{}); !broken.empty()) throw py::value_error(broken);
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
    m.attr("kNoValueBelow") = tundrel::kNoValueBelow;
}

}  // namespace tundrel::py_bind
