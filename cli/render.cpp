// tundrel render
#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <optional>
#include <sstream>
#include <unistd.h>

#include "cli/cli.h"

namespace tundrel::cli {

namespace {

std::optional<double> number(const std::string& text) {
    std::size_t used = 0;
    try {
        const double v = std::stod(text, &used);
        if (used == text.size() && std::isfinite(v)) return v;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

std::string joined(const std::vector<std::string>& names) {
    std::string s;
    for (const std::string& n : names) s += (s.empty() ? "" : ", ") + n;
    return s;
}

std::optional<std::pair<double, double>> rangeOf(const std::string& text) {
    const auto items = splitList(text);
    if (items.size() != 2) return std::nullopt;
    const auto lo = number(items[0]), hi = number(items[1]);
    if (!lo || !hi || !(*lo < *hi)) return std::nullopt;
    return std::pair{*lo, *hi};
}

// A check of an option's text: the message CLI11 shows after the option's name.
CLI::Validator check(std::function<bool(const std::string&)> ok, std::string why) {
    return CLI::Validator([ok, why](std::string& text) { return ok(text) ? std::string() : why + ": " + text; }, "");
}

}  // namespace

void addRenderCommand(CLI::App& app, int& status) {
    struct Args {
        std::string in, out, field, views, size = "1200x900", range, colormap, difference;
        std::optional<double> azimuth, elevation;
        double zoom = 1.0;
        int samples = 2;
        bool transparent = false;
    };
    auto a = std::make_shared<Args>();
    CLI::App* cmd = app.add_subcommand("render", "Draw a field on the model as a PNG picture with a colour bar");
    cmd->add_option("model", a->in, "Model to read (apt, fld, dat, wrl)")->required();
    cmd->add_option("out", a->out, "PNG file to write")
        ->required()
        ->check(check(
            [](const std::string& f) {
                std::string e = std::filesystem::path(f).extension().string();
                std::transform(e.begin(), e.end(), e.begin(), [](unsigned char c) { return std::tolower(c); });
                return e == ".png";
            },
            "not a .png file"));
    cmd->add_option("--field", a->field, "Name of the field shown");
    cmd->add_option("--difference", a->difference, "A,B: show field A - B with the diverging map, symmetric range")
        ->check(check([](const std::string& t) { const auto l = splitList(t);
                          return l.size() == 2 && !l[0].empty() && !l[1].empty(); },
                      "not two field names A,B"));
    const std::string viewNames = joined(View::names());
    cmd->add_option("--views", a->views, "Views on one sheet, comma-separated: " + viewNames + " (default iso)")
        ->check(check(
            [](const std::string& t) {
                const auto l = splitList(t);
                return !l.empty() && std::all_of(l.begin(), l.end(), [](const std::string& v) {
                    return View::named(v).has_value();
                });
            },
            "not a list of " + viewNames));
    auto* az = cmd->add_option("--azimuth", a->azimuth, "View from this azimuth, degrees about z from +x towards +y");
    auto* el = cmd->add_option("--elevation", a->elevation, "View from this elevation, degrees above the x-y plane")
                   ->check(CLI::Range(-90.0, 90.0));
    cmd->add_option("--zoom", a->zoom, "Enlarge every view by this factor")
        ->check(check([](const std::string& t) { const auto z = number(t); return z && *z > 0 && *z <= 1000; },
                      "not a factor above 0"))
        ->capture_default_str();
    cmd->add_option("--size", a->size, "Picture size WxH in pixels, 16 to 8192 a side")
        ->check(check([](const std::string& t) { return pictureSize(t).has_value(); }, "not WxH in pixels, 16 to 8192"))
        ->capture_default_str();
    cmd->add_option("--range", a->range, "LO,HI: values at the ends of the colour map (default: the field's range)")
        ->check(check([](const std::string& t) { return rangeOf(t).has_value(); }, "not two numbers LO,HI with LO < HI"));
    const std::string mapNames = joined(ColorMap::names());
    cmd->add_option("--colormap", a->colormap, "Colour map: " + mapNames + " (default viridis; coolwarm for --difference)")
        ->check(check([](const std::string& t) { return ColorMap::named(t).has_value(); }, "not one of " + mapNames));
    cmd->add_option("--samples", a->samples, "Rays a pixel side against jagged edges (samples x samples)")
        ->check(CLI::Range(1, 8))
        ->capture_default_str();
    cmd->add_flag("--transparent", a->transparent, "Transparent background instead of white");
    az->excludes("--views");
    el->excludes("--views");

    cmd->callback([a, &status] {
        if (a->field.empty() == a->difference.empty())
            throw CLI::ValidationError("--field", "give either --field NAME or --difference A,B");
        PictureOptions o;
        if (!a->difference.empty()) {
            const auto l = splitList(a->difference);
            o.field = l[0];
            o.minus = l[1];
        } else {
            o.field = a->field;
        }
        if (a->azimuth || a->elevation) {
            View v{"", a->azimuth.value_or(225.0), a->elevation.value_or(30.0), a->zoom};
            o.views = {v};
        } else {
            o.views.clear();
            for (const std::string& name : splitList(a->views.empty() ? "iso" : a->views)) {
                View v = *View::named(name);
                v.zoom = a->zoom;
                o.views.push_back(v);
            }
        }
        const auto size = *pictureSize(a->size);
        o.width = size.first;
        o.height = size.second;
        o.samples = a->samples;
        if (!a->range.empty()) {
            const auto r = *rangeOf(a->range);
            o.low = r.first;
            o.high = r.second;
        }
        o.colormap = a->colormap;
        o.transparent = a->transparent;

        region reg;
        region_fe reg_fe;
        if (!loadModel({a->in}, false, reg, reg_fe)) {
            status = kFailure;
            return;
        }
        const Picture p = renderPicture(reg, reg_fe, o);
        if (!p) {
            std::cerr << "tundrel: render: " << a->in << ": " << p.message << '\n';
            status = kFailure;
            return;
        }
        const SafeWriteResult w = writeFileSafely(a->out, [&](const std::string& f) { return writePng(p.image, f); });
        if (!w) {
            std::cerr << "tundrel: render: " << w.message << '\n';
            status = kFailure;
        }
    });
}

}  // namespace tundrel::cli
