// The surface hierarchy over Embree 3.
//
// Embree works in single precision. To keep the error small the vertices are
// stored relative to the centre of the surface's bounding box, so that the
// rounding of a position is about 6e-8 of the surface's half extent E, not of
// its distance from the origin. Every answer is then refined in double
// precision on the triangle Embree found.
//
// The obstruction test between nodes a and b ignores
//   - every triangle with a corner at a or b, or at another node at exactly
//     the same position (seam nodes of neighbouring patches are duplicates);
//   - every crossing closer than kEndTolerance * |b - a| + kExtentTolerance * E
//     to either end, which covers the single-precision rounding of the ends
//     and nodes of other patches that lie within that distance of an end.
// So a segment between two nodes that lie on the surface never counts the
// faces around its own ends as obstructions.
#include "api/detail/surface_bvh.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <numeric>
#include <tuple>
#include <vector>

#include "api/arrayWorks.h"

namespace tundrel {

namespace {

constexpr double kEndTolerance = 1e-6;
constexpr double kExtentTolerance = 1e-6;
// The ends of a packet's rays move in by their end regions less this much
// of (half extent + segment length): far more than the single-precision
// rounding of positions and of Embree's distances along a ray.
constexpr double kTrimMargin = 1e-4;
// Empty tangent balls are looked for up to this many times the surface's
// half extent, each with at most kBallBudget faces looked at.
constexpr double kBallCap = 2.0;
constexpr int kBallBudget = 256;
// Segments that leave an end closer than this (a sine) to the plane of one
// of the end's faces are traced whole.
constexpr double kLeastSlope = 1e-3;

std::atomic<bool> endRegionsByDefault{true};

// The intersection context of one obstruction test: Embree hands it to the
// filter, which rejects the faces around the segment's ends.
struct SegmentContext {
    RTCIntersectContext base;
    const std::int32_t* corners;  // welded corner numbers, three a triangle
    std::int32_t ignore[4];       // welded nodes whose faces do not count
    int ignored;
    const std::int32_t* rayEnds;  // a packet: the welded ends of ray k at 2k and 2k + 1; else null
};

void rejectEndFaces(const RTCFilterFunctionNArguments* args) {
    const auto* ctx = reinterpret_cast<const SegmentContext*>(args->context);
    for (unsigned i = 0; i < args->N; ++i) {
        if (args->valid[i] == 0) continue;
        const unsigned prim = RTCHitN_primID(args->hit, args->N, i);
        const std::int32_t* c = ctx->corners + 3 * static_cast<std::size_t>(prim);
        for (int k = 0; k < ctx->ignored; ++k)
            if (c[0] == ctx->ignore[k] || c[1] == ctx->ignore[k] || c[2] == ctx->ignore[k]) args->valid[i] = 0;
        if (ctx->rayEnds != nullptr) {
            const std::int32_t* e = ctx->rayEnds + 2 * static_cast<std::size_t>(RTCRayN_id(args->ray, args->N, i));
            for (int k = 0; k < 2; ++k)
                if (c[0] == e[k] || c[1] == e[k] || c[2] == e[k]) args->valid[i] = 0;
        }
    }
}

// The point of triangle (a, b, c) closest to p (Ericson, Real-Time Collision
// Detection, 5.1.5), in double precision.
void closestOnTriangle(const double p[3], const double a[3], const double b[3], const double c[3], double out[3]) {
    auto sub = [](const double* u, const double* v, double* w) {
        for (int k = 0; k < 3; ++k) w[k] = u[k] - v[k];
    };
    auto dot = [](const double* u, const double* v) { return u[0] * v[0] + u[1] * v[1] + u[2] * v[2]; };
    auto set = [&](double wa, double wb, double wc) {
        for (int k = 0; k < 3; ++k) out[k] = wa * a[k] + wb * b[k] + wc * c[k];
    };
    double ab[3], ac[3], ap[3], bp[3], cp[3];
    sub(b, a, ab);
    sub(c, a, ac);
    sub(p, a, ap);
    const double d1 = dot(ab, ap), d2 = dot(ac, ap);
    if (d1 <= 0 && d2 <= 0) return set(1, 0, 0);
    sub(p, b, bp);
    const double d3 = dot(ab, bp), d4 = dot(ac, bp);
    if (d3 >= 0 && d4 <= d3) return set(0, 1, 0);
    const double vc = d1 * d4 - d3 * d2;
    if (vc <= 0 && d1 >= 0 && d3 <= 0) {
        const double v = d1 / (d1 - d3);
        return set(1 - v, v, 0);
    }
    sub(p, c, cp);
    const double d5 = dot(ab, cp), d6 = dot(ac, cp);
    if (d6 >= 0 && d5 <= d6) return set(0, 0, 1);
    const double vb = d5 * d2 - d1 * d6;
    if (vb <= 0 && d2 >= 0 && d6 <= 0) {
        const double w = d2 / (d2 - d6);
        return set(1 - w, 0, w);
    }
    const double va = d3 * d6 - d5 * d4;
    if (va <= 0 && (d4 - d3) >= 0 && (d5 - d6) >= 0) {
        const double w = (d4 - d3) / ((d4 - d3) + (d5 - d6));
        return set(0, 1 - w, w);
    }
    const double denom = 1.0 / (va + vb + vc);
    const double v = vb * denom, w = vc * denom;
    set(1 - v - w, v, w);
}

// What the queries need, visible to the callbacks below.
struct BvhData {
    const Surface s;
    RTCDevice device = nullptr;
    RTCScene scene = nullptr;
    double centre[3] = {0, 0, 0};
    double extent = 0.0;               // largest coordinate distance from the centre
    std::vector<std::int32_t> weld;    // node -> lowest node at exactly the same position
    std::vector<std::int32_t> corners; // welded corners of every triangle

