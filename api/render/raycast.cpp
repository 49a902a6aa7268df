// Ray casting a field on the surface: one orthographic ray a sample, traced
// on the Embree scene of the surface in packets, tile by tile in parallel.
#include <embree3/rtcore.h>

#include <algorithm>
#include <atomic>
#include <cmath>

#include "api/arrayWorks.h"
#include "api/detail/surface_bvh.h"
#include "api/render/render.h"

namespace tundrel {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr float kAmbient = 0.3f;             // share of the light that does not depend on the face's slope
constexpr float kNoValueGrey = 0.62f;        // the colour of no-value nodes
constexpr double kMargin = 0.04;             // of the frame, on every side
constexpr int kTile = 8;                     // pixels a tile side

// An orthographic camera in the scene's coordinates (positions minus the
// scene's origin): screen axes right and up, viewing direction forward;
// screen point (a, b) is the ray a * right + b * up + depth * forward.
struct Camera {
    double right[3], up[3], forward[3];
    double a0 = 0, b0 = 0;  // the screen point at the image's top left corner
    double pixel = 1;       // scene units a pixel
    double depth = 0;       // where rays start, in front of every node
};

void cross(const double p[3], const double q[3], double out[3]) {
    out[0] = p[1] * q[2] - p[2] * q[1];
    out[1] = p[2] * q[0] - p[0] * q[2];
    out[2] = p[0] * q[1] - p[1] * q[0];
}

void normalise(double v[3]) {
    const double n = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (n > 0)
        for (int k = 0; k < 3; ++k) v[k] /= n;
}

Camera fitCamera(const Surface& s, const std::array<double, 3>& origin, const View& view, int width, int height) {
    Camera c;
    const double az = view.azimuth * kPi / 180.0, el = std::clamp(view.elevation, -90.0, 90.0) * kPi / 180.0;
    const double toEye[3] = {std::cos(el) * std::cos(az), std::cos(el) * std::sin(az), std::sin(el)};
    for (int k = 0; k < 3; ++k) c.forward[k] = -toEye[k];
    if (std::abs(std::cos(el)) < 1e-9) {
        // Straight down or up: the horizontal direction of the azimuth gives "up",
        // as the limit of a slightly tilted view.
        const double sign = el > 0 ? -1.0 : 1.0;
        c.up[0] = sign * std::cos(az);
        c.up[1] = sign * std::sin(az);
        c.up[2] = 0;
    } else {
        const double z[3] = {0, 0, 1};
        const double along = c.forward[2];
        for (int k = 0; k < 3; ++k) c.up[k] = z[k] - along * c.forward[k];
    }
    normalise(c.up);
    cross(c.forward, c.up, c.right);
    normalise(c.right);

    double lo[3] = {INFINITY, INFINITY, INFINITY}, hi[3] = {-INFINITY, -INFINITY, -INFINITY};
    for (std::size_t n = 0; n < s.nodeCount(); ++n) {
        const double q[3] = {s.x[n] - origin[0], s.y[n] - origin[1], s.z[n] - origin[2]};
        const double p[3] = {q[0] * c.right[0] + q[1] * c.right[1] + q[2] * c.right[2],
                             q[0] * c.up[0] + q[1] * c.up[1] + q[2] * c.up[2],
                             q[0] * c.forward[0] + q[1] * c.forward[1] + q[2] * c.forward[2]};
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], p[k]);
            hi[k] = std::max(hi[k], p[k]);
        }
    }
    if (!(lo[0] <= hi[0])) {
        for (int k = 0; k < 3; ++k) lo[k] = hi[k] = 0;
    }
    const double spanA = std::max(hi[0] - lo[0], 1e-12), spanB = std::max(hi[1] - lo[1], 1e-12);
    const double fit = std::min(width / spanA, height / spanB) * (1.0 - 2 * kMargin);
    const double zoom = view.zoom > 0 && std::isfinite(view.zoom) ? view.zoom : 1.0;
    c.pixel = 1.0 / (fit * zoom);
    c.a0 = 0.5 * (lo[0] + hi[0]) - 0.5 * width * c.pixel;
    c.b0 = 0.5 * (lo[1] + hi[1]) + 0.5 * height * c.pixel;
    c.depth = lo[2] - 0.01 * (hi[2] - lo[2]) - 1e-6 * std::max(spanA, spanB);
    return c;
}

// What one sample gives: premultiplied colour and coverage.
struct Sample {
    float r, g, b, a;
};

struct Shader {
    const Surface& s;
    std::span<const double> values;
    const ColorMap& map;
    double low, scale;  // t = (value - low) * scale
    const Camera& cam;
    Sample background;

