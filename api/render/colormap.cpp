// Colour maps and the named views.
#include <algorithm>
#include <cmath>

#include "api/render/render.h"

namespace tundrel {

namespace {

#include "api/render/colormaps.inc"

struct MapEntry {
    const char* name;
    const float (*table)[3];
    int size;
    bool diverging;
};

template <std::size_t N>
constexpr MapEntry entry(const char* name, const float (&table)[N][3], bool diverging) {
    return {name, table, static_cast<int>(N), diverging};
}

constexpr MapEntry kMaps[] = {
    entry("viridis", kViridisTable, false),  entry("magma", kMagmaTable, false),
    entry("cividis", kCividisTable, false),  entry("coolwarm", kCoolwarmTable, true),
    entry("diverging", kCoolwarmTable, true),
};

struct ViewEntry {
    const char* name;
    double azimuth, elevation;
};

constexpr ViewEntry kViews[] = {
    {"iso", 225.0, 30.0},  {"top", 270.0, 90.0},  {"bottom", 270.0, -90.0}, {"left", 270.0, 0.0},
    {"right", 90.0, 0.0},  {"front", 180.0, 0.0}, {"back", 0.0, 0.0},
};

}  // namespace

std::optional<ColorMap> ColorMap::named(std::string_view name) {
    for (const MapEntry& e : kMaps) {
        if (name != e.name) continue;
        ColorMap m;
        m.name_ = e.name;
        m.table_ = e.table;
        m.size_ = e.size;
        m.diverging_ = e.diverging;
        return m;
    }
    return std::nullopt;
}

std::vector<std::string> ColorMap::names() {
    std::vector<std::string> list;
    for (const MapEntry& e : kMaps) list.emplace_back(e.name);
    return list;
}

void ColorMap::color(double t, float rgb[3]) const noexcept {
    if (!(t > 0.0)) t = 0.0;
    if (t > 1.0) t = 1.0;
    const double at = t * (size_ - 1);
    const int k = std::min(static_cast<int>(at), size_ - 2);
    const auto f = static_cast<float>(at - k);
    for (int c = 0; c < 3; ++c) rgb[c] = table_[k][c] + f * (table_[k + 1][c] - table_[k][c]);
}

std::optional<View> View::named(std::string_view name) {
    for (const ViewEntry& e : kViews)
        if (name == e.name) return View{e.name, e.azimuth, e.elevation, 1.0};
    return std::nullopt;
}

std::vector<std::string> View::names() {
    std::vector<std::string> list;
    for (const ViewEntry& e : kViews) list.emplace_back(e.name);
    return list;
}

std::optional<std::pair<double, double>> valueRange(std::span<const double> values) {
    double lo = INFINITY, hi = -INFINITY;
    for (double v : values) {
        if (!(v >= kNoValueBelow) || !std::isfinite(v)) continue;
        lo = std::min(lo, v);
        hi = std::max(hi, v);
    }
    if (lo > hi) return std::nullopt;
    return std::pair{lo, hi};
}

}  // namespace tundrel
