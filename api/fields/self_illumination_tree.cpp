// The hierarchical self-illumination correction for large models.
//
// The participants are sorted into a binary tree (median split along the
// longest side of the bounding box; a cluster whose normals spread over more
// than 60 degrees, such as both sides of a thin wing, is split along the
// normal component that varies most instead; leaves of at most 16 nodes).
// Each cluster keeps a bounding sphere (centre c, radius rho), a cone that
// holds the normals of its nodes (axis, half angle alpha), sum |V| A and the
// moments of its emission b = V A N about c: W = sum b, D = sum b delta^T,
// Q = sum b delta delta^T (delta = P - c).
//
// For a receiver R and an emitter E with d = P_E - P_R, r = |d| and
// x = cosR A_R / (pi r^2) the exact share is
//     ratio V_E A_E cosE / A_R * (1 - 1 / sqrt(1 + x)) / 2
//   = -ratio g(x) / (4 pi) * (N_R . d) (b_E . d) / r^4,
//     g(x) = 2 / ((sqrt(1 + x) + 1) sqrt(1 + x)) = 1 - 3x/4 + ...,
// as long as both cosines are positive. The kernel (a . d)(b . d) / |d|^4 is
// expanded about the cluster's centre, d = d0 + delta:
//   order 0: (a . d0)(W . d0) / r0^4
//   order 1: + [a^T D^T d0 + (a . d0) tr D - 4 (a . d0)(d0^T D d0) / r0^2] / r0^4
//   order 2: + the terms in Q (see secondOrder)
// and g is taken at the centre. Per receiver the tree is walked from the root:
//   - skip a cluster when it lies behind the receiver's plane (by its sphere
//     and by the slab across the cone's axis that holds its nodes, which is
//     thin for flat clusters: neighbours on a flat or convex part), or when no
//     normal of its cone can face the receiver;
//   - skip it too when its shares are bounded (ratio sum |V| A times the
//     largest cosR and cosE the bounds allow, over 4 pi (r0 - rho)^2) by what
//     is left of the receiver's allowance: a quarter of EPS times the largest
//     correction of 256 receivers spread over the tree (walked without an
//     allowance first), at most the largest of all. This drops the clusters
//     that lie nearly in the receiver's plane or nearly edge on, which
//     otherwise open down to their leaves (a flat part: every node of it).
//     The allowance follows the error measure, which is relative to the
//     largest correction: on the example refined to 287,000 nodes the
//     sampled corrections spread from 7e-4 (median) to 6e8 (a few nodes of
//     tiny area), so it is large against most nodes' own corrections (the
//     median of the sample instead keeps it small there, at the cost of
//     most of the gain on that model);
//   - accept it whole when every node of it surely faces the receiver and
//     back (sphere, slab and cone bounds), (rho / r0)^q <= theta^q
//     max(0.15, cosR cosE) with q = order + 1 and the cosines at the centre
//     (the remainder is of the order (rho / r0)^q of |N_R| |b| / r0^2, the
//     term that size times cosR cosE, so grazing clusters open sooner; the
//     floor keeps the near field of a smooth surface from growing with the
//     node count) and A_R / (pi (r0 - rho)^2) <= theta^(q - 1);
//   - open it otherwise; a leaf that is opened is summed with the exact
//     kernel in a vectorised loop (pair by pair with the obstruction test).
// The rule: order 2 with theta = 2.5 EPS^(1/3) (at most 0.5), theta = 0.25
// at EPS = 1e-3. Measured (bench/self_illumination_hier_bench, BM_Rule) on
// models of about 20,000 nodes: order 2 at theta 0.1 errs 8e-6 on a closed
// sphere from inside where order 1 errs 1.7e-3 (its remainder is of the order
// theta^2 and of one sign there); at theta 0.25 order 2 errs 3.2e-4 (sphere)
// and 2.7e-4 (the concave model with a screen), at 0.35 1.7e-3. Leaves of 32
// nodes were no faster.
//
// With the obstruction test a few rays judge an accepted cluster (below), and
// they judge it well only while it is small as seen from the receiver: theta
// is then at most 1.9 sqrt(EPS), the first-order rule's (0.06 at 1e-3; 0.19
// gave errors of 1.7 EPS on the concave model).
//
// With the obstruction test an accepted cluster is first looked at along a
// few rays from the receiver: to the node nearest the centre and to up to
// three nodes spread over the cluster (each the farthest from those before).
// All clear: the cluster counts whole; all hidden: it gives nothing; mixed:
// it is opened, down to the exact test of every pair at the leaves.
//
// Memory: the participants in tree order (about 90 bytes a node), one
// cluster of about 370 bytes for every 8 nodes, and the sums.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <limits>
#include <numeric>
#include <vector>