    // What lies around a node's end of a segment, worked out when a packet
    // first needs it (by whichever thread; every thread finds the same).
    struct NodeEnd {
        std::atomic<float> clear{0.0f};     // distance to the nearest face that does not touch the node
        std::atomic<float> ball[2] = {};    // radii of empty balls tangent at the node along +normal, -normal
        std::atomic<float> normal[3] = {};  // unit, or zero
        // |cos| of the angle between the normal and a segment below which the
        // segment leaves the node too near one of its faces' planes to be trimmed
        std::atomic<float> steepest{std::numeric_limits<float>::infinity()};
        std::atomic<std::uint8_t> ready{0}; // kCore, then kBall << side as each side's ball is found
        std::atomic<std::uint8_t> taken{0}; // the same bits, as a thread begins to find them
    };
    static constexpr std::uint8_t kCore = 1, kBall = 2;
    std::unique_ptr<NodeEnd[]> ends;    // by welded node; null for scenes without obstruction tests
    double ballCap = 0.0;               // the balls' radii are looked for up to ballCap * extent
    bool trim = false;                  // packets use the end regions

    explicit BvhData(const Surface& surface) : s(surface) {}
    BvhData(const BvhData&) = delete;
    BvhData& operator=(const BvhData&) = delete;
    ~BvhData() {
        if (scene != nullptr) rtcReleaseScene(scene);
        if (device != nullptr) rtcReleaseDevice(device);
    }

    // Positions by node, x y z together: a triangle's corners in three reads.
    std::vector<double> xyz;