    Sample shade(unsigned prim, float u, float v, float nx, float ny, float nz) const {
        const std::int32_t* t = s.triangles.data() + 3 * static_cast<std::size_t>(prim);
        const float w[3] = {1.0f - u - v, u, v};
        int nearest = 0;
        for (int k = 1; k < 3; ++k)
            if (w[k] > w[nearest]) nearest = k;
        double sum = 0, weight = 0;
        bool known[3];
        for (int k = 0; k < 3; ++k) {
            const double value = values[static_cast<std::size_t>(t[k])];
            known[k] = value >= kNoValueBelow && std::isfinite(value);
            if (known[k]) {
                sum += w[k] * value;
                weight += w[k];
            }
        }
        float rgb[3] = {kNoValueGrey, kNoValueGrey, kNoValueGrey};
        if (known[nearest] && weight > 0) map.color((sum / weight - low) * scale, rgb);
        const double len = std::sqrt(double(nx) * nx + double(ny) * ny + double(nz) * nz);
        const double facing =
            len > 0 ? std::abs(nx * cam.forward[0] + ny * cam.forward[1] + nz * cam.forward[2]) / len : 1.0;
        const float light = kAmbient + (1.0f - kAmbient) * static_cast<float>(facing);
        return {rgb[0] * light, rgb[1] * light, rgb[2] * light, 1.0f};
    }
};

// The rays of one tile: samples x samples a pixel, in packets of N rays
// that each cover a small square of the tile's sample grid.
template <int N>
void traceTile(RTCScene scene, const Camera& cam, const Shader& shader, int x0, int y0, int width, int height,
               int samples, RayTracing tracing, std::vector<Sample>& acc) {
    constexpr int kSide = N == 16 ? 4 : N == 8 ? 4 : 1;  // packet footprint: kSide x (N / kSide) samples
    constexpr int kRows = N / kSide;
    const int tw = std::min(kTile, width - x0), th = std::min(kTile, height - y0);
    const int gw = tw * samples, gh = th * samples;  // the tile's sample grid
    std::fill(acc.begin(), acc.end(), Sample{0, 0, 0, 0});
    RTCIntersectContext ctx;
    rtcInitIntersectContext(&ctx);
    if (tracing != RayTracing::Single) ctx.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
    for (int gy = 0; gy < gh; gy += kRows) {
        for (int gx = 0; gx < gw; gx += kSide) {
            alignas(64) RTCRayHitNt<N> rh;  // packets must be aligned to their size
            alignas(64) int valid[N];
            int px[N], py[N];
            for (int k = 0; k < N; ++k) {
                const int sx = gx + k % kSide, sy = gy + k / kSide;
                valid[k] = sx < gw && sy < gh ? -1 : 0;
                px[k] = sx / samples;
                py[k] = sy / samples;
                const double a = cam.a0 + (x0 + (sx + 0.5) / samples) * cam.pixel;
                const double b = cam.b0 - (y0 + (sy + 0.5) / samples) * cam.pixel;
                rh.ray.org_x[k] = static_cast<float>(a * cam.right[0] + b * cam.up[0] + cam.depth * cam.forward[0]);
                rh.ray.org_y[k] = static_cast<float>(a * cam.right[1] + b * cam.up[1] + cam.depth * cam.forward[1]);
                rh.ray.org_z[k] = static_cast<float>(a * cam.right[2] + b * cam.up[2] + cam.depth * cam.forward[2]);
                rh.ray.dir_x[k] = static_cast<float>(cam.forward[0]);
                rh.ray.dir_y[k] = static_cast<float>(cam.forward[1]);
                rh.ray.dir_z[k] = static_cast<float>(cam.forward[2]);
                rh.ray.tnear[k] = 0.0f;
                rh.ray.tfar[k] = INFINITY;
                rh.ray.time[k] = 0.0f;
                rh.ray.mask[k] = 0xFFFFFFFFu;
                rh.ray.id[k] = static_cast<unsigned>(k);
                rh.ray.flags[k] = 0;
                rh.hit.geomID[k] = RTC_INVALID_GEOMETRY_ID;
                rh.hit.primID[k] = RTC_INVALID_GEOMETRY_ID;
            }
            if constexpr (N == 16) {
                rtcIntersect16(valid, scene, &ctx, reinterpret_cast<RTCRayHit16*>(&rh));
            } else if constexpr (N == 8) {
                rtcIntersect8(valid, scene, &ctx, reinterpret_cast<RTCRayHit8*>(&rh));
            } else {
                RTCRayHit one{};
                one.ray.org_x = rh.ray.org_x[0];
                one.ray.org_y = rh.ray.org_y[0];
                one.ray.org_z = rh.ray.org_z[0];
                one.ray.dir_x = rh.ray.dir_x[0];
                one.ray.dir_y = rh.ray.dir_y[0];
                one.ray.dir_z = rh.ray.dir_z[0];
                one.ray.tfar = INFINITY;
                one.ray.mask = 0xFFFFFFFFu;
                one.hit.geomID = RTC_INVALID_GEOMETRY_ID;
                if (valid[0] != 0) rtcIntersect1(scene, &ctx, &one);
                rh.hit.geomID[0] = one.hit.geomID;
                rh.hit.primID[0] = one.hit.primID;
                rh.hit.u[0] = one.hit.u;
                rh.hit.v[0] = one.hit.v;
                rh.hit.Ng_x[0] = one.hit.Ng_x;
                rh.hit.Ng_y[0] = one.hit.Ng_y;
                rh.hit.Ng_z[0] = one.hit.Ng_z;
            }
            for (int k = 0; k < N; ++k) {
                if (valid[k] == 0) continue;
                const Sample s = rh.hit.geomID[k] == RTC_INVALID_GEOMETRY_ID
                                     ? shader.background
                                     : shader.shade(rh.hit.primID[k], rh.hit.u[k], rh.hit.v[k], rh.hit.Ng_x[k],
                                                    rh.hit.Ng_y[k], rh.hit.Ng_z[k]);
                Sample& p = acc[static_cast<std::size_t>(py[k] * kTile + px[k])];
                p.r += s.r;
                p.g += s.g;
                p.b += s.b;
                p.a += s.a;
            }
        }
    }
}

