// Golden files, and a model as one string: names, sizes, flow conditions, face lists and every
// value (NaN as "nan"), for comparing two models in one assertion.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "api/TundrelApi.h"

namespace testutil {

inline std::string modelText(const region& reg, const region_fe& fe) {
    std::ostringstream s;
    s.precision(17);
    auto patch = [&](const PatchBase& p) {
        s << '\n' << p.name << ' ' << p.I << 'x' << p.J << 'x' << p.K << ' ' << p.N;
        for (const auto& v : p.variables) {
            s << ' ' << v->name << ':';
            for (double d : v->values) s << d << ',';
        }
    };
    s << reg.name << ' ' << reg.Mach << ' ' << reg.alpha << ' ' << reg.beta;
    for (const auto& p : reg.patches) patch(*p);
    s << '\n' << fe.name << ' ' << fe.Mach << ' ' << fe.alpha << ' ' << fe.beta;
    for (const auto& f : fe.patches) {
        patch(*f);
        s << ' ' << f->faces << " faces [";
        for (std::int32_t i : f->faceIndex) s << i << ' ';
        s << ']';
    }
    return s.str();
}

// A golden file under tests/data/expected/, whole.
inline std::string expected(const std::string& name) {
    std::ifstream f(std::string(TUNDREL_TEST_DATA) + "/expected/" + name, std::ios::binary);
    EXPECT_TRUE(f.good()) << name;
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

}  // namespace testutil