    // Corner k of triangle t (by its welded node, which lies at the same position).
    void corner(std::int32_t t, int k, double out[3]) const {
        const double* q = xyz.data() + 3 * static_cast<std::size_t>(corners[3 * static_cast<std::size_t>(t) + static_cast<std::size_t>(k)]);
        out[0] = q[0];
        out[1] = q[1];
        out[2] = q[2];
    }
};

}  // namespace

struct SurfaceBvh::Impl : BvhData {
    using BvhData::BvhData;
};

namespace {

// The faces around a node's end of a segment, for the packets.
//
// A segment from node a counts only faces that touch neither end. Around a
// lie regions that no such face enters: the ball of radius `clear` about a,
// clear being the distance to the nearest face that does not touch a (nor
// a node at a's position), and balls tangent at a, centred at a + r n and
// a - r n (n the mean normal of a's faces), that no such face enters either.
// A segment from a in the direction u (unit) stays in them for the length
//     reach = max(clear, 2 r+ (n . u), 2 r- (-n . u)),
// so every crossing it has there is on a face that touches a and does not
// count: the ray may start that far from a, less a margin for the single-
// precision positions and distances that Embree works with. The stretch
// near the surface, where the hierarchy's boxes are many, is not traced.
struct EndQuery {
    const BvhData* impl;
    double p[3];
    std::int32_t self;    // welded node
    double best2;         // square of the nearest distance so far
    double normal[3];     // sum of the node's face normals, one orientation
    double n[3];          // the unit normal, for the balls
    bool balls;           // whether they are looked for
    float slack;
    int faceCount;        // the node's faces (unit normals), up to kFaces
    static constexpr int kFaces = 32;
    double face[kFaces][3];
};

// A float no larger than v.
float roundedDown(double v) { return std::nextafter(static_cast<float>(v), 0.0f); }
float roundedUp(double v) { return std::nextafter(static_cast<float>(v), std::numeric_limits<float>::infinity()); }

bool touches(const BvhData& m, std::int32_t t, std::int32_t w) {
    const std::int32_t* c = m.corners.data() + 3 * static_cast<std::size_t>(t);
    return c[0] == w || c[1] == w || c[2] == w;
}

bool visitEnd(RTCPointQueryFunctionArguments* args) {
    auto* q = static_cast<EndQuery*>(args->userPtr);
    const auto t = static_cast<std::int32_t>(args->primID);
    double a[3], b[3], c[3];
    q->impl->corner(t, 0, a);
    q->impl->corner(t, 1, b);
    q->impl->corner(t, 2, c);
    if (touches(*q->impl, t, q->self)) {
        {
            const double e1[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
            const double e2[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
            double f[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
            const double s = f[0] * q->normal[0] + f[1] * q->normal[1] + f[2] * q->normal[2] < 0 ? -1.0 : 1.0;
            for (int k = 0; k < 3; ++k) q->normal[k] += s * f[k];
            const double fn = std::sqrt(f[0] * f[0] + f[1] * f[1] + f[2] * f[2]);
            if (q->faceCount < EndQuery::kFaces && fn > 0.0)
                for (int k = 0; k < 3; ++k) q->face[q->faceCount][k] = f[k] / fn;
            q->faceCount = fn > 0.0 ? q->faceCount + 1 : EndQuery::kFaces + 1;
        }
        return false;
    }
    double cp[3];
    closestOnTriangle(q->p, a, b, c, cp);
    const double d2 = (cp[0] - q->p[0]) * (cp[0] - q->p[0]) + (cp[1] - q->p[1]) * (cp[1] - q->p[1]) +
                      (cp[2] - q->p[2]) * (cp[2] - q->p[2]);
    if (!(d2 < q->best2)) return false;
    q->best2 = d2;
    const double reach = std::sqrt(d2);
    const float r = static_cast<float>(reach) * 1.000001f + q->slack;
    if (r < args->query->radius) {
        args->query->radius = r;
        return true;
    }
    return false;
}

// Whether no face that does not touch node `self` enters the open ball of
// radius r about c; false too when that takes more than `budget` faces
// (`exhausted` then).
struct BallTest {
    const BvhData* impl;
    double c[3];
    double r2;
    std::int32_t self;
    int visits, budget;
    bool entered, exhausted;
};

// Whether triangle (a, b, c) comes closer than sqrt(r2) to p: a corner that
// close answers yes, a plane at least that far (by a relative margin well
// above rounding) no, and only the rest need the closest point.
bool entersBall(const double p[3], double r2, const double a[3], const double b[3], const double c[3]) {
    double d[3][3];
    for (int k = 0; k < 3; ++k) d[0][k] = a[k] - p[k], d[1][k] = b[k] - p[k], d[2][k] = c[k] - p[k];
    for (const auto& v : d)
        if (v[0] * v[0] + v[1] * v[1] + v[2] * v[2] < r2) return true;
    const double e1[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, e2[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
    const double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
    const double h = n[0] * d[0][0] + n[1] * d[0][1] + n[2] * d[0][2];
    if (h * h >= r2 * (n[0] * n[0] + n[1] * n[1] + n[2] * n[2]) * (1.0 + 1e-9)) return false;
    double cp[3];
    closestOnTriangle(p, a, b, c, cp);
    return (cp[0] - p[0]) * (cp[0] - p[0]) + (cp[1] - p[1]) * (cp[1] - p[1]) + (cp[2] - p[2]) * (cp[2] - p[2]) < r2;
}

bool visitBall(RTCPointQueryFunctionArguments* args) {
    auto* q = static_cast<BallTest*>(args->userPtr);
    const auto t = static_cast<std::int32_t>(args->primID);
    if (touches(*q->impl, t, q->self)) return false;
    double a[3], b[3], c[3];
    q->impl->corner(t, 0, a);
    q->impl->corner(t, 1, b);
    q->impl->corner(t, 2, c);
    const bool over = ++q->visits > q->budget;
    if (over || entersBall(q->c, q->r2, a, b, c)) {
        q->entered = true;
        q->exhausted = over;
        args->query->radius = 0.0f;
        return true;
    }
    return false;
}

// Whether the ball is empty; `exhausted` tells a ball given up on from one a face entered.
bool emptyBall(const BvhData& m, std::int32_t self, const double c[3], double r, bool* exhausted = nullptr) {
    BallTest q{&m, {c[0], c[1], c[2]}, r * r, self, 0, kBallBudget, false, false};
    const double far = std::abs(c[0] - m.centre[0]) + std::abs(c[1] - m.centre[1]) + std::abs(c[2] - m.centre[2]);
    RTCPointQuery query;
    query.x = static_cast<float>(c[0] - m.centre[0]);
    query.y = static_cast<float>(c[1] - m.centre[1]);
    query.z = static_cast<float>(c[2] - m.centre[2]);
    query.time = 0.0f;
    query.radius = static_cast<float>(r) * 1.000001f + static_cast<float>(1e-6 * (m.extent + far + r));
    RTCPointQueryContext ctx;
    rtcInitPointQueryContext(&ctx);
    rtcPointQuery(m.scene, &query, &ctx, visitBall, &q);
    if (exhausted != nullptr) *exhausted = q.exhausted;
    return !q.entered;
}

// Whether `bit` of node end e is ready; else whether this thread is the one
// to find it. Threads that walk the rows side by side reach the same nodes
// at the same time: the others trace their segments untrimmed meanwhile
// rather than find the same regions again.
enum class Claim { ready, mine, another };
Claim claim(BvhData::NodeEnd& e, std::uint8_t bit) {
    if ((e.ready.load(std::memory_order_acquire) & bit) != 0) return Claim::ready;
    return (e.taken.fetch_or(bit, std::memory_order_relaxed) & bit) == 0 ? Claim::mine : Claim::another;
}

// The end regions of welded node w that one query finds (the nearest face
// that does not touch it, its normal and the spread of its faces), found
// once; the tangent balls come later, a side when a segment first needs it.
// Null while another thread is finding them.
const BvhData::NodeEnd* endOf(const BvhData& m, std::int32_t w) {
    BvhData::NodeEnd& e = m.ends[static_cast<std::size_t>(w)];
    const Claim c = claim(e, BvhData::kCore);
    if (c != Claim::mine) return c == Claim::ready ? &e : nullptr;
    const auto u = static_cast<std::size_t>(w);
    EndQuery q{&m, {m.s.x[u], m.s.y[u], m.s.z[u]}, w, std::numeric_limits<double>::infinity(), {0, 0, 0}, {0, 0, 0},
               false, 0.0f, 0, {}};
    const double far = std::abs(q.p[0] - m.centre[0]) + std::abs(q.p[1] - m.centre[1]) + std::abs(q.p[2] - m.centre[2]);
    q.slack = static_cast<float>(1e-6 * (m.extent + far));
    RTCPointQuery query;
    query.x = static_cast<float>(q.p[0] - m.centre[0]);
    query.y = static_cast<float>(q.p[1] - m.centre[1]);
    query.z = static_cast<float>(q.p[2] - m.centre[2]);
    query.time = 0.0f;
    query.radius = std::numeric_limits<float>::infinity();
    RTCPointQueryContext ctx;
    rtcInitPointQueryContext(&ctx);
    rtcPointQuery(m.scene, &query, &ctx, visitEnd, &q);
    const double clear = std::isfinite(q.best2) ? std::sqrt(q.best2) : 0.0;
    const double nn = std::sqrt(q.normal[0] * q.normal[0] + q.normal[1] * q.normal[1] + q.normal[2] * q.normal[2]);
    // Balls are looked for only about a node with a normal and room around it.
    if (clear > 0.0 && nn > 0.0 && m.ballCap > 0.0) {
        for (int k = 0; k < 3; ++k) q.n[k] = q.normal[k] / nn;
        q.balls = true;
    }
    // Stored rounded down: the regions only shrink.
    e.clear.store(clear > 0.0 ? roundedDown(clear) : 0.0f, std::memory_order_relaxed);
    for (int k = 0; k < 3; ++k) e.normal[k].store(static_cast<float>(q.balls ? q.n[k] : 0.0), std::memory_order_relaxed);
    // The widest angle between the normal and one of the node's faces.
    double least = q.balls && q.faceCount <= EndQuery::kFaces ? 1.0 : 0.0;
    for (int f = 0; f < q.faceCount && f < EndQuery::kFaces && least > 0.0; ++f)
        least = std::min(least, std::abs(q.n[0] * q.face[f][0] + q.n[1] * q.face[f][1] + q.n[2] * q.face[f][2]));
    // A segment at angle theta to the normal clears the faces' planes by at
    // least |cos theta| cos s - sin s (s the spread, padded), which must be
    // kLeastSlope: stored as the least |cos theta|, rounded up.
    const double sine = std::min(1.0, std::sqrt(std::max(0.0, 1.0 - least * least)) + 1e-6);
    const double cosine = std::sqrt(std::max(0.0, 1.0 - sine * sine));
    const double steepest = cosine > 0.0 ? (kLeastSlope + sine) / cosine : std::numeric_limits<double>::infinity();
    e.steepest.store(roundedUp(steepest), std::memory_order_relaxed);
    e.ready.fetch_or(BvhData::kCore, std::memory_order_release);
    return &e;
}

// The radius of the empty ball tangent at welded node w on the side of its
// normal (side 0) or the other (side 1), found when first asked for: the
// ball of radius clear / 2 lies within clear of the node and is empty;
// larger ones are tried, doubling, while finding them stays cheap. 0 while
// another thread is finding it. The node's other regions are found.
double ballOf(const BvhData& m, std::int32_t w, int side) {
    BvhData::NodeEnd& e = m.ends[static_cast<std::size_t>(w)];
    auto& ball = e.ball[side];
    const auto bit = static_cast<std::uint8_t>(BvhData::kBall << side);
    const Claim mine = claim(e, bit);
    if (mine != Claim::mine) return mine == Claim::ready ? ball.load(std::memory_order_relaxed) : 0.0;
    const auto u = static_cast<std::size_t>(w);
    const double p[3] = {m.s.x[u], m.s.y[u], m.s.z[u]};
    const double clear = e.clear.load(std::memory_order_relaxed);
    double n[3] = {e.normal[0].load(std::memory_order_relaxed), e.normal[1].load(std::memory_order_relaxed),
                   e.normal[2].load(std::memory_order_relaxed)};
    const double nn = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    double r = 0.0;
    if (clear > 0.0 && nn > 0.0) {
        const double sign = (side == 0 ? 1.0 : -1.0) / nn;
        for (double& c : n) c *= sign;
        r = 0.5 * clear;
        bool exhausted = false;
        auto empty = [&](double radius) {
            const double c[3] = {p[0] + radius * n[0], p[1] + radius * n[1], p[2] + radius * n[2]};
            return emptyBall(m, w, c, radius, &exhausted);
        };
        while (r < m.ballCap * (m.extent + clear) && empty(2.0 * r)) r *= 2.0;
        // After a ball given up on for its many faces, the one of 1.5 r
        // (which would most often be given up on too) is not tried.
        if (!exhausted && r < m.ballCap * (m.extent + clear) && empty(1.5 * r)) r *= 1.5;
    }
    const float found = r > 0.0 ? roundedDown(r) : 0.0f;
    ball.store(found, std::memory_order_relaxed);
    e.ready.fetch_or(bit, std::memory_order_release);
    return found;
}

// How far from node w along the unit direction sign * u the segment stays
// in the node's end regions; 0 for a segment that leaves the node almost in
// the plane of one of its faces. Such a segment may run in the plane of other
// faces nearby, where Embree's distance along the ray is rounding noise: the
// whole segment is traced then, as occluded() traces it. Regions not yet
// found are found now when `build`, else the segment is not trimmed there.
inline double reachOf(const BvhData& m, std::int32_t w, const double u[3], double sign, bool build) {
    const BvhData::NodeEnd& e = m.ends[static_cast<std::size_t>(w)];
    const std::uint8_t ready = e.ready.load(std::memory_order_acquire);
    if ((ready & BvhData::kCore) == 0 && !(build && endOf(m, w) != nullptr)) return 0.0;
    const double c = sign * (u[0] * e.normal[0].load(std::memory_order_relaxed) +
                             u[1] * e.normal[1].load(std::memory_order_relaxed) +
                             u[2] * e.normal[2].load(std::memory_order_relaxed));
    if (std::abs(c) < e.steepest.load(std::memory_order_relaxed)) return 0.0;
    const int side = c > 0.0 ? 0 : 1;
    const double ball = (ready & (BvhData::kBall << side)) != 0 ? e.ball[side].load(std::memory_order_relaxed)
                                                               : ballOf(m, w, side);
    return std::max(static_cast<double>(e.clear.load(std::memory_order_relaxed)), 2.0 * ball * std::abs(c));
}

// Distance along origin + t * dir to triangle t in double precision
// (Moeller-Trumbore); NaN when the line misses it.
double refineHit(const BvhData& impl, std::int32_t t, const double o[3], const double d[3]) {
    double v0[3], v1[3], v2[3];
    impl.corner(t, 0, v0);
    impl.corner(t, 1, v1);
    impl.corner(t, 2, v2);
    const double e1[3] = {v1[0] - v0[0], v1[1] - v0[1], v1[2] - v0[2]};
    const double e2[3] = {v2[0] - v0[0], v2[1] - v0[1], v2[2] - v0[2]};
    const double p[3] = {d[1] * e2[2] - d[2] * e2[1], d[2] * e2[0] - d[0] * e2[2], d[0] * e2[1] - d[1] * e2[0]};
    const double det = e1[0] * p[0] + e1[1] * p[1] + e1[2] * p[2];
    if (det == 0.0 || !std::isfinite(det)) return std::numeric_limits<double>::quiet_NaN();
    const double tv[3] = {o[0] - v0[0], o[1] - v0[1], o[2] - v0[2]};
    const double q[3] = {tv[1] * e1[2] - tv[2] * e1[1], tv[2] * e1[0] - tv[0] * e1[2], tv[0] * e1[1] - tv[1] * e1[0]};
    return (e2[0] * q[0] + e2[1] * q[1] + e2[2] * q[2]) / det;
}

}  // namespace

SurfaceBvh::SurfaceBvh(const Surface& surface, bool weldSeams) : impl_(std::make_unique<Impl>(surface)) {
    const Surface& s = surface;
    const std::size_t n = s.nodeCount();
    const std::size_t tris = s.triangleCount();
    if (s.y.size() != n || s.z.size() != n || tris > static_cast<std::size_t>(INT32_MAX))
        throw arrayWorks::StateError(arrayWorks::source::field_selection, __LINE__);
    for (std::int32_t v : s.triangles)
        if (v < 0 || static_cast<std::size_t>(v) >= n) throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);

    // Centre and extent of the bounding box.
    if (n > 0) {
        double lo[3] = {s.x[0], s.y[0], s.z[0]}, hi[3] = {s.x[0], s.y[0], s.z[0]};
        for (std::size_t k = 0; k < n; ++k) {
            const double p[3] = {s.x[k], s.y[k], s.z[k]};
            for (int c = 0; c < 3; ++c) {
                lo[c] = std::min(lo[c], p[c]);
                hi[c] = std::max(hi[c], p[c]);
            }
        }
        for (int c = 0; c < 3; ++c) {
            impl_->centre[c] = 0.5 * (lo[c] + hi[c]);
            impl_->extent = std::max(impl_->extent, 0.5 * (hi[c] - lo[c]));
        }
    }

    // Nodes at exactly the same position share one number for the filter.
    std::vector<std::int32_t> order(n);
    std::iota(order.begin(), order.end(), 0);
    auto key = [&](std::int32_t k) {
        const auto u = static_cast<std::size_t>(k);
        return std::tuple(s.x[u], s.y[u], s.z[u], k);
    };
    if (weldSeams)
        std::sort(order.begin(), order.end(), [&](std::int32_t p, std::int32_t q) { return key(p) < key(q); });
    impl_->weld.resize(n);
    for (std::size_t k = 0; k < n; ++k) {
        const std::int32_t cur = order[k];
        const bool same = k > 0 && std::get<0>(key(cur)) == std::get<0>(key(order[k - 1])) &&
                          std::get<1>(key(cur)) == std::get<1>(key(order[k - 1])) &&
                          std::get<2>(key(cur)) == std::get<2>(key(order[k - 1]));
        impl_->weld[static_cast<std::size_t>(cur)] = same ? impl_->weld[static_cast<std::size_t>(order[k - 1])] : cur;
    }
    impl_->corners.resize(s.triangles.size());
    for (std::size_t k = 0; k < s.triangles.size(); ++k)
        impl_->corners[k] = impl_->weld[static_cast<std::size_t>(s.triangles[k])];
    impl_->xyz.resize(3 * n);
    for (std::size_t k = 0; k < n; ++k) {
        impl_->xyz[3 * k] = s.x[k];
        impl_->xyz[3 * k + 1] = s.y[k];
        impl_->xyz[3 * k + 2] = s.z[k];
    }

    impl_->device = rtcNewDevice("verbose=0");
    if (impl_->device == nullptr) throw arrayWorks::StateError(arrayWorks::source::field_selection, __LINE__);
    impl_->scene = rtcNewScene(impl_->device);
    rtcSetSceneFlags(impl_->scene, RTC_SCENE_FLAG_ROBUST);
    rtcSetSceneBuildQuality(impl_->scene, RTC_BUILD_QUALITY_HIGH);
    if (tris > 0) {
        RTCGeometry g = rtcNewGeometry(impl_->device, RTC_GEOMETRY_TYPE_TRIANGLE);
        auto* vb = static_cast<float*>(
            rtcSetNewGeometryBuffer(g, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), n));
        auto* ib = static_cast<unsigned*>(
            rtcSetNewGeometryBuffer(g, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned), tris));
        if (vb == nullptr || ib == nullptr) {
            rtcReleaseGeometry(g);
            throw arrayWorks::StateError(arrayWorks::source::field_selection, __LINE__);
        }
        for (std::size_t k = 0; k < n; ++k) {
            vb[3 * k + 0] = static_cast<float>(s.x[k] - impl_->centre[0]);
            vb[3 * k + 1] = static_cast<float>(s.y[k] - impl_->centre[1]);
            vb[3 * k + 2] = static_cast<float>(s.z[k] - impl_->centre[2]);
        }
        for (std::size_t k = 0; k < s.triangles.size(); ++k) ib[k] = static_cast<unsigned>(s.triangles[k]);
        rtcSetGeometryBuildQuality(g, RTC_BUILD_QUALITY_HIGH);
        rtcSetGeometryOccludedFilterFunction(g, rejectEndFaces);
        rtcCommitGeometry(g);
        rtcAttachGeometry(impl_->scene, g);
        rtcReleaseGeometry(g);
    }
    rtcCommitScene(impl_->scene);
    if (weldSeams) {
        impl_->ends = std::make_unique<BvhData::NodeEnd[]>(n);
        impl_->ballCap = kBallCap;
        impl_->trim = endRegionsByDefault.load();
    }
    if (rtcGetDeviceError(impl_->device) != RTC_ERROR_NONE)
        throw arrayWorks::StateError(arrayWorks::source::field_selection, __LINE__);
}

SurfaceBvh::~SurfaceBvh() = default;

RTCScene SurfaceBvh::scene() const noexcept { return impl_->scene; }

std::array<double, 3> SurfaceBvh::origin() const noexcept {
    return {impl_->centre[0], impl_->centre[1], impl_->centre[2]};
}

bool SurfaceBvh::occluded(std::int32_t a, std::int32_t b) const {
    const Impl& m = *impl_;
    const std::size_t n = m.s.nodeCount();
    if (a < 0 || b < 0 || static_cast<std::size_t>(a) >= n || static_cast<std::size_t>(b) >= n)
        throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
    const auto ua = static_cast<std::size_t>(a), ub = static_cast<std::size_t>(b);
    const double pa[3] = {m.s.x[ua], m.s.y[ua], m.s.z[ua]};
    const double pb[3] = {m.s.x[ub], m.s.y[ub], m.s.z[ub]};
    const std::int32_t ends[2] = {a, b};
    return occludedBetween(pa, pb, ends, 2);
}

bool SurfaceBvh::occludedBetween(const double p[3], const double q[3], const std::int32_t* ignore, int count) const {
    const Impl& m = *impl_;
    if (count < 0 || count > 4) throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
    SegmentContext ctx;
    rtcInitIntersectContext(&ctx.base);
    ctx.corners = m.corners.data();
    ctx.ignored = count;
    ctx.rayEnds = nullptr;
    for (int k = 0; k < count; ++k) {
        if (ignore[k] < 0 || static_cast<std::size_t>(ignore[k]) >= m.s.nodeCount())
            throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
        ctx.ignore[k] = m.weld[static_cast<std::size_t>(ignore[k])];
    }
    const double d[3] = {q[0] - p[0], q[1] - p[1], q[2] - p[2]};
    const double len = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    // The ray runs from p (t = 0) to q (t = 1); crossings near either end do not count.
    const double skip = kEndTolerance + kExtentTolerance * m.extent / len;
    if (!(len > 0.0) || !(skip < 0.5)) return false;

    RTCRay ray{};
    ray.org_x = static_cast<float>(p[0] - m.centre[0]);
    ray.org_y = static_cast<float>(p[1] - m.centre[1]);
    ray.org_z = static_cast<float>(p[2] - m.centre[2]);
    ray.dir_x = static_cast<float>(d[0]);
    ray.dir_y = static_cast<float>(d[1]);
    ray.dir_z = static_cast<float>(d[2]);
    ray.tnear = static_cast<float>(skip);
    ray.tfar = static_cast<float>(1.0 - skip);
    ray.mask = 0xFFFFFFFFu;
    ray.flags = 0;
    rtcOccluded1(m.scene, &ctx.base, &ray);
    return ray.tfar < 0.0f;  // Embree marks an occluded ray with tfar = -inf
}

void SurfaceBvh::setEndRegions(bool on, double ballCap) {
    impl_->trim = on && impl_->ends != nullptr;
    impl_->ballCap = ballCap;
    for (std::size_t k = 0; impl_->ends != nullptr && k < impl_->s.nodeCount(); ++k)
        impl_->ends[k].ready.store(0, std::memory_order_relaxed), impl_->ends[k].taken.store(0, std::memory_order_relaxed);
}

void SurfaceBvh::useEndRegions(bool on) { endRegionsByDefault.store(on); }

void SurfaceBvh::buildEnd(std::int32_t k) const {
    const Impl& m = *impl_;
    if (k < 0 || static_cast<std::size_t>(k) >= m.s.nodeCount())
        throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
    if (m.trim) endOf(m, m.weld[static_cast<std::size_t>(k)]);
}

void SurfaceBvh::occludedPairs(const std::int32_t* a, const std::int32_t* b, int count, bool* hidden,
                               Trace how) const {
    const Impl& m = *impl_;
    const std::size_t n = m.s.nodeCount();
    auto check = [n](std::int32_t k) {
        if (k < 0 || static_cast<std::size_t>(k) >= n)
            throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
        return static_cast<std::size_t>(k);
    };
    if (count < 0 || count > kPacket) throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
    SegmentContext ctx;
    rtcInitIntersectContext(&ctx.base);
    ctx.corners = m.corners.data();
    ctx.ignored = 0;
    std::int32_t ends[2 * kPacket] = {};
    ctx.rayEnds = ends;

    // The ends' positions and regions lie scattered in memory: all of them
    // are asked for before the first is used.
    std::size_t ua[kPacket], ub[kPacket];
    for (int k = 0; k < count; ++k) {
        ua[k] = check(a[k]), ub[k] = check(b[k]);
        ends[2 * k] = m.weld[ua[k]];
        ends[2 * k + 1] = m.weld[ub[k]];
        __builtin_prefetch(m.xyz.data() + 3 * ub[k]);
        if (m.trim) __builtin_prefetch(&m.ends[static_cast<std::size_t>(ends[2 * k + 1])]);
    }
    // Every lane as occludedBetween sets up its single ray (the square roots
    // and divisions of all lanes together), then moves the ray's ends in by
    // the end regions (faces there never count).
    alignas(32) double org[3][kPacket], dir[3][kPacket], len[kPacket], inv[kPacket], tnear[kPacket],
                       tfar[kPacket], margin[kPacket];
    for (int k = 0; k < count; ++k) {
        const double* p = m.xyz.data() + 3 * ua[k];
        const double* q = m.xyz.data() + 3 * ub[k];
        for (int c = 0; c < 3; ++c) org[c][k] = p[c], dir[c][k] = q[c] - p[c];
    }
    for (int k = 0; k < count; ++k) {
        len[k] = std::sqrt(dir[0][k] * dir[0][k] + dir[1][k] * dir[1][k] + dir[2][k] * dir[2][k]);
        tnear[k] = kEndTolerance + kExtentTolerance * m.extent / len[k];
        tfar[k] = 1.0 - tnear[k];
        // (the regions' margin absorbs the rounding of 1 / len)
        inv[k] = 1.0 / len[k];
        margin[k] = kTrimMargin * (m.extent + len[k]);
    }
    const bool build = how != Trace::asBuilt;
    alignas(32) int valid[kPacket] = {};
    bool any = false;
    for (int k = 0; k < count; ++k) {
        hidden[k] = false;
        if (!(len[k] > 0.0) || !(tnear[k] < 0.5)) continue;
        if (m.trim) {
            const double u[3] = {dir[0][k] * inv[k], dir[1][k] * inv[k], dir[2][k] * inv[k]};
            tnear[k] = std::max(tnear[k], (reachOf(m, ends[2 * k], u, 1.0, build) - margin[k]) * inv[k]);
            tfar[k] = std::min(tfar[k], 1.0 - (reachOf(m, ends[2 * k + 1], u, -1.0, build) - margin[k]) * inv[k]);
            if (!(tnear[k] < tfar[k])) continue;  // the end regions cover the segment
        }
        valid[k] = -1;
        any = true;
    }
    // Every lane is written, the unused ones as empty rays.
    RTCRay8 rays;
    for (int k = 0; k < kPacket; ++k) {
        const bool v = valid[k] != 0;
        rays.org_x[k] = v ? static_cast<float>(org[0][k] - m.centre[0]) : 0.0f;
        rays.org_y[k] = v ? static_cast<float>(org[1][k] - m.centre[1]) : 0.0f;
        rays.org_z[k] = v ? static_cast<float>(org[2][k] - m.centre[2]) : 0.0f;
        rays.dir_x[k] = v ? static_cast<float>(dir[0][k]) : 0.0f;
        rays.dir_y[k] = v ? static_cast<float>(dir[1][k]) : 0.0f;
        rays.dir_z[k] = v ? static_cast<float>(dir[2][k]) : 0.0f;
        rays.tnear[k] = v ? static_cast<float>(tnear[k]) : 0.0f;
        rays.tfar[k] = v ? static_cast<float>(tfar[k]) : 0.0f;
        rays.time[k] = 0.0f;
        rays.mask[k] = 0xFFFFFFFFu;
        rays.id[k] = static_cast<unsigned>(k);
        rays.flags[k] = 0;
    }
    if (!any) return;
    rtcOccluded8(valid, m.scene, &ctx.base, &rays);
    for (int k = 0; k < count; ++k) hidden[k] = valid[k] != 0 && rays.tfar[k] < 0.0f;
}

std::optional<SurfaceHit> SurfaceBvh::firstHit(const double origin[3], const double direction[3],
                                               double maxDistance) const {
    const Impl& m = *impl_;
    if (!(maxDistance > 0.0)) return std::nullopt;
    const double o[3] = {origin[0] - m.centre[0], origin[1] - m.centre[1], origin[2] - m.centre[2]};
    RTCIntersectContext ctx;
    rtcInitIntersectContext(&ctx);
    RTCRayHit rh{};
    rh.ray.org_x = static_cast<float>(o[0]);
    rh.ray.org_y = static_cast<float>(o[1]);
    rh.ray.org_z = static_cast<float>(o[2]);
    rh.ray.dir_x = static_cast<float>(direction[0]);
    rh.ray.dir_y = static_cast<float>(direction[1]);
    rh.ray.dir_z = static_cast<float>(direction[2]);
    rh.ray.tnear = 0.0f;
    rh.ray.tfar = static_cast<float>(std::min(maxDistance, static_cast<double>(std::numeric_limits<float>::max())));
    rh.ray.mask = 0xFFFFFFFFu;
    rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rh.hit.primID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(m.scene, &ctx, &rh);
    if (rh.hit.geomID == RTC_INVALID_GEOMETRY_ID) return std::nullopt;

    SurfaceHit hit;
    hit.triangle = static_cast<std::int32_t>(rh.hit.primID);
    // The distance again in double precision on the triangle that was found.
    double t = refineHit(m, hit.triangle, origin, direction);
    if (!std::isfinite(t) || std::abs(t - rh.ray.tfar) > 1e-3 * std::max(1.0, std::abs(t))) t = rh.ray.tfar;
    if (!(t > 0.0) || t > maxDistance) return std::nullopt;
    hit.distance = t;
    hit.x = origin[0] + t * direction[0];
    hit.y = origin[1] + t * direction[1];
    hit.z = origin[2] + t * direction[2];
    return hit;
}

namespace {

struct ClosestQuery {
    const BvhData* impl;
    double p[3];
    double best2;
    double point[3];
    std::int32_t triangle;
    float slack;  // added to the shrunk radius for the single-precision bounds
};

bool visitTriangle(RTCPointQueryFunctionArguments* args) {
    auto* q = static_cast<ClosestQuery*>(args->userPtr);
    const auto t = static_cast<std::int32_t>(args->primID);
    double a[3], b[3], c[3], cp[3];
    q->impl->corner(t, 0, a);
    q->impl->corner(t, 1, b);
    q->impl->corner(t, 2, c);
    closestOnTriangle(q->p, a, b, c, cp);
    const double d2 = (cp[0] - q->p[0]) * (cp[0] - q->p[0]) + (cp[1] - q->p[1]) * (cp[1] - q->p[1]) +
                      (cp[2] - q->p[2]) * (cp[2] - q->p[2]);
    const bool better = q->triangle < 0 ? d2 <= q->best2 : (d2 < q->best2 || (d2 == q->best2 && t < q->triangle));
    if (better) {
        q->best2 = d2;
        q->triangle = t;
        for (int k = 0; k < 3; ++k) q->point[k] = cp[k];
        const float r = static_cast<float>(std::sqrt(d2)) * 1.000001f + q->slack;
        if (r < args->query->radius) {
            args->query->radius = r;
            return true;
        }
    }
    return false;
}

}  // namespace

std::optional<SurfaceHit> SurfaceBvh::closestPoint(const double p[3], double maxDistance) const {
    const Impl& m = *impl_;
    if (!(maxDistance >= 0.0) || m.s.triangleCount() == 0) return std::nullopt;
    ClosestQuery q{&m, {p[0], p[1], p[2]}, maxDistance * maxDistance, {0, 0, 0}, -1, 0.0f};
    const double far = std::abs(p[0] - m.centre[0]) + std::abs(p[1] - m.centre[1]) + std::abs(p[2] - m.centre[2]);
    q.slack = static_cast<float>(1e-6 * (m.extent + far));
    RTCPointQuery query;
    query.x = static_cast<float>(p[0] - m.centre[0]);
    query.y = static_cast<float>(p[1] - m.centre[1]);
    query.z = static_cast<float>(p[2] - m.centre[2]);
    query.time = 0.0f;
    query.radius = std::isfinite(maxDistance) ? static_cast<float>(maxDistance) * 1.000001f + q.slack
                                              : std::numeric_limits<float>::infinity();
    RTCPointQueryContext ctx;
    rtcInitPointQueryContext(&ctx);
    rtcPointQuery(m.scene, &query, &ctx, visitTriangle, &q);
    // Nothing within maxDistance: best2 is still maxDistance^2 with no triangle,
    // or the only candidates were exactly at maxDistance (kept).
    if (q.triangle < 0) return std::nullopt;
    SurfaceHit hit;
    hit.triangle = q.triangle;
    hit.distance = std::sqrt(q.best2);
    hit.x = q.point[0];
    hit.y = q.point[1];
    hit.z = q.point[2];
    return hit;
}

}  // namespace tundrel
