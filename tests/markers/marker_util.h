// Marker files read from disk in the tests: a set as one string, and the
// FileError a read ends in, the XML reporter's lines on standard error kept.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "api/TundrelApi.h"

namespace testutil {

// Name, the four flags, then every marker as (x y z value active number).
inline std::string describe(const markers& s) {
    std::ostringstream o;
    o.precision(17);
    o << s.name << s.hasX << s.hasY << s.hasZ << s.hasValue;
    for (const marker& m : s.list)
        o << " (" << m.x << ' ' << m.y << ' ' << m.z << ' ' << m.value << ' ' << m.active << ' ' << m.number << ')';
    return o.str();
}

// Runs f with standard error captured (into *err when given): the line of
// the FileError it threw from `source`, 0 when it threw none.
template <class F>
int fileErrorLine(F&& f, std::string* err = nullptr, const char* source = arrayWorks::source::markersImport) {
    ::testing::internal::CaptureStderr();
    int line = 0;
    try {
        f();
    } catch (const arrayWorks::FileError& e) {
        EXPECT_STREQ(e.message, "File error!");
        EXPECT_STREQ(e.file, source);
        line = e.line;
    }
    const std::string text = ::testing::internal::GetCapturedStderr();
    if (err) *err = text;
    return line;
}

}  // namespace testutil