#include "api/detail/self_illumination_kernel.h"
#include "api/detail/surface_bvh.h"

namespace tundrel::detail {

namespace {

constexpr double kPi = 3.14159265358979;
constexpr int kSamples = 4;
constexpr std::size_t kAllowanceSamples = 256;
constexpr double kAllowanceShare = 0.25;
constexpr double kVisibleTheta = 1.9;
constexpr double kGrazingFloor = 0.15;

struct alignas(64) Cluster {
    double c[3];           // centre of the bounding sphere
    double rho;            // its radius (NaN when a position is not finite)
    double axis[3];        // cone of the normals: axis, cos and sin of the half angle
    double cosA, sinA;
    double hlo, hhi;       // the nodes lie within hlo <= axis . (P - c) <= hhi
    std::int32_t begin, end;   // nodes in tree order
    std::int32_t child[2];     // -1 -1 for a leaf
    double mass;           // sum of |V| A
    // What an accepted cluster needs (the above is what every visit reads).
    double W[3];           // sum of V A N
    double D[9];           // sum of (V A N)_i (P - c)_j at 3 i + j
    double Q[18];          // sum of (V A N)_i (P - c)_j (P - c)_k at 6 i + s(j, k), j <= k
    std::int32_t sample[kSamples];
    std::int32_t samples;
};

// The participants in tree order and the clusters over them.
class Tree {
public:
    Tree(const IlluminationNodes& p, int leafSize) : p_(p), leaf_(std::max(1, leafSize)) {
        const auto M = static_cast<std::int32_t>(p.size());
        order.resize(static_cast<std::size_t>(M));
        std::iota(order.begin(), order.end(), 0);
        clusters.reserve(static_cast<std::size_t>(2 * (M / std::max(1, leaf_ / 2) + 1)));
        if (M > 0) build(0, M);
        // The flat arrays in tree order, for the leaves' pair loops.
        x.resize(order.size());
        y = z = nx = ny = nz = area = value = extent = x;
        node.resize(order.size());
        for (std::size_t k = 0; k < order.size(); ++k) {
            const auto i = static_cast<std::size_t>(order[k]);
            x[k] = p.x[i], y[k] = p.y[i], z[k] = p.z[i];
            nx[k] = p.nx[i], ny[k] = p.ny[i], nz[k] = p.nz[i];
            area[k] = p.area[i], value[k] = p.value[i], extent[k] = p.extent[i];
            node[k] = p.node[i];
        }
    }

    std::vector<std::int32_t> order;  // tree position -> participant
    std::vector<Cluster> clusters;    // clusters[0] is the root
    std::vector<double> x, y, z, nx, ny, nz, area, value, extent;
    std::vector<std::int32_t> node;

private:
    const IlluminationNodes& p_;
    int leaf_;

    double pos(std::int32_t i, int axis) const {
        const auto u = static_cast<std::size_t>(i);
        const double v = axis == 0 ? p_.x[u] : axis == 1 ? p_.y[u] : p_.z[u];
        return std::isnan(v) ? std::numeric_limits<double>::infinity() : v;  // a strict order for the split
    }

    // Component `axis` of the unit normal, with the same strict order.
    double dir(std::int32_t i, int axis) const {
        const auto u = static_cast<std::size_t>(i);
        const double len = std::sqrt(p_.nx[u] * p_.nx[u] + p_.ny[u] * p_.ny[u] + p_.nz[u] * p_.nz[u]);
        const double v = (axis == 0 ? p_.nx[u] : axis == 1 ? p_.ny[u] : p_.nz[u]) / len;
        return std::isnan(v) ? std::numeric_limits<double>::infinity() : v;
    }

