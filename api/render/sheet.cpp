// The sheet: views laid out in a grid, one colour bar with ticks, numbers and
// the field's name, a title line; composed and written as PNG with Cairo.
#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "api/fields/fields.h"
#include "api/render/render.h"

namespace tundrel {

namespace {

using SurfacePtr = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using ContextPtr = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

constexpr int kMinSize = 16, kMaxSize = 8192, kMaxSamples = 8;

SurfacePtr newSurface(int width, int height) {
    return {cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height), &cairo_surface_destroy};
}

// Cairo's pixels are premultiplied 32-bit words 0xAARRGGBB in native order.
SurfacePtr toCairo(const RgbaImage& image) {
    SurfacePtr s = newSurface(image.width, image.height);
    if (cairo_surface_status(s.get()) != CAIRO_STATUS_SUCCESS) return s;
    cairo_surface_flush(s.get());
    unsigned char* data = cairo_image_surface_get_data(s.get());
    const int stride = cairo_image_surface_get_stride(s.get());
    for (int y = 0; y < image.height; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride);
        for (int x = 0; x < image.width; ++x) {
            const std::uint8_t* p = image.at(x, y);
            const std::uint32_t a = p[3];
            auto pre = [a](std::uint32_t c) { return (c * a + 127) / 255; };
            row[x] = (a << 24) | (pre(p[0]) << 16) | (pre(p[1]) << 8) | pre(p[2]);
        }
    }
    cairo_surface_mark_dirty(s.get());
    return s;
}

RgbaImage fromCairo(cairo_surface_t* s) {
    cairo_surface_flush(s);
    RgbaImage image;
    image.width = cairo_image_surface_get_width(s);
    image.height = cairo_image_surface_get_height(s);
    image.pixels.resize(4 * static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height));
    const unsigned char* data = cairo_image_surface_get_data(s);
    const int stride = cairo_image_surface_get_stride(s);
    for (int y = 0; y < image.height; ++y) {
        const auto* row = reinterpret_cast<const std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride);
        for (int x = 0; x < image.width; ++x) {
            const std::uint32_t w = row[x], a = w >> 24;
            auto un = [a](std::uint32_t c) { return a == 0 ? 0u : std::min(255u, (c * 255 + a / 2) / a); };
            std::uint8_t* p = image.pixels.data() + 4 * (static_cast<std::size_t>(y) * image.width + x);
            p[0] = static_cast<std::uint8_t>(un((w >> 16) & 0xFF));
            p[1] = static_cast<std::uint8_t>(un((w >> 8) & 0xFF));
            p[2] = static_cast<std::uint8_t>(un(w & 0xFF));
            p[3] = static_cast<std::uint8_t>(a);
        }
    }
    return image;
}

std::string formatValue(double v, int decimals) {
    char text[64];
    if (decimals < 0) std::snprintf(text, sizeof text, "%.4g", v);
    else std::snprintf(text, sizeof text, "%.*f", decimals, v);
    std::string s = text;
    if (s == "-0" || s.find_first_not_of("-0.") == std::string::npos) s = s.substr(s[0] == '-' ? 1 : 0);
    return s;
}

// Draws `text` with its left end at x and its baseline at y (right end when
// alignRight), and records its ink box.
void drawText(cairo_t* cr, std::vector<TextBox>& texts, const std::string& text, double x, double y,
              bool alignRight = false) {
    cairo_text_extents_t e;
    cairo_text_extents(cr, text.c_str(), &e);
    if (alignRight) x -= e.x_advance;
    cairo_move_to(cr, x, y);
    cairo_show_text(cr, text.c_str());
    texts.push_back({text, x + e.x_bearing, y + e.y_bearing, x + e.x_bearing + e.width, y + e.y_bearing + e.height});
}

void drawColorBar(cairo_t* cr, std::vector<TextBox>& texts, const ColorMap& map, double low, double high,
                  const std::string& label, double x, double top, double bottom, double font) {
    const double barWidth = std::round(font * 1.4);
    const int rows = std::max(2, static_cast<int>(bottom - top));
    RgbaImage g;
    g.width = 1;
    g.height = rows;
    g.pixels.resize(4 * static_cast<std::size_t>(rows));
    for (int r = 0; r < rows; ++r) {
        float rgb[3];
        map.color(1.0 - (r + 0.5) / rows, rgb);
        for (int c = 0; c < 3; ++c) g.pixels[4 * r + c] = static_cast<std::uint8_t>(std::lround(rgb[c] * 255.0f));
        g.pixels[4 * r + 3] = 255;
    }
    const SurfacePtr strip = toCairo(g);
    cairo_save(cr);
    cairo_translate(cr, x, top);
    cairo_scale(cr, barWidth, (bottom - top) / rows);
    cairo_set_source_surface(cr, strip.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_NEAREST);
    cairo_rectangle(cr, 0, 0, 1, rows);
    cairo_fill(cr);
    cairo_restore(cr);

    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 1.0);
    cairo_rectangle(cr, x + 0.5, top + 0.5, barWidth - 1, bottom - top - 1);
    cairo_stroke(cr);
    drawText(cr, texts, label, x, top - 0.8 * font);

    // The end values always, round ticks between them where they leave room.
    auto yOf = [&](double v) { return bottom - (v - low) / (high - low) * (bottom - top); };
    const double tx = x + barWidth + 0.4 * font;
    auto tick = [&](double v, const std::string& text) {
        const double y = std::round(yOf(v)) + 0.5;
        cairo_move_to(cr, x + barWidth, y);
        cairo_line_to(cr, x + barWidth + 0.3 * font, y);
        cairo_stroke(cr);
        drawText(cr, texts, text, tx, y + 0.35 * font);
    };
    tick(high, formatValue(high, -1));
    tick(low, formatValue(low, -1));
    int decimals = 0;
    for (double v : colorBarTicks(low, high, &decimals))
        if (std::abs(yOf(v) - yOf(low)) > 2.0 * font && std::abs(yOf(v) - yOf(high)) > 2.0 * font)
            tick(v, formatValue(v, decimals));
}