std::uint8_t byte(float v) { return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); }

}  // namespace

struct FieldRenderer::Impl {
    Surface surface;
    SurfaceBvh bvh;
    std::atomic<std::uint64_t> rays{0};

    explicit Impl(const FieldMasterD& field) : surface(field), bvh(surface, false) {}
};

FieldRenderer::FieldRenderer(const FieldMasterD& field) : impl_(std::make_unique<Impl>(field)) {}
FieldRenderer::~FieldRenderer() = default;

std::uint64_t FieldRenderer::raysTraced() const noexcept { return impl_->rays.load(); }

RgbaImage FieldRenderer::render(std::span<const double> values, const View& view, double low, double high,
                                const ColorMap& map, int width, int height, int samples, bool transparent,
                                RayTracing tracing) const {
    const Surface& s = impl_->surface;
    if (values.size() != s.nodeCount()) throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
    if (width < 1 || height < 1 || samples < 1 || samples > 16)
        throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
    const Camera cam = fitCamera(s, impl_->bvh.origin(), view, width, height);
    const double scale = high > low ? 1.0 / (high - low) : 0.0;
    const Sample background = transparent ? Sample{0, 0, 0, 0} : Sample{1, 1, 1, 1};
    const Shader shader{s, values, map, low, scale, cam, background};
    RgbaImage image;
    image.width = width;
    image.height = height;
    image.pixels.assign(4 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0);
    const int tilesX = (width + kTile - 1) / kTile, tilesY = (height + kTile - 1) / kTile;
    const int tiles = tilesX * tilesY;
    const float perPixel = 1.0f / static_cast<float>(samples * samples);
    RTCScene scene = impl_->bvh.scene();
#pragma omp parallel
    {
        std::vector<Sample> acc(kTile * kTile);
#pragma omp for schedule(dynamic, 4)
        for (int t = 0; t < tiles; ++t) {
            const int x0 = (t % tilesX) * kTile, y0 = (t / tilesX) * kTile;
            switch (tracing) {
                case RayTracing::Single: traceTile<1>(scene, cam, shader, x0, y0, width, height, samples, tracing, acc); break;
                case RayTracing::Packet8: traceTile<8>(scene, cam, shader, x0, y0, width, height, samples, tracing, acc); break;
                case RayTracing::Packet16: traceTile<16>(scene, cam, shader, x0, y0, width, height, samples, tracing, acc); break;
            }
            for (int y = y0; y < std::min(y0 + kTile, height); ++y)
                for (int x = x0; x < std::min(x0 + kTile, width); ++x) {
                    const Sample& p = acc[static_cast<std::size_t>((y - y0) * kTile + (x - x0))];
                    std::uint8_t* out = image.pixels.data() + 4 * (static_cast<std::size_t>(y) * width + x);
                    const float a = p.a * perPixel;
                    const float un = p.a > 0 ? 1.0f / p.a : 0.0f;  // straight colour from premultiplied
                    out[0] = byte(p.r * un);
                    out[1] = byte(p.g * un);
                    out[2] = byte(p.b * un);
                    out[3] = byte(a);
                }
        }
    }
    impl_->rays += static_cast<std::uint64_t>(width) * height * samples * samples;
    return image;
}

}  // namespace tundrel