    std::int32_t build(std::int32_t begin, std::int32_t end) {
        const auto id = static_cast<std::int32_t>(clusters.size());
        clusters.emplace_back();
        describe(clusters.back(), begin, end);
        if (end - begin <= leaf_) return id;
        // A cluster whose normals spread over more than 60 degrees (both
        // sides of a thin wing, a sharp edge) is split by the normals, so
        // that its parts can be skipped or taken whole; others by position.
        const bool byNormal = clusters[static_cast<std::size_t>(id)].cosA < 0.5;
        auto key = [&](std::int32_t i, int axis) { return byNormal ? dir(i, axis) : pos(i, axis); };
        double lo[3], hi[3];
        for (int a = 0; a < 3; ++a) lo[a] = hi[a] = key(order[static_cast<std::size_t>(begin)], a);
        for (std::int32_t k = begin; k < end; ++k)
            for (int a = 0; a < 3; ++a) {
                const double v = key(order[static_cast<std::size_t>(k)], a);
                lo[a] = std::min(lo[a], v);
                hi[a] = std::max(hi[a], v);
            }
        int axis = 0;
        for (int a = 1; a < 3; ++a)
            if (hi[a] - lo[a] > hi[axis] - lo[axis]) axis = a;
        const std::int32_t mid = begin + (end - begin) / 2;
        std::nth_element(order.begin() + begin, order.begin() + mid, order.begin() + end,
                         [&](std::int32_t i, std::int32_t j) { return key(i, axis) < key(j, axis); });
        const std::int32_t left = build(begin, mid);
        const std::int32_t right = build(mid, end);
        clusters[static_cast<std::size_t>(id)].child[0] = left;
        clusters[static_cast<std::size_t>(id)].child[1] = right;
        return id;
    }