Picture refuse(std::string why) {
    Picture p;
    p.message = std::move(why);
    return p;
}

std::string scalarNames(const FieldMasterD& field) {
    std::string names;
    for (int i = 0; i < field.functionCount(); ++i) {
        const std::string n = field.functionAt(i)->name();
        if (field.scalar(i) != nullptr && n.rfind("$_", 0) != 0) names += (names.empty() ? "" : ", ") + n;
    }
    return names.empty() ? "none" : names;
}

const arrayWorks::ScalarFunction* scalarNamed(const FieldMasterD& field, const std::string& name) {
    const int i = field.findFunction(name);
    return i < 0 ? nullptr : field.scalar(i);
}

}  // namespace

std::vector<double> colorBarTicks(double low, double high, int* decimals) {
    const double raw = (high - low) / 6.0;
    if (!(raw > 0) || !std::isfinite(raw)) return {};
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    double step = 10.0 * power;
    for (double m : {1.0, 2.0, 5.0})
        if (m * power >= raw) {
            step = m * power;
            break;
        }
    if (decimals != nullptr) *decimals = std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)));
    std::vector<double> list;
    for (double k = std::ceil(low / step); k * step <= high && list.size() < 50; k += 1.0)
        list.push_back(std::abs(k * step) < 1e-12 * step ? 0.0 : k * step);
    return list;
}

std::string pictureTitle(const std::string& modelTitle, double mach, double alpha, double beta) {
    char flow[160];
    std::snprintf(flow, sizeof flow, "Mach %g   alpha %g\u00b0   beta %g\u00b0", mach, alpha, beta);
    return modelTitle.empty() ? flow : modelTitle + "   " + flow;
}

