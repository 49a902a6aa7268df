// Pictures of a field on the model: ray casting on the surface's Embree scene,
// colour maps, a colour bar and a title line drawn with Cairo, PNG files.
//
// Coordinates: x runs downstream, y to the right wing tip, z up. The named
// views look along an axis and project orthographically (lengths keep their
// scale across the picture, as in a drawing):
//   top     from +z, x to the right, y up      bottom  from -z, x to the right, -y up
//   left    from -y, x to the right, z up      right   from +y, -x to the right, z up
//   front   from -x (upstream), -y to the right back    from +x, y to the right, z up
//   iso     from azimuth 225, elevation 30 (front left, above)
// A view by angles looks from azimuth A (degrees about z, from +x towards +y)
// and elevation E (degrees above the x-y plane) with z up. Each view fits the
// projected model into its frame; zoom > 1 enlarges about the frame's centre.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "api/export.h"
#include "api/field_selection.h"
#include "api/geo.h"
#include "api/ngeo.h"

namespace tundrel {

// A colour map: a table of sRGB colours from the low end to the high,
// interpolated linearly between entries.
class TUNDREL_API ColorMap {
public:
    // "viridis" (the default), "magma", "cividis", "coolwarm" and its other
    // name "diverging"; nothing for another name.
    static std::optional<ColorMap> named(std::string_view name);
    // The names named() knows, in that order.
    static std::vector<std::string> names();

    const std::string& name() const noexcept { return name_; }
    // True for maps meant for signed values about zero.
    bool diverging() const noexcept { return diverging_; }
    // The colour at t in [0, 1] (clamped; NaN gives the low end), components 0..1.
    void color(double t, float rgb[3]) const noexcept;

private:
    std::string name_;
    const float (*table_)[3] = nullptr;
    int size_ = 0;
    bool diverging_ = false;
};

struct TUNDREL_API View {
    std::string name;  // shown in the corner of the view; empty for none
    double azimuth = 225.0, elevation = 30.0, zoom = 1.0;

    // iso top bottom left right front back; nothing for another name.
    static std::optional<View> named(std::string_view name);
    static std::vector<std::string> names();
};

// An image, RGBA with straight (not premultiplied) alpha, 8 bits a component,
// row after row from the top left.
struct RgbaImage {
    int width = 0, height = 0;
    std::vector<std::uint8_t> pixels;

    const std::uint8_t* at(int x, int y) const { return pixels.data() + 4 * (static_cast<std::size_t>(y) * width + x); }
};

// A text the sheet carries and its box in pixels.
struct TextBox {
    std::string text;
    double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};

// How rays are traced: one at a time, or in packets of 8 or 16 (faster).
enum class RayTracing { Single, Packet8, Packet16 };

// The surface's scene, built once, from which any number of views render. The
// container must outlive the renderer and keep its positions meanwhile.
class TUNDREL_API FieldRenderer {
public:
    explicit FieldRenderer(const FieldMasterD& field);
    ~FieldRenderer();
    FieldRenderer(const FieldRenderer&) = delete;
    FieldRenderer& operator=(const FieldRenderer&) = delete;

    // The field `values` (one per node of the container, in its global
    // numbering; below kNoValueBelow or NaN is no value) seen from `view` in a
    // width x height image with samples x samples rays a pixel: colours of
    // `map` over [low, high], Lambert shaded from a light at the eye, no-value
    // nodes grey, background white or transparent. Throws
    // arrayWorks::IndexError when values has another length.
    RgbaImage render(std::span<const double> values, const View& view, double low, double high, const ColorMap& map,
                     int width, int height, int samples = 2, bool transparent = false,
                     RayTracing tracing = RayTracing::Packet8) const;

    // Rays traced by this renderer so far (every sample of every call).
    std::uint64_t raysTraced() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// The smallest and largest value that is not no value; nothing when no node
// has a value.
TUNDREL_API std::optional<std::pair<double, double>> valueRange(std::span<const double> values);

struct PictureOptions {
    std::string field;       // the scalar function shown
    std::string minus;       // when set: the picture shows field - minus
    std::vector<View> views = {View{"iso", 225.0, 30.0, 1.0}};
    int width = 1200, height = 900;  // the whole sheet
    int samples = 2;                 // rays a pixel: samples x samples
    std::optional<double> low, high; // default: the values' range (symmetric about 0 for a difference)
    std::string colormap;            // default: viridis, coolwarm for a difference
    bool transparent = false;
    bool colorBar = true;
    std::string title;               // the title line; empty for none
};

struct Picture {
    RgbaImage image;
    std::vector<TextBox> texts;  // every text drawn: title, view names, bar label, tick numbers
    double low = 0, high = 0;    // the range the colours span
    std::string message;         // why there is no picture

    explicit operator bool() const noexcept { return image.width > 0; }
};

// The title line of a model: "TITLE   Mach 0.8   alpha 2   beta 0".
TUNDREL_API std::string pictureTitle(const std::string& modelTitle, double mach, double alpha, double beta);

// The colour bar's round tick values (1, 2 or 5 times a power of ten, about
// six over the range) inside [low, high], and the decimals that show them;
// none for an empty or unbounded range.
TUNDREL_API std::vector<double> colorBarTicks(double low, double high, int* decimals = nullptr);

// A sheet: the views side by side (a grid for many), one colour bar with
// ticks, numbers and the field's name on the right, the title line above.
// Refused (a message, no image) for a field the container does not hold as
// a scalar, a field with no value at any node, an unknown colour map, a size
// below 16 or above 8192 pixels a side, samples outside 1..8, or a range
// whose low end is not below its high end.
TUNDREL_API Picture renderPicture(const FieldMasterD& field, const PictureOptions& options);
// The same for a model, moved into a container on the way.
TUNDREL_API Picture renderPicture(const region& reg, const region_fe& reg_fe, PictureOptions options);

// Writes the image as a PNG file; false when it cannot be written (a partly
// written file may be left).
TUNDREL_API bool writePng(const RgbaImage& image, const std::string& file);

}  // namespace tundrel