    void describe(Cluster& C, std::int32_t begin, std::int32_t end) const {
        C.begin = begin;
        C.end = end;
        C.child[0] = C.child[1] = -1;
        auto at = [&](std::int32_t k) { return static_cast<std::size_t>(order[static_cast<std::size_t>(k)]); };
        double lo[3] = {p_.x[at(begin)], p_.y[at(begin)], p_.z[at(begin)]}, hi[3] = {lo[0], lo[1], lo[2]};
        double n[3] = {0, 0, 0};
        for (std::int32_t k = begin; k < end; ++k) {
            const std::size_t i = at(k);
            const double q[3] = {p_.x[i], p_.y[i], p_.z[i]};
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], q[a]);
                hi[a] = std::max(hi[a], q[a]);
            }
            n[0] += p_.nx[i], n[1] += p_.ny[i], n[2] += p_.nz[i];
        }
        for (int a = 0; a < 3; ++a) C.c[a] = 0.5 * (lo[a] + hi[a]);
        const double nl = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        for (int a = 0; a < 3; ++a) C.axis[a] = nl > 0.0 ? n[a] / nl : 0.0;
        C.rho = 0.0;
        C.hlo = C.hhi = 0.0;
        C.cosA = nl > 0.0 ? 1.0 : -1.0;
        std::fill(std::begin(C.W), std::end(C.W), 0.0);
        C.mass = 0.0;
        std::fill(std::begin(C.D), std::end(C.D), 0.0);
        std::fill(std::begin(C.Q), std::end(C.Q), 0.0);
        std::int32_t nearest = begin;
        double nearestD = std::numeric_limits<double>::infinity();
        for (std::int32_t k = begin; k < end; ++k) {
            const std::size_t i = at(k);
            const double d[3] = {p_.x[i] - C.c[0], p_.y[i] - C.c[1], p_.z[i] - C.c[2]};
            const double r = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
            if (!(r <= C.rho)) C.rho = r;  // NaN sticks
            const double h = C.axis[0] * d[0] + C.axis[1] * d[1] + C.axis[2] * d[2];
            C.hlo = std::min(C.hlo, h);
            C.hhi = std::max(C.hhi, h);
            if (r < nearestD) nearestD = r, nearest = k;
            const double len = std::sqrt(p_.nx[i] * p_.nx[i] + p_.ny[i] * p_.ny[i] + p_.nz[i] * p_.nz[i]);
            const double cosN = (C.axis[0] * p_.nx[i] + C.axis[1] * p_.ny[i] + C.axis[2] * p_.nz[i]) / len;
            if (!(cosN >= C.cosA)) C.cosA = std::isnan(cosN) ? -1.0 : std::max(-1.0, cosN);
            const double w = p_.value[i] * p_.area[i];
            C.mass += std::abs(w);
            const double b[3] = {w * p_.nx[i], w * p_.ny[i], w * p_.nz[i]};
            for (int r0 = 0; r0 < 3; ++r0) {
                C.W[r0] += b[r0];
                for (int c0 = 0; c0 < 3; ++c0) C.D[3 * r0 + c0] += b[r0] * d[c0];
                const double dd[6] = {d[0] * d[0], d[0] * d[1], d[0] * d[2], d[1] * d[1], d[1] * d[2], d[2] * d[2]};
                for (int s = 0; s < 6; ++s) C.Q[6 * r0 + s] += b[r0] * dd[s];
            }
        }
        // Unit normals only: a normal of another length widens the cone to the whole sphere.
        C.sinA = std::sqrt(std::max(0.0, 1.0 - C.cosA * C.cosA));
        // Samples for the visibility of the cluster: the node nearest the
        // centre, then each time the node farthest from those chosen.
        C.sample[0] = nearest;
        C.samples = 1;
        while (C.samples < std::min<std::int32_t>(kSamples, end - begin)) {
            std::int32_t best = -1;
            double bestD = -1.0;
            for (std::int32_t k = begin; k < end; ++k) {
                double dmin = std::numeric_limits<double>::infinity();
                for (int s = 0; s < C.samples; ++s) {
                    const std::size_t i = at(k), j = at(C.sample[s]);
                    const double d[3] = {p_.x[i] - p_.x[j], p_.y[i] - p_.y[j], p_.z[i] - p_.z[j]};
                    dmin = std::min(dmin, d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
                }
                if (dmin > bestD) bestD = dmin, best = k;
            }
            if (best < 0 || !(bestD > 0.0)) break;
            C.sample[C.samples++] = best;
        }
    }
};

struct LeafRow {
    const double *x, *y, *z, *nx, *ny, *nz, *area, *value, *extent;
};

// What the receiver rec = (P, N, area, extent, ratio) gets from the nodes
// [begin, end) by the exact kernel's arithmetic, written for the vectoriser
// (the receiver itself, at distance 0, gives nothing).
__attribute__((target_clones("avx2", "default"))) double leafShares(const LeafRow& R, std::size_t begin,
                                                                    std::size_t end, const double* rec,
                                                                    double sqrtPi) {
    const double px = rec[0], py = rec[1], pz = rec[2], nx = rec[3], ny = rec[4], nz = rec[5];
    const double ai = rec[6], ei = rec[7], ratio = rec[8];
    double sum = 0.0;
#pragma omp simd reduction(+ : sum)
    for (std::size_t j = begin; j < end; ++j) {
        const double dx = R.x[j] - px, dy = R.y[j] - py, dz = R.z[j] - pz;
        const double r = std::sqrt(dx * dx + dy * dy + dz * dz);
        const double m = std::max(ei, R.extent[j]);
        const double inv = 1.0 / (r > 0.0 ? r : 1.0);
        const double ux = dx * inv, uy = dy * inv, uz = dz * inv;
        const double cosR = nx * ux + ny * uy + nz * uz;
        const double cosE = R.nx[j] * -ux + R.ny[j] * -uy + R.nz[j] * -uz;
        const bool exchange = (r > 1e-10 * m) & (cosR > 0.0) & (cosE > 0.0);
        const double S = std::sqrt(kPi * r * r + (exchange ? cosR : 0.0) * ai);
        const double q = 1.0 / (exchange ? 2 * S * ai : 1.0);
        const double s = (S - r * sqrtPi) * R.value[j] * R.area[j] * cosE * ratio * q;
        sum += exchange ? s : 0.0;
    }
    return sum;
}