Picture renderPicture(const FieldMasterD& field, const PictureOptions& o) {
    const arrayWorks::ScalarFunction* f = scalarNamed(field, o.field);
    if (f == nullptr) return refuse("no field " + o.field + " (fields: " + scalarNames(field) + ")");
    const arrayWorks::ScalarFunction* g = nullptr;
    if (!o.minus.empty() && (g = scalarNamed(field, o.minus)) == nullptr)
        return refuse("no field " + o.minus + " (fields: " + scalarNames(field) + ")");
    if (o.width < kMinSize || o.height < kMinSize || o.width > kMaxSize || o.height > kMaxSize)
        return refuse("the picture's size must be between 16 and 8192 pixels a side");
    if (o.samples < 1 || o.samples > kMaxSamples) return refuse("samples must be between 1 and 8");
    if (o.views.empty()) return refuse("no view");
    const std::string mapName = !o.colormap.empty() ? o.colormap : g != nullptr ? "coolwarm" : "viridis";
    const std::optional<ColorMap> map = ColorMap::named(mapName);
    if (!map) return refuse("no colour map " + mapName);

    std::vector<double> values(f->data(), f->data() + f->size());
    if (g != nullptr)
        for (std::size_t n = 0; n < values.size(); ++n) {
            const double b = g->data()[n];
            values[n] = values[n] >= kNoValueBelow && b >= kNoValueBelow ? values[n] - b : kNoValue;
        }
    const auto range = valueRange(values);
    if (!range && !(o.low && o.high)) return refuse(o.field + " has no value at any node");
    double low = range ? range->first : 0, high = range ? range->second : 0;
    if (map->diverging() && range) low = -(high = std::max(std::abs(low), std::abs(high)));
    if (!o.low && !o.high && !(low < high)) {
        const double d = std::max(1e-6 * std::abs(low), 1e-9);
        low -= d;
        high += d;
    }
    low = o.low.value_or(low);
    high = o.high.value_or(high);
    if (!(low < high) || !std::isfinite(low) || !std::isfinite(high))
        return refuse("the range's low end must be below its high end");

    const int W = o.width, H = o.height;
    SurfacePtr sheet = newSurface(W, H);
    ContextPtr cr(cairo_create(sheet.get()), &cairo_destroy);
    if (cairo_status(cr.get()) != CAIRO_STATUS_SUCCESS) return refuse("no memory for the picture");
    if (!o.transparent) {
        cairo_set_source_rgb(cr.get(), 1, 1, 1);
        cairo_paint(cr.get());
    }
    cairo_select_font_face(cr.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);

    // The colour bar's band is as wide as its widest number or its label.
    const double font = std::clamp(H / 45.0, 11.0, 28.0);
    const std::string label = g != nullptr ? o.field + " - " + o.minus : o.field;
    double barBand = 0.0;
    if (o.colorBar) {
        cairo_set_font_size(cr.get(), font);
        int decimals = 0;
        std::vector<std::string> numbers = {formatValue(low, -1), formatValue(high, -1)};
        for (double v : colorBarTicks(low, high, &decimals)) numbers.push_back(formatValue(v, decimals));
        double widest = 0.0;
        for (const std::string& t : numbers) {
            cairo_text_extents_t e;
            cairo_text_extents(cr.get(), t.c_str(), &e);
            widest = std::max(widest, e.x_advance);
        }
        cairo_text_extents_t e;
        cairo_text_extents(cr.get(), label.c_str(), &e);
        barBand = std::round(std::max(0.8 * font + 1.4 * font + 0.4 * font + widest, 0.8 * font + e.x_advance) +
                             0.8 * font);
    }
    const double titleBand = o.title.empty() ? 0.0 : std::round(font * 2.2);
    const int areaW = std::max(1, static_cast<int>(W - barBand)), areaH = std::max(1, static_cast<int>(H - titleBand));
    const int n = static_cast<int>(o.views.size());
    int cols = 1;
    for (int c = 1, best = -1; c <= n; ++c) {
        const int rows = (n + c - 1) / c, side = std::min(areaW / c, areaH / rows);
        if (side > best) best = side, cols = c;
    }
    const int rows = (n + cols - 1) / cols, cellW = areaW / cols, cellH = areaH / rows;
    if (cellW < 1 || cellH < 1) return refuse("the picture's size must be between 16 and 8192 pixels a side");

    Picture p;
    p.low = low;
    p.high = high;
    const FieldRenderer renderer(field);
    for (int k = 0; k < n; ++k) {
        const int x = (k % cols) * cellW, y = static_cast<int>(titleBand) + (k / cols) * cellH;
        const RgbaImage view =
            renderer.render(values, o.views[static_cast<std::size_t>(k)], low, high, *map, cellW, cellH, o.samples,
                            o.transparent);
        SurfacePtr s = toCairo(view);
        cairo_set_source_surface(cr.get(), s.get(), x, y);
        cairo_paint(cr.get());
        if (!o.views[static_cast<std::size_t>(k)].name.empty()) {
            cairo_set_source_rgb(cr.get(), 0.35, 0.35, 0.35);
            cairo_set_font_size(cr.get(), 0.9 * font);
            drawText(cr.get(), p.texts, o.views[static_cast<std::size_t>(k)].name, x + 0.6 * font, y + 1.4 * font);
        }
    }
    cairo_set_source_rgb(cr.get(), 0, 0, 0);
    if (!o.title.empty()) {
        cairo_set_font_size(cr.get(), 1.1 * font);
        drawText(cr.get(), p.texts, o.title, 0.6 * font, titleBand * 0.68);
    }
    if (o.colorBar) {
        cairo_set_font_size(cr.get(), font);
        drawColorBar(cr.get(), p.texts, *map, low, high, label, W - barBand + 0.8 * font, titleBand + 2.5 * font,
                     H - 1.5 * font, font);
    }
    if (cairo_status(cr.get()) != CAIRO_STATUS_SUCCESS) return refuse("the picture could not be drawn");
    p.image = fromCairo(sheet.get());
    return p;
}

Picture renderPicture(const region& reg, const region_fe& reg_fe, PictureOptions options) {
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(reg, reg_fe, field, flow);
    if (options.title.empty()) {
        const bool structured = reg.patchCount() > 0 || reg_fe.patchCount() == 0;
        options.title = pictureTitle(structured ? reg.name : reg_fe.name, flow.Mach, flow.alpha, flow.beta);
    }
    return renderPicture(field, options);
}

bool writePng(const RgbaImage& image, const std::string& file) {
    if (image.width < 1 || image.height < 1) return false;
    SurfacePtr s = toCairo(image);
    if (cairo_surface_status(s.get()) != CAIRO_STATUS_SUCCESS) return false;
    return cairo_surface_write_to_png(s.get(), file.c_str()) == CAIRO_STATUS_SUCCESS;
}

}  // namespace tundrel

// Fontconfig, which Cairo asks for its fonts, keeps a few allocations for the
// life of the process that it never frees; in a build with AddressSanitizer
// they are not counted as leaks of the program.
#if defined(__SANITIZE_ADDRESS__)
#define TUNDREL_LEAK_CHECKED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TUNDREL_LEAK_CHECKED 1
#endif
#endif
#ifdef TUNDREL_LEAK_CHECKED
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}
#endif