// The walk of one receiver.
class Receiver {
public:
    Receiver(const Tree& t, double ratio, FarFieldRule rule, const SurfaceBvh* bvh, double sqrtPi)
        : t_(t), ratio_(ratio), rule_(rule), bvh_(bvh), sqrtPi_(sqrtPi) {}

    // What each receiver may leave out in clusters whose bound is small.
    double allowance = 0.0;

    std::int64_t tests = 0, terms = 0;

    double sum(std::size_t i) {
        i_ = i;
        px_ = t_.x[i], py_ = t_.y[i], pz_ = t_.z[i];
        nx_ = t_.nx[i], ny_ = t_.ny[i], nz_ = t_.nz[i];
        ai_ = t_.area[i];
        nl_ = std::sqrt(nx_ * nx_ + ny_ * ny_ + nz_ * nz_);
        if (!(ai_ > 0.0) || t_.clusters.empty()) return 0.0;  // no area: nothing is subtracted
        exact_ = far_ = spent_ = 0.0;
        std::int32_t stack[128];
        int top = 0;
        stack[top++] = 0;
        while (top > 0) {
            const Cluster& C = t_.clusters[static_cast<std::size_t>(stack[--top])];
            switch (classify(C)) {
            case Kind::Skip:
                continue;
            case Kind::Accept:
                if (bvh_ != nullptr) {
                    const int hidden = hiddenSamples(C);
                    if (hidden == C.samples) continue;
                    if (hidden > 0) break;
                }
                far_ += farTerm(C);
                ++terms;
                continue;
            case Kind::Open:
                break;
            }
            if (C.child[0] < 0) {
                leaf(C);
            } else {
                stack[top++] = C.child[1];
                stack[top++] = C.child[0];
            }
        }
        return exact_ + far_;
    }

private:
    enum class Kind { Skip, Accept, Open };

    const Tree& t_;
    double ratio_;
    FarFieldRule rule_;
    const SurfaceBvh* bvh_;
    double sqrtPi_;
    std::size_t i_ = 0;
    double px_ = 0, py_ = 0, pz_ = 0, nx_ = 0, ny_ = 0, nz_ = 0, nl_ = 0, ai_ = 0;
    double exact_ = 0, far_ = 0, spent_ = 0;
    double d0_[3] = {0, 0, 0}, r0_ = 0, nd_ = 0;

    Kind classify(const Cluster& C) {
        d0_[0] = C.c[0] - px_, d0_[1] = C.c[1] - py_, d0_[2] = C.c[2] - pz_;
        r0_ = std::sqrt(d0_[0] * d0_[0] + d0_[1] * d0_[1] + d0_[2] * d0_[2]);
        nd_ = nx_ * d0_[0] + ny_ * d0_[1] + nz_ * d0_[2];
        // How far the nodes reach along N_R from the centre, by the sphere and
        // by the slab along the cone's axis (tight for flat clusters).
        const double na = nx_ * C.axis[0] + ny_ * C.axis[1] + nz_ * C.axis[2];
        const double across = std::sqrt(std::max(0.0, nl_ * nl_ - na * na)) * C.rho;
        const double up = std::min(nl_ * C.rho, std::max(na * C.hlo, na * C.hhi) + across);
        const double down = std::max(-nl_ * C.rho, std::min(na * C.hlo, na * C.hhi) - across);
        // Every node behind the receiver's plane: cosR <= 0 for all.
        if (nd_ + up <= 0.0) return Kind::Skip;
        if (!(r0_ > C.rho)) return Kind::Open;
        const double rmin = r0_ - C.rho;
        // beta: the angle between the cone's axis and the direction back to the receiver.
        const double cosB = -(C.axis[0] * d0_[0] + C.axis[1] * d0_[1] + C.axis[2] * d0_[2]) / r0_;
        const double sinB = std::sqrt(std::max(0.0, 1.0 - cosB * cosB));
        // The largest cosE any node can have: the cone's normal nearest the way back.
        const double cosNear = cosB <= C.cosA ? cosB * C.cosA + sinB * C.sinA : 1.0;
        // No normal of the cone within 90 degrees of it, by more than the sphere allows: cosE <= 0 for all.
        if (r0_ * cosNear + C.rho <= 0.0) return Kind::Skip;
        // A share is at most ratio |V_E| A_E cosR cosE / (4 pi r^2): a
        // cluster whose bound fits in what is left of the allowance is left
        // out (nearly in the receiver's plane, nearly edge on, small).
        if (allowance > 0.0) {
            const double cR = std::min(1.0, (nd_ + up) / (nl_ * rmin));
            const double cE = std::min(1.0, (r0_ * cosNear + C.rho) / rmin);
            const double bound = ratio_ * C.mass * cR * cE / (4.0 * kPi * rmin * rmin);
            if (spent_ + bound <= allowance) {
                spent_ += bound;
                return Kind::Skip;
            }
        }
        // Both cosines surely positive for every node (beta + alpha < 90 degrees).
        const double cosFar = cosB * C.cosA - sinB * C.sinA;
        const bool facing = nd_ + down > 0.0 && cosB > 0.0 && C.cosA > 0.0 && r0_ * cosFar > C.rho;
        if (!facing) return Kind::Open;
        // The remainder of the expansion is of the order (rho / r0)^2 of the
        // kernel's size |N_R| |b| / r0^2, the term itself that size times
        // cosR cosE: the cosines at the centre scale theta down, so that
        // grazing clusters (small terms, large relative remainders) open.
        // With q = order + 1 (at least 2) the remainder is of the order
        // (rho / r0)^q: accepted when that is at most theta^q cosR cosE.
        const double cosR = nd_ / (nl_ * r0_);
        const double t = C.rho / r0_;
        double tq = t * t, thq = rule_.theta * rule_.theta;
        for (int k = 2; k <= rule_.order; ++k) tq *= t, thq *= rule_.theta;
        // (the product of the cosines floored, so that near, grazing clusters
        // of a smooth surface do not open down to ever smaller ones as the
        // mesh is refined)
        if (!(tq <= thq * std::max(kGrazingFloor, cosR * cosB))) return Kind::Open;
        // g varies over the cluster by about x rho / r0: x at most theta^(q-1).
        if (!(ai_ <= thq / rule_.theta * kPi * rmin * rmin)) return Kind::Open;
        return Kind::Accept;
    }

    // The cluster's shares from its moments.
    double farTerm(const Cluster& C) const {
        const double* d = d0_;
        const double r2 = r0_ * r0_, r4 = r2 * r2;
        const double ad = nd_;
        double T = ad * (C.W[0] * d[0] + C.W[1] * d[1] + C.W[2] * d[2]);
        if (rule_.order >= 1) {
            const double* D = C.D;
            const double a[3] = {nx_, ny_, nz_};
            // a^T D^T d0 = sum_ij a_j D_ij d_i
            double aDd = 0.0, dDd = 0.0;
            for (int r = 0; r < 3; ++r) {
                const double Da = D[3 * r] * a[0] + D[3 * r + 1] * a[1] + D[3 * r + 2] * a[2];
                const double Dd = D[3 * r] * d[0] + D[3 * r + 1] * d[1] + D[3 * r + 2] * d[2];
                aDd += d[r] * Da;
                dDd += d[r] * Dd;
            }
            T += aDd + ad * (D[0] + D[4] + D[8]) - 4.0 * ad * dDd / r2;
        }
        if (rule_.order >= 2) T += secondOrder(C);
        const double x = nd_ / r0_ * ai_ / (kPi * r2);
        const double s = std::sqrt(1.0 + x);
        const double g = 2.0 / ((s + 1.0) * s);
        return -ratio_ * g / (4.0 * kPi) * T / r4;
    }

    // The second-order terms of the expansion (times r0^4): with u = |d|^-4,
    // its gradient g = -4 d0 / r0^2 and Hessian H = -4 I / r0^2 + 24 d0 d0^T
    // / r0^4 (both times r0^4), a = N_R, a0 = a . d0 and P_jk = sum_i d0_i Q_ijk,
    //   sum_i sum_k Q_iik (a + a0 g)_k + sum_jk P_jk (a_j g_k + a0 H_jk / 2).
    double secondOrder(const Cluster& C) const {
        static constexpr int S[3][3] = {{0, 1, 2}, {1, 3, 4}, {2, 4, 5}};
        const double* d = d0_;
        const double a[3] = {nx_, ny_, nz_};
        const double a0 = nd_, inv2 = 1.0 / (r0_ * r0_);
        const double g[3] = {-4.0 * d[0] * inv2, -4.0 * d[1] * inv2, -4.0 * d[2] * inv2};
        double T = 0.0;
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) T += C.Q[6 * i + S[i][k]] * (a[k] + a0 * g[k]);
        double P[6];
        for (int s = 0; s < 6; ++s) P[s] = d[0] * C.Q[s] + d[1] * C.Q[6 + s] + d[2] * C.Q[12 + s];
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) {
                const double H = (j == k ? -4.0 * inv2 : 0.0) + 24.0 * d[j] * d[k] * inv2 * inv2;
                T += P[S[j][k]] * (a[j] * g[k] + 0.5 * a0 * H);
            }
        return T;
    }

    // How many of the cluster's samples the surface hides from the receiver.
    int hiddenSamples(const Cluster& C) {
        std::int32_t from[kSamples], to[kSamples];
        bool hidden[kSamples];
        for (int s = 0; s < C.samples; ++s) {
            from[s] = t_.node[i_];
            to[s] = t_.node[static_cast<std::size_t>(C.sample[s])];
        }
        bvh_->occludedPairs(from, to, C.samples, hidden);
        tests += C.samples;
        return static_cast<int>(std::count(hidden, hidden + C.samples, true));
    }

    // The leaf pair by pair, with the exact kernel's arithmetic for the share
    // the receiver gets.
    void leaf(const Cluster& C) {
        const double ei = t_.extent[i_];
        if (bvh_ == nullptr) {
            const LeafRow R{t_.x.data(),  t_.y.data(),    t_.z.data(),     t_.nx.data(), t_.ny.data(),
                            t_.nz.data(), t_.area.data(), t_.value.data(), t_.extent.data()};
            const double rec[9] = {px_, py_, pz_, nx_, ny_, nz_, ai_, ei, ratio_};
            exact_ += leafShares(R, static_cast<std::size_t>(C.begin), static_cast<std::size_t>(C.end), rec, sqrtPi_);
            return;
        }
        constexpr int P = SurfaceBvh::kPacket;
        // Each pair is tested from its lower node number, as the exact pass tests it.
        std::int32_t from[P], target[P];
        double share[P];
        bool hidden[P];
        int n = 0;
        auto flush = [&] {
            bvh_->occludedPairs(from, target, n, hidden);
            tests += n;
            for (int k = 0; k < n; ++k)
                if (!hidden[k]) exact_ += share[k];
            n = 0;
        };
        for (auto j = static_cast<std::size_t>(C.begin); j < static_cast<std::size_t>(C.end); ++j) {
            if (j == i_) continue;
            const double dx = t_.x[j] - px_, dy = t_.y[j] - py_, dz = t_.z[j] - pz_;
            const double r = std::sqrt(dx * dx + dy * dy + dz * dz);
            const double m = std::max(ei, t_.extent[j]);
            if (!(r > 1e-10 * m)) continue;
            const double inv = 1.0 / r;
            const double ux = dx * inv, uy = dy * inv, uz = dz * inv;
            const double cosR = nx_ * ux + ny_ * uy + nz_ * uz;
            const double cosE = t_.nx[j] * -ux + t_.ny[j] * -uy + t_.nz[j] * -uz;
            if (!(cosR > 0.0 && cosE > 0.0)) continue;
            const double S = std::sqrt(kPi * r * r + cosR * ai_);
            const double s = (S - r * sqrtPi_) * t_.value[j] * t_.area[j] * cosE * ratio_ / (2 * S * ai_);
            if (bvh_ == nullptr) {
                exact_ += s;
                continue;
            }
            from[n] = std::min(t_.node[i_], t_.node[j]);
            target[n] = std::max(t_.node[i_], t_.node[j]);
            share[n] = s;
            if (++n == P) flush();
        }
        if (n > 0) flush();
    }
};

}  // namespace

FarFieldRule farFieldRule(double tolerance) {
    FarFieldRule r;
    r.order = 2;
    r.tolerance = std::max(0.0, tolerance);
    r.theta = std::min(0.5, 2.5 * std::cbrt(std::max(0.0, tolerance)));
    return r;
}

std::vector<double> hierarchicalSums(const IlluminationNodes& p, double ratio, FarFieldRule rule,
                                     const SurfaceBvh* bvh, SelfIlluminationStats* stats, WorkShare share) {
    const std::size_t M = p.size();
    // A few rays judge an accepted cluster's visibility well only when it is
    // small as seen from the receiver: with the obstruction test the
    // clusters taken whole stay as small as the first-order rule has them.
    if (bvh != nullptr && rule.tolerance > 0.0) rule.theta = std::min(rule.theta, kVisibleTheta * std::sqrt(rule.tolerance));
    const Tree tree(p, rule.leafSize);
    std::vector<double> sums(M, 0.0);
    const double sqrtPi = std::sqrt(kPi);
    // The allowance: a share of the tolerance times the largest correction
    // of receivers spread over the tree (walked without it), which is at
    // most the largest of all.
    double allowance = 0.0;
    if (rule.tolerance > 0.0 && M > 0) {
        const std::size_t n = std::min<std::size_t>(M, kAllowanceSamples);
        double largest = 0.0;
#pragma omp parallel reduction(max : largest)
        {
            Receiver walk(tree, ratio, rule, bvh, sqrtPi);
#pragma omp for schedule(dynamic, 1)
            for (std::size_t k = 0; k < n; ++k) {
                const double c = walk.sum(k * M / n);
                if (std::isfinite(c)) largest = std::max(largest, std::abs(c));
            }
        }
        allowance = kAllowanceShare * rule.tolerance * largest;
    }
    // A share of several: its own blocks of receivers only (see ownsBlock).
    constexpr std::size_t kChunk = kShareBlock;
    std::size_t receivers = M;
    if (share.count > 1) {
        receivers = 0;
        for (std::size_t first = 0; first < M; first += kChunk)
            if (ownsBlock(first / kChunk, share)) receivers += std::min(M, first + kChunk) - first;
    }
    PairProgress progress(static_cast<std::int64_t>(receivers));
    std::int64_t tests = 0, terms = 0;
    std::exception_ptr failure;

#pragma omp parallel reduction(+ : tests, terms)
    {
        Receiver walk(tree, ratio, rule, bvh, sqrtPi);
        walk.allowance = allowance;
#pragma omp for schedule(dynamic, 1)
        for (std::size_t first = 0; first < M; first += kChunk) {
            const std::size_t last = std::min(M, first + kChunk);
            if (progress.stopping() || (share.count > 1 && !ownsBlock(first / kChunk, share))) continue;
            try {
                for (std::size_t i = first; i < last; ++i)
                    sums[static_cast<std::size_t>(tree.order[i])] = walk.sum(i);
            } catch (...) {
#pragma omp critical(tundrel_self_illumination_tree_failure)
                if (!failure) failure = std::current_exception();
            }
            progress.add(static_cast<std::int64_t>(last - first));
        }
        tests += walk.tests;
        terms += walk.terms;
    }
    if (failure) std::rethrow_exception(failure);
    progress.finish();
    if (stats != nullptr) {
        stats->participants = static_cast<std::int64_t>(M);
        stats->pairs = static_cast<std::int64_t>(receivers) * static_cast<std::int64_t>(M > 0 ? M - 1 : 0);
        stats->segmentTests = tests;
        stats->clusterTerms = terms;
    }
    return sums;
}

}  // namespace tundrel::detail
