// The hierarchical self-illumination correction for large models.
//
// The participants are sorted into a binary tree (median split along the
// longest side of the bounding box; a cluster whose normals spread over more
// than 60 degrees, such as both sides of a thin wing, is split along the
// normal component that varies most instead; leaves of at most 32 nodes, 16
// with the obstruction test).
// Each cluster keeps a bounding sphere (centre c, radius rho), a cone that
// holds the normals of its nodes (axis, half angle alpha), the least and
// largest n . delta over its nodes (n the unit normal, delta = P - c: how far
// a node stands out of its own plane through c), sum |V| A and the moments of
// its emission b = V A N about c: W = sum b, D = sum b delta^T, Q = sum b
// delta delta^T.
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
//   order 2: + the terms in Q (see farTerms)
// and g is taken at the centre. Receivers are walked in groups (the largest
// clusters of at most 64 nodes), first as one, then each on its own.
//
// The group as one (walkGroup; its sphere, cone and slab made from its
// receivers) descends the tree from the root. Bounds of N_i . (P_j - P_i)
// over every receiver i and node j (and the same the other way) come from
// both cones, both slabs and the distance of the centres (reach). A cluster
//   - is skipped when no pair can face both ways, or when the bound of its
//     shares (as below, with r0 - rho_G - rho_E) fits in what is left of
//     the allowance every receiver of the group shares;
//   - is taken whole into the group's field when every pair surely faces
//     both ways, t^3 <= theta^3 / 2 max(0.15, cosR cosE) with t = (rho_G +
//     rho_E) / r0 and the cosines of the centres' axes, and the largest
//     receiver area A gives x <= A / (pi (r0 - rho_G - rho_E)^2) <=
//     theta^3 / 4;
//   - with the obstruction test (where the group takes nothing whole), is
//     handed to the receivers' own walks as it is when every pair surely
//     faces both ways and each receiver would take it by the rule below at
//     the floor of the cosines, with the clusters judged by rays: rho_E /
//     (r0 - rho_G) small enough (the example refined three times: 144
//     rays and 351 terms a node rather than 198 and 575, 7.7 to 8.3 s
//     rather than 9.5 to 10.2; without the test, where such clusters are
//     far and the group takes most of them, no faster);
//   - is opened while it is larger than twice the group's radius, and
//     handed to the receivers' own walks otherwise.
// The field: phi(d) = d d^T / |d|^4 at the centres' distance d is expanded
// to the second order in both offsets together (e = delta_E - delta_R),
// summed with the cluster's moments W, D, Q and written as a polynomial of
// degree 2 in the receiver's offset, a vector field f with N . f the share
// (see expand); x's first term -3x/4 is taken at the centres (N^T M N, times
// the receiver's area). The remainder is of the order t^3 of the kernel's
// size, as in the rule below, with both radii in t, so the group takes
// clusters at the same relative error as a single receiver would with a
// cluster of radius rho_G + rho_E; theta^3 / 2 rather than theta^3 because
// one group's error reaches all its receivers alike (measured: at theta^3
// the closed sphere erred 7e-4 at 20,000 nodes, at theta^3 / 2 2.5e-4); the
// x term errs by at most x t <= theta^4 / 4 of the share (3e-3 of EPS at
// 1e-3), the next one, 5x^2/8, by less. Each group evaluates its field at
// its receivers once at the end.
//
// What the group hands on, its receivers walk on their own: each cluster
// judged for all receivers still looking at it in one vectorised loop, the
// accepted ones' terms summed in another, the leaves' pairs summed as a
// block of the leaf's nodes against the receivers (vectorised over the
// receivers); every receiver meets the clusters in the order and with the
// outcome of its own walk, which is, per receiver, from what it is handed:
//   - skip a cluster when it lies behind the receiver's plane (by its sphere
//     and by the slab across the cone's axis that holds its nodes, which is
//     thin for flat clusters: neighbours on a flat or convex part), or when no
//     node can face the receiver (r0 cos(beta - alpha) - min n . delta <= 0,
//     beta the angle between the cone's axis and the way back to the
//     receiver);
//   - skip it too when its shares are bounded (ratio sum |V| A times the
//     largest cosR and cosE the bounds allow, over 4 pi (r0 - rho)^2) by what
//     is left of the receiver's allowance: a quarter of EPS times the largest
//     correction of 256 receivers spread over the tree (walked without an
//     allowance first), at most the largest of all. This drops the clusters
//     that lie nearly in the receiver's plane or nearly edge on, which
//     otherwise open down to their leaves (a flat part: every node of it).
//     The allowance follows the error measure, which is relative to the
//     largest correction; the samples find less than the largest where it
//     lies in a small corner (the example refined twice: 0.11 of 2.0, the
//     corner between wing and body), which keeps the allowance small there.
//     With the obstruction test, where the allowances pay for most of the
//     rays, every receiver's near field finds the corner, and the largest
//     there are walked with the obstruction test (2.0).
//     On a smooth convex part it cannot pay for the clusters that straddle
//     the receiver's plane along a line through the receiver (along a
//     wing's span, along a fuselage): their bounds, slack by the cluster's
//     size, add up to more, and they open down to their leaves;
//   - accept it whole when every node of it surely faces the receiver and
//     back (sphere, slab and cone bounds; r0 cos(beta + alpha) > max n .
//     delta for the nodes' own cosines), (rho / r0)^q <= theta^q
//     max(0.15, cosR cosE) with q = order + 1 and the cosines at the centre
//     (the remainder is of the order (rho / r0)^q of |N_R| |b| / r0^2, the
//     term that size times cosR cosE, so grazing clusters open sooner; the
//     floor keeps the near field of a smooth surface from growing with the
//     node count) and A_R / (pi (r0 - rho)^2) <= theta^(q - 1);
//   - open it otherwise; a leaf that is opened is summed with the exact
//     kernel in a vectorised loop (pair by pair with the obstruction test),
//     or, where its sphere shows x small for every receiver (most leaves: a
//     leaf is opened at a few times its radius), by the kernel's series in
//     x cut where it errs by at most 1e-3 EPS of the share (nearShare: one
//     square root and one division rather than two and one; the example
//     refined three times 8.1 s -> 7.2 s). Before that, a receiver skips
//     an opened leaf when sum |V| A max(0, a) max(0, b) over its nodes,
//     times ratio / (4 pi (r0 - rho)^4), fits in what is left of a second
//     allowance, a tenth of the first and kept apart from it (leafFan: no
//     square root, no division), and is at most a sixteenth of what is
//     left of it (the many small ones first; the example refined three
//     times 2.98 to 3.01 s rather than 3.21 to 3.22, with the obstruction
//     test 15.6 to 16.3 s rather than 16.6 to 17.0; a quarter and a 64th
//     gained less). The cluster's bounds cannot see that most
//     pairs of a leaf seen edge on have a or b negative or of the mesh's
//     roughness; this sum can: on the example refined twice or three times
//     it lets receivers skip 70% of the leaves they open. Sharing the first
//     allowance was slower, the leaves spending what clusters would have.
//     A group stops bounding its leaves when fewer than a quarter are
//     skipped (the closed sphere: none are). Receivers spread over the
//     lanes with gaps are packed side by side for both loops.
// The rule: order 2 with theta = 2.5 EPS^(1/3) (at most 0.5), theta = 0.25
// at EPS = 1e-3. Measured (bench/self_illumination_hier_bench, BM_Rule) on
// models of about 20,000 nodes: order 2 at theta 0.1 errs 8e-6 on a closed
// sphere from inside where order 1 errs 1.7e-3 (its remainder is of the order
// theta^2 and of one sign there); at theta 0.25 order 2 errs 3.2e-4 (sphere)
// and 2.7e-4 (the concave model with a screen), at 0.35 1.7e-3. Leaves of 32
// nodes, no faster there, are faster on larger models, where judging
// clusters takes more of the time (the example refined three times, 288,547
// nodes: 7.4 s against 9.1 s, the least of three runs; 64 nodes: 8.1 s).
// The group's walk, with the same theta, errs 2.5e-4 (sphere) and
// 2.7e-4 (concave) at 20,000 nodes; groups that went on as halves of 32 and
// 16 receivers (each judging what the larger handed down) were slower, the
// expansions costing more than the receivers' own terms they saved, and so
// was opening clusters down to the group's radius (rather than twice it);
// down to three times it was no faster.
//
// With the obstruction test a few rays judge an accepted cluster (below), and
// they judge it well only while it is small as seen from the receiver: it
// is then also at most 3 sqrt(EPS) of its distance (0.095 at 1e-3), its
// expansion judged as without the test. (Theta itself once was at most
// 2.2 sqrt(EPS), which with the floor for grazing clusters opened those down
// to 0.037: the example refined twice traced 180 rays a node rather than 94,
// in 1.9 s rather than 1.6 s.) Measured with the rule as it is, on the
// concave model of 16,400 nodes and the example refined twice: 2.2 sqrt(EPS)
// erred 4.8e-4 and 1.48e-4, 2.6 sqrt(EPS) 4.6e-4, 3 sqrt(EPS) 5.0e-4 and
// 1.34e-4, 4 sqrt(EPS) 6.9e-4, 6 sqrt(EPS) 2.3e-3; the sphere of 19,902 nodes
// walked, 2.4e-4 throughout. The example refined three times took 11.7 s at
// 2.2 sqrt(EPS), 10.2 s at 3 sqrt(EPS).
//
// With the obstruction test an accepted cluster is first looked at along a
// few rays from the receiver: to the node nearest the centre and to up to
// three nodes spread over the cluster (each the farthest from those before).
// All clear: the cluster counts whole; all hidden: it gives nothing; mixed:
// it is opened, down to the exact test of every pair at the leaves. Rays
// can miss the edge of a shadow that crosses the cluster, and a cluster
// misjudged errs by up to its shares: only a cluster whose bound is at most
// EPS times the largest correction is judged by rays, any other is opened.
// Two small plates far apart that a screen hides half of from each other
// erred 68 times the tolerance without that rule; the example refined twice
// or three times has no cluster so large, and traces the same rays (the
// closed sphere of 19,902 nodes, walked, 8,125 rather than 6,080 a node).
// Receivers of a group that judge the same cluster (on the example refined
// twice 15 on average), lying within theta of the cluster's distance of
// each other, are judged first by four of them, picked as a cluster's
// samples are: all of those clear, every one of them takes it (kProbeLanes).
// Of the 585 rays a node on the example refined twice, 110 judged
// clusters: 524 now; refined three times 1,117 rather than 1,595 (45.1 s
// rather than 51.4 s), the errors as before. An accepted cluster whose
// bound fits in what is left of a third allowance, as large as the first
// and kept apart from it, counts whole without a ray (hidden, it errs by at
// most what it spends): on the example refined twice, with the allowance
// from the corner, the walks traced 585 rays a node rather than 1,537. The
// concave model errs 4.5e-4 rather than 2.9e-4. A receiver skips a leaf
// whose pairs' bound (leafFan, above) fits in what is left of its second
// allowance, with no ray (occlusion only takes shares away, so the bound
// holds): on the example refined twice 18% fewer rays at the leaves. A
// pair whose share fits in what is left of the receiver's first allowance,
// or of a fourth, a tenth of EPS times the largest correction, counts as
// seen without a ray (it errs by at most what it spends). A cluster may take
// at most a sixteenth of what is left of the third, a pair a 256th of the
// fourth, so that the many small ones spend them rather than whichever the
// walk meets first: of the example refined twice's 37.6 M rays, 34.0 M
// went to pairs at the leaves, most of them of less than a thousandth of
// the allowance each, traced once the clusters had spent the first. With
// the fourth the walks there traced 179 rays a node rather than 524 (2.2 s
// rather than 5.1 s; refined three times 393 rather than 1,117, 18.4 s
// rather than 44 s), the errors 1.46e-4 rather than 1.29e-4 and, on the
// concave model walked, 5.4e-4. Measured on the example refined twice: the
// pairs' allowance taken in the order met, 443 rays a node; capped at a
// 256th of the whole rather than of what is left, 282; a 64th of what is
// left, 218 rather than 201 (the clusters uncapped); a fifth of EPS rather
// than a tenth, 163, the concave model erring 6.4e-4. Refined three times:
// a 1,024th of what is left, 431 rather than 393; the clusters uncapped 488,
// capped at a quarter 455. Giving such pairs the second allowance
// too left fewer whole leaves skipped and traced more. A pair's answer is
// kept for the pair's other node, whose walk may need it too
// (PairCache: on the concave model half its rays). The end regions the exact pass trims
// its segments by cost more to build than a few rays: here a node's are
// built once it has been an end of 256 rays, and until then its segments
// are traced whole (the closed sphere of 20,000 nodes: 19 s where whole
// segments everywhere take 29.5 s).
//
// Where a few receivers' dry walks (rays counted, none traced) come to at
// least 0.7 of the rays the exact pass traces a node, the exact pass runs
// instead (see hierarchicalSums). On the example refined twice the walks
// trace 94 rays a node against the exact pass's about 2,500 (the dry walks
// count 0.04 of them): 1.2 s against 11.1 s. The sphere of 19,902 nodes
// counts 0.94, the concave model of 16,400 1.27, the example 0.87: the
// exact pass, 1.0 to 1.4 times as fast there (a walk's ray costs more than
// an exact one: whole segments at first, and the walk).
//
// Where the walks' time goes without the obstruction test, on the example
// refined twice (0.43 s): of 62.5 M judgements of a cluster by a receiver,
// 4.5 M take it whole and 35.6 M open it; 30.5 M of those opened have a
// bound at least 100 times what is left of the allowance, and 23.6 M lie
// at least 7 radii away, far enough to be taken whole but for the cosines:
// clusters that the receiver's plane or their nodes' own planes cut, which
// have no expansion and open down to the leaves along the cut, where
// leafFan lets 79% of the receivers pass. The cuts grow longer, counted in
// leaves, as the square root of the node count: refined three times the
// walks take 7 times as long, four times 8 times that again. Tried and
// left out, each within 4% without the test and no faster with it
// (1.21 s): the sines of classifyLanes in single precision, raised past
// their rounding, in a loop of their own; a box across the cone's axis
// along the nodes' principal directions, for a tighter reach along N_R;
// the kinds returned as masks; the ray ends' counts read before they are
// raised.
//
// Memory: the participants in tree order (about 90 bytes a node), one
// cluster of 448 bytes for every 8 nodes, and the sums (twice with the
// obstruction test, the near fields' for a while); with the
// obstruction test also a ray count a node and the pair cache (at most 8
// pairs of leaves a node, about 110 bytes each), besides the ray-tracing
// hierarchy and the end regions it builds.
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <numeric>
#include <unordered_map>
#include <utility>
#include <vector>

#include "api/detail/self_illumination_kernel.h"
#include "api/detail/surface_bvh.h"

namespace tundrel::detail {

namespace {

constexpr double kPi = 3.14159265358979;
constexpr int kSamples = 4;
constexpr std::size_t kAllowanceSamples = 256;
constexpr std::size_t kObstructedSamples = 8;  // largest walked again with the obstruction test
constexpr double kAllowanceShare = 0.25;
// What a receiver may leave out in leaves whose pairs' bound is small (leafFan),
// besides the allowance of the clusters: a tenth of theirs.
constexpr double kLeafAllowanceShare = 0.025;
// What a receiver may take whole without looking, with the obstruction test
// (accepted clusters whose bound is small), besides the other two.
constexpr double kSightAllowanceShare = 0.25;
// What a receiver may take as seen without a ray in leaf pairs whose shares
// are small, besides the other three.
constexpr double kPairAllowanceShare = 0.1;
// A leaf skipped by its pairs' bound may spend at most this share of what is
// left of the leaves' allowance, a cluster taken whole without looking this
// share of what is left of the sight allowance, a pair taken as seen
// untraced this share of what is left of the pairs' allowance: the many
// small ones come first, rather than whichever the walk meets first.
constexpr double kLeafSpend = 1.0 / 16.0;
constexpr double kSightSpend = 1.0 / 16.0;
constexpr double kPairSpend = 1.0 / 256.0;
// From this many receivers of a group judging a cluster by rays, kProbes of
// them judge it first for all (Group::probeLanes).
constexpr int kProbeLanes = 8;
constexpr int kProbes = 4;
// A cluster is judged by rays only where its bound is at most this share of
// the tolerance times the largest correction (it is opened otherwise).
constexpr double kSampleShare = 1.0;
// A group of receivers bounds its leaves' pairs while that lets at least one
// lane in kFanWorth skip the leaf (judged after kFanTrial lanes).
constexpr std::int64_t kFanTrial = 256;
constexpr std::int64_t kFanWorth = 4;
// The exact pass runs instead when a receiver's walk (alone, each leaf pair
// traced from both sides) traces at least this share of the rays the exact
// pass traces a node (a walk's ray costs about 1.2 times an exact one, and
// the dry walks count about a tenth fewer than the walks then trace).
constexpr double kCheaperShare = 0.7;
constexpr std::size_t kRaySamples = 64;
constexpr std::size_t kPairSamples = 4096;
constexpr std::int32_t kTrimAfter = 256;
constexpr double kVisibleTheta = 3.0;
constexpr double kNearReach = 1.0;  // the near field that finds the largest: leaves within this times a group's radius
constexpr double kGrazingFloor = 0.15;
constexpr int kLeafSize = 32;          // nodes in a leaf at most, without the obstruction test
constexpr int kLanes = 64;             // receivers walked together
constexpr int kBlock = 4;              // lanes a vector: loops over lanes go in whole blocks, with no remainder
constexpr double kOpenRatio = 2.0;     // a group opens clusters larger than this times its radius
constexpr double kGroupShare = 0.5;    // a group takes clusters whole at this share of theta^3
// Leaf pairs are summed by a series where it errs by at most this share of
// the tolerance (x about 0.07 at 1e-3), and never past kSeriesLargestX.
constexpr double kSeriesShare = 1e-3;
constexpr double kSeriesLargestX = 0.1;
constexpr double kSeriesError = 231.0 / 512.0;  // the series' error, at most this times x^5 of the share

// The pairs j <= k of axes, in the order of Cluster::Q.
constexpr int kPairM[6] = {0, 0, 0, 1, 1, 2}, kPairN[6] = {0, 1, 2, 1, 2, 2};

struct alignas(64) Cluster {
    double c[3];           // centre of the bounding sphere
    double rho;            // its radius (NaN when a position is not finite)
    double axis[3];        // cone of the normals: axis, cos and sin of the half angle
    double cosA, sinA;
    double hlo, hhi;       // the nodes lie within hlo <= axis . (P - c) <= hhi
    double back, front;    // least and largest n . (P - c) over the nodes (n the unit normal)
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
    // With `samples`, each cluster also picks the nodes its visibility is judged by.
    Tree(const IlluminationNodes& p, int leafSize, bool samples)
        : p_(p), leaf_(std::max(1, leafSize)), samples_(samples ? kSamples : 1) {
        const auto M = static_cast<std::int32_t>(p.size());
        order.resize(static_cast<std::size_t>(M));
        std::iota(order.begin(), order.end(), 0);
        leafOf.resize(order.size());
        // The splits, top levels as tasks: a cluster's number is where a walk
        // of the tree in pre-order meets it, fixed by the subtree sizes alone.
        if (M > 0) {
            clusters.resize(static_cast<std::size_t>(subtreeClusters(M)));
#pragma omp parallel
#pragma omp single
            split(0, 0, M);
        }
        // The flat arrays in tree order, for the descriptions and the leaves' pair loops.
        x.resize(order.size());
        y = z = nx = ny = nz = area = value = extent = x;
        node.resize(order.size());
        std::int64_t other = 0;  // normals not of unit length
#pragma omp parallel for reduction(+ : other)
        for (std::size_t k = 0; k < order.size(); ++k) {
            const auto i = static_cast<std::size_t>(order[k]);
            x[k] = p.x[i], y[k] = p.y[i], z[k] = p.z[i];
            nx[k] = p.nx[i], ny[k] = p.ny[i], nz[k] = p.nz[i];
            area[k] = p.area[i], value[k] = p.value[i], extent[k] = p.extent[i];
            node[k] = p.node[i];
            const double len = std::sqrt(nx[k] * nx[k] + ny[k] * ny[k] + nz[k] * nz[k]);
            if (!(std::abs(len - 1.0) <= 1e-9)) ++other;
        }
        unit = other == 0;
        // Every cluster is a range of the tree order: described from the flat arrays.
#pragma omp parallel for schedule(dynamic, 16)
        for (std::size_t c = 0; c < clusters.size(); ++c) describe(clusters[c]);
        // Children come after their parent: from the last cluster back, each
        // parent finds its children's moments ready.
        for (std::size_t c = clusters.size(); c-- > 0;)
            if (clusters[c].child[0] >= 0) gather(clusters[c]);
        // A cluster of at most kLanes nodes, or a leaf, not within the last group is a group.
        for (std::size_t c = 0; c < clusters.size(); ++c) {
            const Cluster& C = clusters[c];
            if ((C.child[0] < 0 || C.end - C.begin <= kLanes) &&
                (groups.empty() || clusters[static_cast<std::size_t>(groups.back())].end <= C.begin))
                groups.push_back(static_cast<std::int32_t>(c));
        }
    }

    std::vector<std::int32_t> order;  // tree position -> participant
    std::vector<Cluster> clusters;    // clusters[0] is the root
    std::vector<std::int32_t> groups; // in tree order, the largest clusters of at most kLanes nodes (or leaves)
    std::vector<double> x, y, z, nx, ny, nz, area, value, extent;
    std::vector<std::int32_t> node;
    std::vector<std::int32_t> leafOf;  // tree position -> its leaf
    bool unit = true;  // every normal of unit length: the cone bounds of the receiver groups hold

private:
    const IlluminationNodes& p_;
    int leaf_;
    int samples_;

    // How many clusters a subtree of m nodes has (the splits fall at the
    // median, wherever the nodes lie).
    std::int64_t subtreeClusters(std::int32_t m) const {
        return m <= leaf_ ? 1 : 1 + subtreeClusters(m / 2) + subtreeClusters(m - m / 2);
    }

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

    // The cone that holds the normals (nx, ny, nz at at(k)) of tree
    // positions [begin, end): its axis (the normalised sum of the normals,
    // zero when that is zero) and the cosine of its half angle.
    struct Normals {
        const double *nx, *ny, *nz;
    };
    template <class At>
    static double cone(Normals p, At at, std::int32_t begin, std::int32_t end, double axis[3]) {
        double n[3] = {0, 0, 0};
        for (std::int32_t k = begin; k < end; ++k) {
            const std::size_t i = at(k);
            n[0] += p.nx[i], n[1] += p.ny[i], n[2] += p.nz[i];
        }
        const double nl = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        for (int a = 0; a < 3; ++a) axis[a] = nl > 0.0 ? n[a] / nl : 0.0;
        double cosA = nl > 0.0 ? 1.0 : -1.0;
        for (std::int32_t k = begin; k < end; ++k) {
            const std::size_t i = at(k);
            const double len = std::sqrt(p.nx[i] * p.nx[i] + p.ny[i] * p.ny[i] + p.nz[i] * p.nz[i]);
            const double cosN = (axis[0] * p.nx[i] + axis[1] * p.ny[i] + axis[2] * p.nz[i]) / len;
            if (!(cosN >= cosA)) cosA = std::isnan(cosN) ? -1.0 : std::max(-1.0, cosN);
        }
        return cosA;
    }

    // Cluster `id` over the nodes [begin, end) of the tree order, and its subtree.
    void split(std::int32_t id, std::int32_t begin, std::int32_t end) {
        Cluster& C = clusters[static_cast<std::size_t>(id)];
        C.begin = begin;
        C.end = end;
        C.child[0] = C.child[1] = -1;
        if (end - begin <= leaf_) {
            for (std::int32_t k = begin; k < end; ++k) leafOf[static_cast<std::size_t>(k)] = id;
            return;
        }
        // A cluster whose normals spread over more than 60 degrees (both
        // sides of a thin wing, a sharp edge) is split by the normals, so
        // that its parts can be skipped or taken whole; others by position.
        double axisN[3];
        const bool byNormal =
            cone({p_.nx.data(), p_.ny.data(), p_.nz.data()}, [&](std::int32_t k) { return static_cast<std::size_t>(order[static_cast<std::size_t>(k)]); }, begin,
                 end, axisN) < 0.5;
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
        const std::int32_t left = id + 1;
        const auto right = static_cast<std::int32_t>(left + subtreeClusters(mid - begin));
        C.child[0] = left;
        C.child[1] = right;
        constexpr std::int32_t kTaskNodes = 4096;  // smaller subtrees are split by the task that meets them
#pragma omp task if (end - begin > kTaskNodes)
        split(left, begin, mid);
        split(right, mid, end);
#pragma omp taskwait
    }

    // A parent's moments about its centre c from its children's about
    // theirs, c_k = c + s: delta = delta_k + s, so that
    //   W = sum W_k, D_ij = sum D_k,ij + W_k,i s_j,
    //   Q_ijl = sum Q_k,ijl + D_k,ij s_l + D_k,il s_j + W_k,i s_j s_l.
    void gather(Cluster& C) const {
        for (const std::int32_t id : C.child) {
            const Cluster& K = clusters[static_cast<std::size_t>(id)];
            const double sh[3] = {K.c[0] - C.c[0], K.c[1] - C.c[1], K.c[2] - C.c[2]};
            for (int i = 0; i < 3; ++i) {
                C.W[i] += K.W[i];
                for (int j = 0; j < 3; ++j) C.D[3 * i + j] += K.D[3 * i + j] + K.W[i] * sh[j];
                for (int s = 0; s < 6; ++s) {
                    const int j = kPairM[s], l = kPairN[s];
                    C.Q[6 * i + s] += K.Q[6 * i + s] + K.D[3 * i + j] * sh[l] + K.D[3 * i + l] * sh[j] + K.W[i] * sh[j] * sh[l];
                }
            }
        }
    }

    // Cluster C's sphere, cone, slab, moments (a leaf's; see gather) and
    // samples, from the flat arrays.
    void describe(Cluster& C) const {
        const std::int32_t begin = C.begin, end = C.end;
        auto at = [](std::int32_t k) { return static_cast<std::size_t>(k); };
        double lo[3] = {x[at(begin)], y[at(begin)], z[at(begin)]}, hi[3] = {lo[0], lo[1], lo[2]};
        for (std::int32_t k = begin; k < end; ++k) {
            const std::size_t i = at(k);
            const double q[3] = {x[i], y[i], z[i]};
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], q[a]);
                hi[a] = std::max(hi[a], q[a]);
            }
        }
        for (int a = 0; a < 3; ++a) C.c[a] = 0.5 * (lo[a] + hi[a]);
        C.cosA = cone({nx.data(), ny.data(), nz.data()}, at, begin, end, C.axis);
        C.rho = 0.0;
        C.hlo = C.hhi = 0.0;
        C.back = std::numeric_limits<double>::infinity(), C.front = -C.back;
        std::fill(std::begin(C.W), std::end(C.W), 0.0);
        C.mass = 0.0;
        std::fill(std::begin(C.D), std::end(C.D), 0.0);
        std::fill(std::begin(C.Q), std::end(C.Q), 0.0);
        std::int32_t nearest = begin;
        double nearestD = std::numeric_limits<double>::infinity();
        for (std::int32_t k = begin; k < end; ++k) {
            const std::size_t i = at(k);
            const double d[3] = {x[i] - C.c[0], y[i] - C.c[1], z[i] - C.c[2]};
            const double r = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
            if (!(r <= C.rho)) C.rho = r;  // NaN sticks
            const double h = C.axis[0] * d[0] + C.axis[1] * d[1] + C.axis[2] * d[2];
            C.hlo = std::min(C.hlo, h);
            C.hhi = std::max(C.hhi, h);
            const double f = (nx[i] * d[0] + ny[i] * d[1] + nz[i] * d[2]) /
                             std::sqrt(nx[i] * nx[i] + ny[i] * ny[i] + nz[i] * nz[i]);
            if (!(f >= C.back)) C.back = f;  // NaN sticks: such a cluster is never surely facing
            if (!(f <= C.front)) C.front = f;
            if (r < nearestD) nearestD = r, nearest = k;
            const double w = value[i] * area[i];
            C.mass += std::abs(w);
            if (C.child[0] >= 0) continue;  // a parent's moments come from its children's (gather)
            const double b[3] = {w * nx[i], w * ny[i], w * nz[i]};
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
        while (C.samples < std::min<std::int32_t>(samples_, end - begin)) {
            std::int32_t best = -1;
            double bestD = -1.0;
            for (std::int32_t k = begin; k < end; ++k) {
                double dmin = std::numeric_limits<double>::infinity();
                for (int s = 0; s < C.samples; ++s) {
                    const std::size_t i = at(k), j = at(C.sample[s]);
                    const double d[3] = {x[i] - x[j], y[i] - y[j], z[i] - z[j]};
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

// The receivers of a group, one lane each (lanes past the group's size
// repeat its first receiver and are never looked at), and what the last
// cluster judged is to each of them.
struct Lanes {
    alignas(64) double px[kLanes], py[kLanes], pz[kLanes], nx[kLanes], ny[kLanes], nz[kLanes], nl[kLanes],
        ai[kLanes];
    alignas(64) double invNl[kLanes], spent[kLanes], far[kLanes], exact[kLanes], ext[kLanes], aiPi[kLanes];
    alignas(64) double dx[kLanes], dy[kLanes], dz[kLanes], inv0[kLanes], nd[kLanes];
    alignas(64) std::int64_t kind[kLanes];  // Kind; as wide as a double, or the loop that sets it
                                            // would not fill whole vectors
    alignas(64) double take[kLanes];  // 1: the cluster counts whole for this lane, else 0
    alignas(64) double in[kLanes];    // 1: the lane looks at the cluster, else 0
    alignas(64) double fan[kLanes];   // a leaf's sum of |V| A max(0, a) max(0, b), see leafFan
    alignas(64) double leafSpent[kLanes];  // what the lane has left out in leaves
    alignas(64) double bound[kLanes];      // the bound of the last cluster's shares to the lane
    alignas(64) double sightSpent[kLanes];  // what the lane has taken whole without rays
    alignas(64) double pairSpent[kLanes];   // what the lane has taken as seen in pairs without rays
};

enum Kind : std::int64_t { kSkip = 0, kAccept = 1, kOpen = 2 };

// Whether `x` fits in at most `share` of what is left of an allowance of
// which `spent` is used; if so it is spent.
inline bool spendFrom(double& spent, double allowance, double share, double x) {
    if (!(x <= share * (allowance - spent))) return false;
    spent += x;
    return true;
}

// What the walk's judgement needs besides the cluster.
struct Judge {
    double ratio, theta, thq, allowance;
    int order;
    double sight;  // with the obstruction test, the largest rho / r0 judged by rays
};

// The lanes from the first to the last in `mask`, in whole blocks. Every
// loop over lanes runs block by block, a block of kBlock lanes being one
// vector: a loop of a span the compiler cannot see is vectorised only from
// two vectors on, and most spans are one block.
inline std::pair<int, int> laneSpan(std::uint64_t mask) {
    return {std::countr_zero(mask) & ~(kBlock - 1),
            std::min(kLanes, (kLanes - std::countl_zero(mask) + kBlock - 1) & ~(kBlock - 1))};
}

// The bits of `mask` from lo to hi as 1 and 0, a block at a time.
struct BlockFlags {
    alignas(32) double of[1 << kBlock][kBlock];
    constexpr BlockFlags() : of{} {
        for (int m = 0; m < (1 << kBlock); ++m)
            for (int k = 0; k < kBlock; ++k) of[m][k] = (m >> k) & 1;
    }
};
constexpr BlockFlags kBlockFlags{};
inline void laneFlags(std::uint64_t mask, int lo, int hi, double* out) {
    for (int v = lo; v < hi; v += kBlock)
        std::copy_n(kBlockFlags.of[(mask >> v) & ((1u << kBlock) - 1)], kBlock, out + v);
}

// The exact kernel's share of emitter j at receiver i, written with one
// division: with d = P_j - P_i, r = |d|, a = N_i . d = r cosR, b = -N_j . d
// = r cosE and S^2 = pi r^2 + cosR A_i, S - r sqrt(pi) = cosR A_i / (S + r
// sqrt(pi)), so that (T = r S^2 = pi r^3 + a A_i)
//     ratio w_j cosE (S - r sqrt(pi)) / (2 S A_i)
//   = ratio w_j a b / (2 r^2 S (S + r sqrt(pi)))
//   = ratio w_j a b / (2 r (T + sqrt(pi) r sqrt(T r))),
// which also keeps the digits that the difference loses when x is small.
// 0 unless both cosines are positive and the nodes apart (m: the larger of
// their extents).
inline double pairShare(double dx, double dy, double dz, double nxi, double nyi, double nzi, double nxj, double nyj,
                        double nzj, double ai, double wj, double m, double sqrtPi) {
    const double r = std::sqrt(dx * dx + dy * dy + dz * dz);
    const double a = nxi * dx + nyi * dy + nzi * dz, b = -(nxj * dx + nyj * dy + nzj * dz);
    const bool exchange = (r > 1e-10 * m) & (a > 0.0) & (b > 0.0);
    const double T = kPi * r * r * r + a * ai;
    const double den = 2.0 * r * (T + sqrtPi * r * std::sqrt(T * r));
    return exchange ? wj * a * b / den : 0.0;
}

// The same share where x = a A_i / (pi r^3) is small: ratio w_j a b / (4
// pi r^4) times g(x) = 2 / (s (s + 1)), s = sqrt(1 + x), by its series
//     g(x) = 1 - 3x/4 + 5x^2/8 - 35x^3/64 + 63x^4/128 - ...,
// which alternates with falling terms for x < 1: cut after x^4 it is high
// by less than 231 x^5 / 512 of the share (kSeriesError). One square root
// and one division, side by side: the exact form's chain of two square
// roots and a division is what a block of pairs waits for.
// (aiPi: A_i / pi; wq: ratio w_j / (4 pi).)
inline double nearShare(double dx, double dy, double dz, double nxi, double nyi, double nzi, double nxj, double nyj,
                        double nzj, double aiPi, double wq, double m) {
    const double r2 = dx * dx + dy * dy + dz * dz;
    const double r = std::sqrt(r2), ir2 = 1.0 / r2;
    const double a = nxi * dx + nyi * dy + nzi * dz, b = -(nxj * dx + nyj * dy + nzj * dz);
    const bool exchange = (r > 1e-10 * m) & (a > 0.0) & (b > 0.0);
    const double ir4 = ir2 * ir2;
    const double x = a * aiPi * (ir4 * r);
    const double x2 = x * x;
    const double g = (1.0 - 0.75 * x) + x2 * ((0.625 - (35.0 / 64.0) * x) + x2 * (63.0 / 128.0));
    return exchange ? wq * a * b * ir4 * g : 0.0;
}

// The lanes in `lanes` side by side in P from lane 0 (their numbers in
// `lane`), the last vector filled out with the first of them (1 in P.in for
// a lane of `lanes`, 0 for a filler); how many, in whole vectors.
int packLanes(const Lanes& L, std::uint64_t lanes, Lanes& P, int* lane) {
    const int n = std::popcount(lanes), packed = (n + kBlock - 1) & ~(kBlock - 1);
    for (int k = 0; k < packed; ++k) {
        const int l = k < n ? std::countr_zero(lanes) : lane[0];
        lanes &= lanes - 1;
        lane[k] = l;
        P.px[k] = L.px[l], P.py[k] = L.py[l], P.pz[k] = L.pz[l];
        P.nx[k] = L.nx[l], P.ny[k] = L.ny[l], P.nz[k] = L.nz[l];
        P.ai[k] = L.ai[l], P.aiPi[k] = L.aiPi[l], P.ext[k] = L.ext[l];
        P.exact[k] = L.exact[l];
        P.in[k] = k < n ? 1.0 : 0.0;
    }
    return packed;
}

// Whether the lanes in `lanes` leave a gap of a whole vector or more.
inline bool gappy(std::uint64_t lanes) {
    const auto [lo, hi] = laneSpan(lanes);
    return ((std::popcount(lanes) + kBlock - 1) & ~(kBlock - 1)) < hi - lo;
}

// What the receivers in `lanes` get from the leaf's nodes: a block of the
// leaf's nodes against the group's receivers, vectorised over the receivers
// (a receiver meets itself at distance 0 and gets nothing from it); by the
// series where every pair's x is known to be small (`series`), else by the
// exact kernel. Lanes spread with gaps of a whole vector or more are first
// packed side by side into `P`.
template <bool series>
inline void leafPairs(const Cluster& C, Lanes& L, int lo, int hi, double ratio, double sqrtPi, const LeafRow& R) {
    for (auto j = static_cast<std::size_t>(C.begin); j < static_cast<std::size_t>(C.end); ++j) {
        const double xj = R.x[j], yj = R.y[j], zj = R.z[j], nxj = R.nx[j], nyj = R.ny[j], nzj = R.nz[j];
        const double ej = R.extent[j], w = R.value[j] * R.area[j] * ratio, wq = w * (0.25 / kPi);
        for (int v = lo; v < hi; v += kBlock) {
#pragma omp simd
            for (int l = v; l < v + kBlock; ++l) {
                const double dx = xj - L.px[l], dy = yj - L.py[l], dz = zj - L.pz[l], m = std::max(L.ext[l], ej);
                const double s = series ? nearShare(dx, dy, dz, L.nx[l], L.ny[l], L.nz[l], nxj, nyj, nzj, L.aiPi[l], wq, m)
                                        : pairShare(dx, dy, dz, L.nx[l], L.ny[l], L.nz[l], nxj, nyj, nzj, L.ai[l], w, m,
                                                    sqrtPi);
                L.exact[l] += L.in[l] != 0.0 ? s : 0.0;
            }
        }
    }
}
__attribute__((target_clones("avx2", "default"))) void leafBlock(const Cluster& C, Lanes& L, Lanes& P,
                                                                 std::uint64_t lanes, bool series, double ratio,
                                                                 double sqrtPi, const LeafRow& R) {
    if (!gappy(lanes)) {
        const auto [lo, hi] = laneSpan(lanes);
        laneFlags(lanes, lo, hi, L.in);
        if (series) leafPairs<true>(C, L, lo, hi, ratio, sqrtPi, R);
        else leafPairs<false>(C, L, lo, hi, ratio, sqrtPi, R);
        return;
    }
    int lane[kLanes];
    const int n = std::popcount(lanes), packed = packLanes(L, lanes, P, lane);
    if (series) leafPairs<true>(C, P, 0, packed, ratio, sqrtPi, R);
    else leafPairs<false>(C, P, 0, packed, ratio, sqrtPi, R);
    for (int k = 0; k < n; ++k) L.exact[lane[k]] = P.exact[k];
}

// For the lanes from lo to hi, the sum over the leaf's nodes of |V| A
// max(0, a) max(0, b) (a = N_i . d, b = -N_j . d, d = P_j - P_i): times
// ratio / 4 pi and over (r0 - rho)^4 it bounds what the leaf gives the
// receiver, the kernel being at most a b / 4 pi r^4 (where x = 0). No square
// root and no division: about a third of a pair's cost, and far tighter than
// the sphere's and cone's bounds where the receiver sees the leaf edge on (a
// smooth convex part, along a line through the receiver: most pairs there
// have a or b of no more than the mesh's roughness, or negative).
__attribute__((target_clones("avx2", "default"))) void leafFan(const Cluster& C, Lanes& L, int lo, int hi,
                                                               const LeafRow& R) {
    std::fill(L.fan + lo, L.fan + hi, 0.0);
    for (auto j = static_cast<std::size_t>(C.begin); j < static_cast<std::size_t>(C.end); ++j) {
        const double xj = R.x[j], yj = R.y[j], zj = R.z[j], nxj = R.nx[j], nyj = R.ny[j], nzj = R.nz[j];
        const double w = std::abs(R.value[j] * R.area[j]);
        for (int v = lo; v < hi; v += kBlock)
#pragma omp simd
            for (int l = v; l < v + kBlock; ++l) {
                const double dx = xj - L.px[l], dy = yj - L.py[l], dz = zj - L.pz[l];
                const double a = L.nx[l] * dx + L.ny[l] * dy + L.nz[l] * dz, b = -(nxj * dx + nyj * dy + nzj * dz);
                L.fan[l] += w * (std::max(0.0, a) * std::max(0.0, b));
            }
    }
}

// The cluster judged for every lane at once (see the notes at the top): the
// lanes in `mask` that skip it by the allowance spend from it.
__attribute__((target_clones("avx2", "default"))) void classifyLanes(const Cluster& C, Lanes& L, std::uint64_t mask,
                                                                     const Judge& J) {
    const double cx = C.c[0], cy = C.c[1], cz = C.c[2], rho = C.rho;
    const double ax = C.axis[0], ay = C.axis[1], az = C.axis[2], cosA = C.cosA, sinA = C.sinA;
    const double hlo = C.hlo, hhi = C.hhi, mass = C.mass, back = C.back, front = C.front;
    // Only the lanes from the first to the last in the mask, in whole vectors.
    const auto [lo, hi] = laneSpan(mask);
    laneFlags(mask, lo, hi, L.in);
    for (int v = lo; v < hi; v += kBlock)
#pragma omp simd
    for (int l = v; l < v + kBlock; ++l) {
        const double dx = cx - L.px[l], dy = cy - L.py[l], dz = cz - L.pz[l];
        const double r2 = dx * dx + dy * dy + dz * dz, r0 = std::sqrt(r2);
        const double nx = L.nx[l], ny = L.ny[l], nz = L.nz[l], nl = L.nl[l];
        const double nd = nx * dx + ny * dy + nz * dz;
        L.dx[l] = dx, L.dy[l] = dy, L.dz[l] = dz, L.nd[l] = nd;
        // How far the nodes reach along N_R from the centre, by the sphere and
        // by the slab along the cone's axis (tight for flat clusters).
        const double na = nx * ax + ny * ay + nz * az;
        const double across = std::sqrt(std::max(0.0, nl * nl - na * na)) * rho;
        const double up = std::min(nl * rho, std::max(na * hlo, na * hhi) + across);
        const double down = std::max(-nl * rho, std::min(na * hlo, na * hhi) - across);
        // Every node behind the receiver's plane: cosR <= 0 for all.
        const bool behind = nd + up <= 0.0;
        const bool inside = !(r0 > rho);
        const double rmin = r0 - rho;
        // (one division a lane; the rest multiplies)
        const double q = 1.0 / (r0 * rmin);
        const double inv0 = rmin * q, invMin = r0 * q, invNl = L.invNl[l];
        L.inv0[l] = inv0;
        // beta: the angle between the cone's axis and the direction back to
        // the receiver, as r0 cos(beta) and r0 sin(beta) (neither waits for
        // the division).
        const double rcosB = -(ax * dx + ay * dy + az * dz);
        const double rsinB = std::sqrt(std::max(0.0, r2 - rcosB * rcosB));
        // The largest cosE any node can have, times r0: the cone's normal nearest the way back.
        const double rNear = rcosB <= r0 * cosA ? rcosB * cosA + rsinB * sinA : r0;
        // cosE |P_R - P_E| = n . (P_R - c) - n . (P - c) <= rNear - back:
        // where that is not positive, cosE <= 0 for all.
        const bool away = rNear - back <= 0.0;
        // A share is at most ratio |V_E| A_E cosR cosE / (4 pi r^2): a
        // cluster whose bound fits in what is left of the allowance is left
        // out (nearly in the receiver's plane, nearly edge on, small).
        const double cR = std::min(1.0, (nd + up) * invNl * invMin);
        const double cE = std::min(1.0, (rNear - back) * invMin);
        const double bound = J.ratio * mass * cR * cE * (0.25 / kPi) * invMin * invMin;
        const bool spend = (L.in[l] != 0.0) & !behind & !inside & !away & (J.allowance > 0.0) & (L.spent[l] + bound <= J.allowance);
        L.spent[l] += spend ? bound : 0.0;
        L.bound[l] = bound;
        // Both cosines surely positive for every node (beta + alpha < 90
        // degrees, and cosE |P_R - P_E| >= r0 cos(beta + alpha) - front > 0).
        const double rFar = rcosB * cosA - rsinB * sinA;
        const bool facing = (nd + down > 0.0) & (rcosB > 0.0) & (cosA > 0.0) & (rFar > front);
        // The remainder of the expansion is of the order (rho / r0)^q of the
        // kernel's size |N_R| |b| / r0^2 (q = order + 1, at least 2), the
        // term itself that size times cosR cosE: accepted when the remainder
        // is at most theta^q cosR cosE, so that grazing clusters (small
        // terms, large relative remainders) open; the product of the cosines
        // floored, so that near, grazing clusters of a smooth surface do not
        // open down to ever smaller ones as the mesh is refined. g varies
        // over the cluster by about x rho / r0: x at most theta^(q-1).
        const double cosR = nd * invNl * inv0;
        const double t = rho * inv0;
        const double tq = t * t * (J.order >= 2 ? t : 1.0);
        const bool relative = (tq <= J.thq * std::max(kGrazingFloor, cosR * rcosB * inv0)) &
                              (L.ai[l] <= J.thq / J.theta * kPi * rmin * rmin) & (t <= J.sight);
        const bool skip = behind | spend | (!inside & away);
        const bool accept = !inside & facing & relative;
        L.kind[l] = skip ? kSkip : accept ? kAccept : kOpen;
    }
}

// The shares of the cluster, from its moments, to the lanes that take it.
// The kernel (a . d)(b . d) / |d|^4 expanded about the centre (times r0^4):
// order 0 (a . d0)(W . d0); order 1 a^T D^T d0 + (a . d0) tr D - 4 (a . d0)
// (d0^T D d0) / r0^2; order 2, with u = |d|^-4, its gradient g = -4 d0 / r0^2
// and Hessian H = -4 I / r0^2 + 24 d0 d0^T / r0^4 (both times r0^4), a = N_R,
// a0 = a . d0 and P_jk = sum_i d0_i Q_ijk:
//   sum_i sum_k Q_iik (a + a0 g)_k + sum_jk P_jk (a_j g_k + a0 H_jk / 2).
__attribute__((target_clones("avx2", "default"))) void farTerms(const Cluster& C, Lanes& L, std::uint64_t take,
                                                                double ratio, int order) {
    const auto [lo, hi] = laneSpan(take);
    laneFlags(take, lo, hi, L.take);
    const double w1 = order >= 1 ? 1.0 : 0.0, w2 = order >= 2 ? 1.0 : 0.0;
    const double W0 = C.W[0], W1 = C.W[1], W2 = C.W[2];
    double D[9], Q[18];
    std::copy(std::begin(C.D), std::end(C.D), D);
    std::copy(std::begin(C.Q), std::end(C.Q), Q);
    const double trD = D[0] + D[4] + D[8];
    for (int v = lo; v < hi; v += kBlock)
#pragma omp simd
    for (int l = v; l < v + kBlock; ++l) {
        const double d0 = L.dx[l], d1 = L.dy[l], d2 = L.dz[l];
        const double n0 = L.nx[l], n1 = L.ny[l], n2 = L.nz[l];
        const double inv0 = L.inv0[l], inv2 = inv0 * inv0;
        const double a0 = L.nd[l];
        const double T0 = a0 * (W0 * d0 + W1 * d1 + W2 * d2);
        // a^T D^T d0 = sum_ij a_j D_ij d_i
        const double Da0 = D[0] * n0 + D[1] * n1 + D[2] * n2, Dd0 = D[0] * d0 + D[1] * d1 + D[2] * d2;
        const double Da1 = D[3] * n0 + D[4] * n1 + D[5] * n2, Dd1 = D[3] * d0 + D[4] * d1 + D[5] * d2;
        const double Da2 = D[6] * n0 + D[7] * n1 + D[8] * n2, Dd2 = D[6] * d0 + D[7] * d1 + D[8] * d2;
        const double aDd = d0 * Da0 + d1 * Da1 + d2 * Da2, dDd = d0 * Dd0 + d1 * Dd1 + d2 * Dd2;
        const double T1 = aDd + a0 * trD - 4.0 * a0 * dDd * inv2;
        // The second order: v = a + a0 g, P_s = sum_i d0_i Q_is.
        const double g0 = -4.0 * d0 * inv2, g1 = -4.0 * d1 * inv2, g2 = -4.0 * d2 * inv2;
        const double v0 = n0 + a0 * g0, v1 = n1 + a0 * g1, v2 = n2 + a0 * g2;
        double T2 = Q[0] * v0 + Q[1] * v1 + Q[2] * v2;     // i = 0: Q_00k
        T2 += Q[6 + 1] * v0 + Q[6 + 3] * v1 + Q[6 + 4] * v2;  // i = 1: Q_11k
        T2 += Q[12 + 2] * v0 + Q[12 + 4] * v1 + Q[12 + 5] * v2;  // i = 2: Q_22k
        double P[6];
        for (int s = 0; s < 6; ++s) P[s] = d0 * Q[s] + d1 * Q[6 + s] + d2 * Q[12 + s];
        // sum_jk P_jk (a_j g_k + a0 H_jk / 2), H = -4 I / r0^2 + 24 d0 d0^T / r0^4
        const double h = 12.0 * a0 * inv2 * inv2, e = -2.0 * a0 * inv2;
        const double dd[6] = {d0 * d0, d0 * d1, d0 * d2, d1 * d1, d1 * d2, d2 * d2};
        const double ag[6] = {n0 * g0, n0 * g1 + n1 * g0, n0 * g2 + n2 * g0, n1 * g1, n1 * g2 + n2 * g1, n2 * g2};
        const double mult[6] = {1.0, 2.0, 2.0, 1.0, 2.0, 1.0};  // off-diagonal pairs twice
        T2 += P[0] * e + P[3] * e + P[5] * e;
        for (int s = 0; s < 6; ++s) T2 += P[s] * (ag[s] + mult[s] * h * dd[s]);
        const double T = T0 + w1 * T1 + w2 * T2;
        const double x = a0 * inv0 * inv2 * L.ai[l] * (1.0 / kPi);
        const double s = std::sqrt(1.0 + x);
        const double gx = 2.0 / ((s + 1.0) * s);
        const double term = -ratio * (0.25 / kPi) * gx * T * inv2 * inv2;
        L.far[l] += L.take[l] != 0.0 ? term : 0.0;
    }
}

// ---- clusters taken whole by a whole group of receivers ----

// A polynomial of degree 2 in e = (e0, e1, e2): its value at 0, the
// coefficients of e0, e1, e2, then of e0^2, e0 e1, e0 e2, e1^2, e1 e2, e2^2.
struct Poly {
    double v[10];
};

// What the clusters a group takes whole give each of its receivers, as a
// field about the group's centre: receiver i at P_i = c + delta with normal
// N and area A gets N . f(delta) + A N^T M N, f_k(delta) = a_k + B_km
// delta_m + C_k,s delta_m delta_n (the pairs s = (m, n), m <= n).
struct Local {
    double a[3], B[9], C[18], M[6];
};

// The terms of the emitter cluster E at d = c_E - c_G in the group's field.
// With phi(d) = c0 d d^T / |d|^4 (c0 = -ratio / (4 pi)) the shares of E's
// nodes j to receiver i are N_i . sum_j phi(d + e_j) b_j, e_j = delta_j -
// delta_i, to the first order in x; phi(d + e) is expanded to the second
// order in e (both offsets together) and summed with E's moments:
//   sum_j b_l e^0 = W_l,  sum_j b_l e_m = D_lm - W_l delta_m,
//   sum_j b_l e_m e_n = Q_lmn - D_lm delta_n - D_ln delta_m + W_l delta_m delta_n.
// The first correction in x, -3x/4 with x = (N . d) A / (pi r^3), is
// 3 ratio A / (16 pi^2) (N . d)^2 (W . d) / r^7, taken at the centres.
void expand(const Cluster& E, const double d[3], double ratio, Local& L) {
    const double s0 = d[0] * d[0] + d[1] * d[1] + d[2] * d[2], is = 1.0 / s0, is2 = is * is, is3 = is2 * is;
    const double c0 = -ratio / (4.0 * kPi);
    // u(e) = |d + e|^-4 = s^-2 with s = s0 + 2 d . e + e . e, times c0.
    Poly u{};
    u.v[0] = c0 * is2;
    for (int m = 0; m < 3; ++m) u.v[1 + m] = c0 * -4.0 * d[m] * is3;
    for (int s = 0; s < 6; ++s) {
        const int m = kPairM[s], n = kPairN[s];
        u.v[4 + s] = c0 * (m == n ? -2.0 * is3 + 12.0 * d[m] * d[m] * is3 * is : 24.0 * d[m] * d[n] * is3 * is);
    }
    // p_k = d_k u, then phi_kl = p_k d_l (d_k(e) = d_k + e_k: sparse products).
    Poly pk[3], phi[3][3];
    for (int k = 0; k < 3; ++k) {
        Poly& p = pk[k];
        p.v[0] = d[k] * u.v[0];
        for (int m = 0; m < 3; ++m) p.v[1 + m] = d[k] * u.v[1 + m] + (m == k ? u.v[0] : 0.0);
        for (int s = 0; s < 6; ++s) {
            const int m = kPairM[s], n = kPairN[s];
            p.v[4 + s] = d[k] * u.v[4 + s] + (n == k ? u.v[1 + m] : 0.0) + (m == k && m != n ? u.v[1 + n] : 0.0);
        }
    }
    for (int k = 0; k < 3; ++k)
        for (int l = k; l < 3; ++l) {
            const Poly& p = pk[k];
            Poly& q = phi[k][l];
            q.v[0] = d[l] * p.v[0];
            for (int m = 0; m < 3; ++m) q.v[1 + m] = d[l] * p.v[1 + m] + (m == l ? p.v[0] : 0.0);
            for (int s = 0; s < 6; ++s) {
                const int m = kPairM[s], n = kPairN[s];
                q.v[4 + s] = d[l] * p.v[4 + s] + (n == l ? p.v[1 + m] : 0.0) + (m == l && m != n ? p.v[1 + n] : 0.0);
            }
            phi[l][k] = q;
        }
    for (int k = 0; k < 3; ++k)
        for (int l = 0; l < 3; ++l) {
            const Poly& p = phi[k][l];
            const double W = E.W[l];
            L.a[k] += p.v[0] * W;
            for (int m = 0; m < 3; ++m) {
                L.a[k] += p.v[1 + m] * E.D[3 * l + m];
                L.B[3 * k + m] -= p.v[1 + m] * W;
            }
            for (int s = 0; s < 6; ++s) {
                const int m = kPairM[s], n = kPairN[s];
                L.a[k] += p.v[4 + s] * E.Q[6 * l + s];
                L.B[3 * k + n] -= p.v[4 + s] * E.D[3 * l + m];
                L.B[3 * k + m] -= p.v[4 + s] * E.D[3 * l + n];
                L.C[6 * k + s] += p.v[4 + s] * W;
            }
        }
    const double r = std::sqrt(s0);
    const double x = 3.0 * ratio / (16.0 * kPi * kPi) * (E.W[0] * d[0] + E.W[1] * d[1] + E.W[2] * d[2]) * is3 / r;
    for (int s = 0; s < 6; ++s) L.M[s] += x * d[kPairM[s]] * d[kPairN[s]];
}

// Bounds of N_i . (P_j - P_i) over the nodes i of V (unit normals in V's
// cone) and j of O, d = c_O - c_V: N_i . d by the cone against d's
// direction, N_i . delta_j by O's sphere and slab, N_i . delta_i by V's
// slab, each with |N_i - a_V| <= sqrt(2 (1 - cos alpha)) for the rest.
void reach(const Cluster& V, const Cluster& O, const double d[3], double r0, double& lo, double& hi) {
    const double s = std::sqrt(std::max(0.0, 2.0 * (1.0 - V.cosA)));
    const double cosB = (V.axis[0] * d[0] + V.axis[1] * d[1] + V.axis[2] * d[2]) / r0;
    const double sinB = std::sqrt(std::max(0.0, 1.0 - cosB * cosB));
    const double nearest = cosB >= V.cosA ? 1.0 : cosB * V.cosA + sinB * V.sinA;
    const double farthest = cosB * V.cosA - sinB * V.sinA;
    const double na = V.axis[0] * O.axis[0] + V.axis[1] * O.axis[1] + V.axis[2] * O.axis[2];
    const double across = std::sqrt(std::max(0.0, 1.0 - na * na)) * O.rho;
    const double ojHi = std::min(O.rho, std::max(na * O.hlo, na * O.hhi) + across);
    const double ojLo = std::max(-O.rho, std::min(na * O.hlo, na * O.hhi) - across);
    // N_i . delta_i by the slab or directly by V's front and back, whichever is tighter.
    const double ownHi = std::min(V.hhi + s * V.rho, V.front), ownLo = std::max(V.hlo - s * V.rho, V.back);
    lo = r0 * farthest + ojLo - ownHi - s * O.rho;
    hi = r0 * nearest + ojHi - ownLo + s * O.rho;
}

// The obstruction tests of node pairs between two leaves, shared by every
// walk: each unordered pair is traced once, by whichever of its two nodes
// meets the other's leaf first (traced from the lower node number, as the
// exact pass traces it, so the answer does not depend on which). A pair of
// leaves keeps a bit a pair of their nodes, what is known and what is
// hidden, in shards under their own locks. Once the receivers of both
// leaves have walked, a pair of leaves is of no more use: when the cache is
// full it drops those (prune), rather than keep what the walks met first.
class PairCache {
public:
    static constexpr int kSide = 16;  // leaves of more nodes are not kept

    // At most `limit` pairs of leaves are kept: the memory stays linear in
    // the nodes however many pairs the walks trace. `clusters`: how many
    // cluster numbers there are, `leaves` of them leaves.
    PairCache(std::size_t limit, std::size_t clusters, std::size_t leaves)
        : limit_(limit), leaves_(leaves), walked_(std::make_unique<std::atomic<std::uint8_t>[]>(clusters)) {}

    // Every receiver of leaf `id` has walked (or walks elsewhere).
    void walked(std::int32_t id) {
        if (walked_[static_cast<std::size_t>(id)].exchange(1, std::memory_order_relaxed) == 0)
            walkedCount_.fetch_add(1, std::memory_order_relaxed);
    }

    struct Bits {
        std::uint64_t known[kSide * kSide / 64] = {}, hidden[kSide * kSide / 64] = {};
    };

    // Bit of the pair of tree positions i (in leaf a) and j (in leaf b).
    static std::uint64_t key(std::int32_t a, std::int32_t b) {
        return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(std::min(a, b))) << 32) |
               static_cast<std::uint32_t>(std::max(a, b));
    }
    static int bit(std::int32_t a, std::int32_t i, std::int32_t b, std::int32_t j, const Tree& t) {
        const std::int32_t li = i - t.clusters[static_cast<std::size_t>(a)].begin;
        const std::int32_t lj = j - t.clusters[static_cast<std::size_t>(b)].begin;
        if (a == b) return std::min(li, lj) * kSide + std::max(li, lj);
        return a < b ? li * kSide + lj : lj * kSide + li;
    }

    Bits get(std::uint64_t k) {
        Shard& s = shard(k);
        const std::lock_guard<std::mutex> lock(s.m);
        const auto it = s.map.find(k);
        return it == s.map.end() ? Bits{} : it->second;
    }
    void put(std::uint64_t k, const Bits& found) {
        if (size_.load(std::memory_order_relaxed) >= limit_) prune();
        Shard& s = shard(k);
        const std::lock_guard<std::mutex> lock(s.m);
        auto it = s.map.find(k);
        if (it == s.map.end()) {
            if (size_.load(std::memory_order_relaxed) >= limit_) return;
            size_.fetch_add(1, std::memory_order_relaxed);
            it = s.map.emplace(k, Bits{}).first;
        }
        Bits& b = it->second;
        for (int w = 0; w < kSide * kSide / 64; ++w) {
            b.known[w] |= found.known[w];
            b.hidden[w] |= found.hidden[w];
        }
    }

private:
    struct Shard {
        std::mutex m;
        std::unordered_map<std::uint64_t, Bits> map;
    };
    static constexpr int kShards = 64;
    Shard shards_[kShards];
    std::size_t limit_, leaves_;
    std::atomic<std::size_t> size_{0};
    std::unique_ptr<std::atomic<std::uint8_t>[]> walked_;
    std::atomic<std::size_t> walkedCount_{0}, prunedAt_{0};
    std::mutex pruning_;

    bool done(std::uint32_t id) const { return walked_[id].load(std::memory_order_relaxed) != 0; }

    // Drops the pairs of leaves whose receivers have all walked, by one
    // thread while the others go on (their pairs are not kept meanwhile),
    // and only once a further 1/32 of the leaves have walked since the last
    // time: a full cache of live pairs is not swept again and again.
    void prune() {
        const std::size_t walked = walkedCount_.load(std::memory_order_relaxed);
        if (walked < prunedAt_.load(std::memory_order_relaxed) + std::max<std::size_t>(1, leaves_ / 32)) return;
        const std::unique_lock<std::mutex> one(pruning_, std::try_to_lock);
        if (!one.owns_lock()) return;
        prunedAt_.store(walked, std::memory_order_relaxed);
        for (Shard& s : shards_) {
            const std::lock_guard<std::mutex> lock(s.m);
            for (auto it = s.map.begin(); it != s.map.end();) {
                if (done(static_cast<std::uint32_t>(it->first >> 32)) && done(static_cast<std::uint32_t>(it->first))) {
                    it = s.map.erase(it);
                    size_.fetch_sub(1, std::memory_order_relaxed);
                } else {
                    ++it;
                }
            }
        }
    }
    Shard& shard(std::uint64_t k) { return shards_[(k * 0x9E3779B97F4A7C15ull) >> 58]; }
};

// The walk of a group of up to kLanes receivers (the nodes of one leaf, say):
// one descent of the tree for all of them, each cluster judged for every
// receiver still looking at it (a bit mask) in one vectorised loop, so that
// each receiver sees the clusters in the order and with the outcome its own
// walk would give, while the clusters are read once a group.
class Group {
public:
    Group(const Tree& t, double ratio, FarFieldRule rule, const SurfaceBvh* bvh, double sqrtPi,
          PairCache* pairs = nullptr, std::atomic<std::int32_t>* uses = nullptr)
        : t_(t), ratio_(ratio), rule_(rule), bvh_(bvh), sqrtPi_(sqrtPi), pairs_(pairs), uses_(uses),
          seriesX_(std::min(kSeriesLargestX, std::pow(kSeriesShare * rule.tolerance / kSeriesError, 0.2))),
          sight_(bvh == nullptr ? std::numeric_limits<double>::infinity()
                 : rule.tolerance > 0.0 ? std::min(rule.theta, kVisibleTheta * std::sqrt(rule.tolerance))
                                        : rule.theta) {}

    // What each receiver may leave out in clusters whose bound is small, in
    // leaves whose pairs' bound is (leafFan), and, with the obstruction test,
    // what it may take whole without looking (accepted clusters whose bound
    // is small) and as seen without a ray (pairs whose share is small).
    double allowance = 0.0, leafAllowance = 0.0, sightAllowance = 0.0, pairAllowance = 0.0;
    double sampleLimit = std::numeric_limits<double>::infinity();
    // Rays are counted, not traced: every one is taken as clear.
    bool dry = false;

    std::int64_t tests = 0, terms = 0;

    // The received sums of the receivers at tree positions [first, first + n), 1 <= n <= kLanes.
    void sum(std::size_t first, int n, double* out) {
        const std::uint64_t live = load(first, n);
        fanned_ = fanSkipped_ = 0;
        const Judge judge{ratio_, rule_.theta, std::pow(rule_.theta, std::max(2, rule_.order + 1)), allowance,
                          rule_.order, sight_};
        // The group first as one (walkGroup): what it takes whole goes
        // into its field, what it cannot judge as one is walked receiver by
        // receiver from there.
        if (live != 0 && !t_.clusters.empty()) {
            // With the obstruction test the group only skips clusters and
            // hands them on: a receiver on its own walks from the root, as
            // a group of one would open every cluster down to its leaves.
            if (!(bvh_ != nullptr && n == 1) && describeGroup(n, live)) {
                double spent = 0.0;
                const int whole = walkGroup(judge, spent);
                if (whole > 0) fieldToLanes(live);
                terms += static_cast<std::int64_t>(whole) * std::popcount(live);
                walkLanes(handed_, live, spent, judge);
            } else {
                handed_.assign(1, 0);
                walkLanes(handed_, live, 0.0, judge);
            }
        }
        for (int l = 0; l < n; ++l) out[l] = ((live >> l) & 1u) != 0 ? L_.exact[l] + L_.far[l] : 0.0;
    }

    // What the nodes within `reach` of the group's cluster G give its
    // receivers at tree positions [first, first + n), by the exact kernel
    // and unobstructed: the near field, where one that is far larger than
    // the rest (a node in a tight corner) gets it from.
    void nearSums(const Cluster& G, double reach, std::size_t first, int n, double* out) {
        const std::uint64_t live = load(first, n);
        const LeafRow R{t_.x.data(),  t_.y.data(),    t_.z.data(),     t_.nx.data(),    t_.ny.data(),
                        t_.nz.data(), t_.area.data(), t_.value.data(), t_.extent.data()};
        open_.assign(1, 0);
        while (live != 0 && !open_.empty()) {
            const Cluster& E = t_.clusters[static_cast<std::size_t>(open_.back())];
            open_.pop_back();
            const double d[3] = {E.c[0] - G.c[0], E.c[1] - G.c[1], E.c[2] - G.c[2]};
            if (!(std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) - E.rho - G.rho <= reach)) continue;
            if (E.child[0] >= 0) {
                open_.push_back(E.child[1]);
                open_.push_back(E.child[0]);
            } else {
                leafBlock(E, L_, packed_, live, false, ratio_, sqrtPi_, R);
            }
        }
        for (int l = 0; l < n; ++l) out[l] = ((live >> l) & 1u) != 0 ? L_.exact[l] : 0.0;
    }

private:
    // The receivers at tree positions [first, first + n) into the lanes,
    // nothing summed yet; the lanes that receive.
    std::uint64_t load(std::size_t first, int n) {
        std::uint64_t live = 0;
        for (int l = 0; l < kLanes; ++l) {
            const std::size_t i = first + static_cast<std::size_t>(l < n ? l : 0);
            i_[l] = i;
            L_.px[l] = t_.x[i], L_.py[l] = t_.y[i], L_.pz[l] = t_.z[i];
            L_.nx[l] = t_.nx[i], L_.ny[l] = t_.ny[i], L_.nz[l] = t_.nz[i];
            L_.ai[l] = t_.area[i];
            L_.aiPi[l] = t_.area[i] / kPi;
            L_.ext[l] = t_.extent[i];
            L_.nl[l] = std::sqrt(L_.nx[l] * L_.nx[l] + L_.ny[l] * L_.ny[l] + L_.nz[l] * L_.nz[l]);
            L_.invNl[l] = 1.0 / L_.nl[l];
            L_.exact[l] = L_.far[l] = L_.spent[l] = L_.leafSpent[l] = L_.sightSpent[l] = L_.pairSpent[l] = 0.0;
            L_.take[l] = 0;
            if (l < n && L_.ai[l] > 0.0) live |= std::uint64_t{1} << l;  // no area: nothing is subtracted
        }
        return live;
    }

    struct Item {
        std::int32_t cluster;
        std::uint64_t lanes;
    };

    const Tree& t_;
    double ratio_;
    FarFieldRule rule_;
    const SurfaceBvh* bvh_;
    double sqrtPi_;
    PairCache* pairs_;
    std::atomic<std::int32_t>* uses_;  // rays a tree position has been an end of, over all walks
    double seriesX_;                   // leaf pairs up to this x are summed by the series (nearShare)
    double sight_;                     // clusters judged by rays are at most this small against their distance
    std::size_t i_[kLanes] = {};
    Lanes L_{};
    Lanes packed_{};  // lanes packed for a leaf's pairs
    std::int64_t fanned_ = 0, fanSkipped_ = 0;  // lanes the leaves' bounds judged, and let skip a leaf
    Cluster G_{};    // the group as a cluster of receivers
    double areaMax_ = 0.0;
    Local F_{};      // its field from the clusters it takes whole
    std::vector<Item> stack_;
    std::vector<std::int32_t> open_, handed_;

    // The receivers in `lanes`, each with its own walk from the clusters in `list`.
    void walkLanes(const std::vector<std::int32_t>& list, std::uint64_t lanes, double spent, const Judge& J) {
        for (std::uint64_t m = lanes; m != 0; m &= m - 1) L_.spent[std::countr_zero(m)] = spent;
        stack_.clear();
        for (auto it = list.rbegin(); it != list.rend(); ++it) stack_.push_back({*it, lanes});
        while (!stack_.empty()) {
            const Item item = stack_.back();
            stack_.pop_back();
            const Cluster& C = t_.clusters[static_cast<std::size_t>(item.cluster)];
            classifyLanes(C, L_, item.lanes, J);
            std::uint64_t open = 0, take = 0, accepted = 0;
            for (std::uint64_t m = item.lanes; m != 0; m &= m - 1) {
                const int l = std::countr_zero(m);
                if (L_.kind[l] == kOpen) open |= std::uint64_t{1} << l;
                else if (L_.kind[l] == kAccept) accepted |= std::uint64_t{1} << l;
            }
            // With the obstruction test a few rays from each receiver judge the cluster first.
            if (bvh_ != nullptr) judgeByRays(C, accepted, take, open);
            else take = accepted;
            if (take != 0) {
                farTerms(C, L_, take, ratio_, rule_.order);
                terms += std::popcount(take);
            }
            if (open == 0) continue;
            if (C.child[0] < 0) {
                leaf(item.cluster, C, open);
            } else {
                stack_.push_back({C.child[1], open});
                stack_.push_back({C.child[0], open});
            }
        }
    }

    // The group's sphere, cone and slab; false when they cannot speak for
    // it (normals not of unit length, or spread over 90 degrees or more).
    bool describeGroup(int n, std::uint64_t live) {
        if (!t_.unit || rule_.order < 2) return false;
        double lo[3], hi[3], s[3] = {0, 0, 0};
        const int f = std::countr_zero(live);
        lo[0] = hi[0] = L_.px[f], lo[1] = hi[1] = L_.py[f], lo[2] = hi[2] = L_.pz[f];
        areaMax_ = 0.0;
        for (int l = 0; l < n; ++l) {
            if (((live >> l) & 1u) == 0) continue;
            const double q[3] = {L_.px[l], L_.py[l], L_.pz[l]};
            for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], q[a]), hi[a] = std::max(hi[a], q[a]);
            s[0] += L_.nx[l], s[1] += L_.ny[l], s[2] += L_.nz[l];
            areaMax_ = std::max(areaMax_, L_.ai[l]);
        }
        const double sl = std::sqrt(s[0] * s[0] + s[1] * s[1] + s[2] * s[2]);
        if (!(sl > 0.0)) return false;
        Cluster& G = G_;
        for (int a = 0; a < 3; ++a) G.c[a] = 0.5 * (lo[a] + hi[a]), G.axis[a] = s[a] / sl;
        G.rho = G.hlo = G.hhi = 0.0;
        G.back = std::numeric_limits<double>::infinity(), G.front = -G.back;
        G.cosA = 1.0;
        for (int l = 0; l < n; ++l) {
            if (((live >> l) & 1u) == 0) continue;
            const double d[3] = {L_.px[l] - G.c[0], L_.py[l] - G.c[1], L_.pz[l] - G.c[2]};
            const double r = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
            if (!(r <= G.rho)) G.rho = r;
            const double h = G.axis[0] * d[0] + G.axis[1] * d[1] + G.axis[2] * d[2];
            G.hlo = std::min(G.hlo, h), G.hhi = std::max(G.hhi, h);
            const double f = L_.nx[l] * d[0] + L_.ny[l] * d[1] + L_.nz[l] * d[2];
            G.back = std::min(G.back, f), G.front = std::max(G.front, f);
            G.cosA = std::min(G.cosA, G.axis[0] * L_.nx[l] + G.axis[1] * L_.ny[l] + G.axis[2] * L_.nz[l]);
        }
        G.sinA = std::sqrt(std::max(0.0, 1.0 - G.cosA * G.cosA));
        return std::isfinite(G.rho) && G.cosA > 0.0;
    }

    // The group against the tree from the root, judged as one for all its
    // receivers: skipped when no pair can exchange or when the bound of its
    // shares fits in the allowance left to every receiver, taken whole into
    // the group's field (see expand) when both spheres are small against
    // their distance and every pair surely faces, opened while the cluster
    // is larger than the group, and handed to the receivers' own walks
    // otherwise. Returns how many clusters the group took whole.
    int walkGroup(const Judge& J, double& spent) {
        const Cluster& G = G_;
        F_ = Local{};
        handed_.clear();
        open_.assign(1, 0);
        int whole = 0;
        while (!open_.empty()) {
            const std::int32_t e = open_.back();
            open_.pop_back();
            const Cluster& E = t_.clusters[static_cast<std::size_t>(e)];
            const double d[3] = {E.c[0] - G.c[0], E.c[1] - G.c[1], E.c[2] - G.c[2]};
            const double r0 = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
            const double md[3] = {-d[0], -d[1], -d[2]};
            double loR = 0, hiR = 0, loE = 0, hiE = 0;
            const double rmin = r0 - G.rho - E.rho;
            if (r0 > 0.0) {
                reach(G, E, d, r0, loR, hiR);
                reach(E, G, md, r0, loE, hiE);
                if (hiR <= 0.0 || hiE <= 0.0) continue;  // no pair faces both ways
                if (rmin > 0.0 && J.allowance > 0.0) {
                    const double bound = J.ratio * E.mass * std::min(1.0, hiR / rmin) * std::min(1.0, hiE / rmin) *
                                         (0.25 / kPi) / (rmin * rmin);
                    if (spent + bound <= J.allowance) {
                        spent += bound;
                        continue;
                    }
                }
                if (bvh_ == nullptr && J.theta > 0.0 && rmin > 0.0 && loR > 0.0 && loE > 0.0 && E.cosA > 0.0) {
                    const double t = (G.rho + E.rho) / r0;
                    const double cR = (G.axis[0] * d[0] + G.axis[1] * d[1] + G.axis[2] * d[2]) / r0;
                    const double cE = -(E.axis[0] * d[0] + E.axis[1] * d[1] + E.axis[2] * d[2]) / r0;
                    if (t * t * t <= kGroupShare * J.thq * std::max(kGrazingFloor, cR * cE) &&
                        areaMax_ <= 0.25 * J.thq * kPi * rmin * rmin) {
                        expand(E, d, J.ratio, F_);
                        ++whole;
                        continue;
                    }
                }
                // With the obstruction test a cluster that every receiver
                // would take as it is (by the group's bounds, at the floor of
                // the cosines) goes to them as it is.
                if (bvh_ != nullptr && E.child[0] >= 0 && loR > 0.0 && loE > 0.0 && E.cosA > 0.0 && r0 > G.rho) {
                    const double t = E.rho / (r0 - G.rho);
                    if (t <= J.sight && t * t * t <= J.thq * kGrazingFloor) {
                        handed_.push_back(e);
                        continue;
                    }
                }
            }
            if (E.child[0] >= 0 && E.rho > kOpenRatio * G.rho) {
                open_.push_back(E.child[1]);
                open_.push_back(E.child[0]);
            } else {
                handed_.push_back(e);
            }
        }
        return whole;
    }

    // The group's field at each of its receivers.
    void fieldToLanes(std::uint64_t live) {
        const Local& F = F_;
        for (; live != 0; live &= live - 1) {
            const int l = std::countr_zero(live);
            const double e[3] = {L_.px[l] - G_.c[0], L_.py[l] - G_.c[1], L_.pz[l] - G_.c[2]};
            const double N[3] = {L_.nx[l], L_.ny[l], L_.nz[l]};
            double v = 0.0;
            for (int k = 0; k < 3; ++k) {
                double f = F.a[k] + F.B[3 * k] * e[0] + F.B[3 * k + 1] * e[1] + F.B[3 * k + 2] * e[2];
                for (int s = 0; s < 6; ++s) f += F.C[6 * k + s] * e[kPairM[s]] * e[kPairN[s]];
                v += N[k] * f;
            }
            double q = 0.0;
            for (int s = 0; s < 6; ++s) q += (kPairM[s] == kPairN[s] ? 1.0 : 2.0) * F.M[s] * N[kPairM[s]] * N[kPairN[s]];
            L_.far[l] += v + L_.ai[l] * q;
        }
    }

    // Rays are trimmed at the ends whose regions are built: a node's are
    // built once it has been an end of kTrimAfter rays, when they begin to
    // pay for themselves.
    void use(std::size_t position) {
        if (uses_ != nullptr && uses_[position].fetch_add(1, std::memory_order_relaxed) == kTrimAfter)
            bvh_->buildEnd(t_.node[position]);
    }

    // The obstruction tests of n pairs (none in a dry walk).
    void trace(const std::int32_t* from, const std::int32_t* to, int n, bool* hidden) {
        if (dry) std::fill(hidden, hidden + n, false);
        else bvh_->occludedPairs(from, to, n, hidden, SurfaceBvh::Trace::asBuilt);
    }

    // The receivers in `accepted` judge the cluster by rays to its samples:
    // all clear, the receiver takes the cluster whole; all hidden, it gives
    // nothing; mixed, it is opened. Receivers that lie close together
    // against their distance from the cluster are judged by a few of them
    // first (probeLanes): all of those clear, the others take it too.
    void judgeByRays(const Cluster& C, std::uint64_t accepted, std::uint64_t& take, std::uint64_t& open) {
        // A cluster whose bound fits in what is left of the receiver's
        // sight allowance counts whole, unlooked at: hidden, it errs by at
        // most what it spends. One whose bound passes sampleLimit is opened.
        for (std::uint64_t m = accepted; m != 0; m &= m - 1) {
            const int l = std::countr_zero(m);
            const std::uint64_t bit = std::uint64_t{1} << l;
            if (sightAllowance > 0.0 && spendFrom(L_.sightSpent[l], sightAllowance, kSightSpend, L_.bound[l])) {
                take |= bit;
                accepted &= ~bit;
            } else if (L_.bound[l] > sampleLimit) {
                open |= bit;
                accepted &= ~bit;
            }
        }
        if (std::popcount(accepted) >= kProbeLanes) {
            const std::uint64_t probes = probeLanes(C, accepted);
            if (probes != 0) {
                std::uint64_t seen = 0;
                judgeLanes(C, probes, seen, open);
                take |= seen;
                accepted &= ~probes;
                if (seen == probes) {
                    take |= accepted;
                    return;
                }
            }
        }
        judgeLanes(C, accepted, take, open);
    }

    // The lanes in `lanes`, each by rays of its own, as many lanes a packet as it holds.
    void judgeLanes(const Cluster& C, std::uint64_t lanes, std::uint64_t& take, std::uint64_t& open) {
        constexpr int P = SurfaceBvh::kPacket;
        static_assert(P >= kSamples);
        std::int32_t from[P], to[P];
        bool hidden[P];
        int lane[P];
        while (lanes != 0) {
            int n = 0, count = 0;
            for (; lanes != 0 && n + C.samples <= P; lanes &= lanes - 1) {
                const int l = std::countr_zero(lanes);
                lane[count++] = l;
                for (int s = 0; s < C.samples; ++s, ++n) {
                    from[n] = t_.node[i_[l]];
                    to[n] = t_.node[static_cast<std::size_t>(C.sample[s])];
                    use(i_[l]);
                    use(static_cast<std::size_t>(C.sample[s]));
                }
            }
            trace(from, to, n, hidden);
            tests += n;
            for (int k = 0; k < count; ++k) {
                const int h = static_cast<int>(std::count(hidden + k * C.samples, hidden + (k + 1) * C.samples, true));
                if (h == 0) take |= std::uint64_t{1} << lane[k];
                else if (h < C.samples) open |= std::uint64_t{1} << lane[k];
            }
        }
    }

    // kProbes of the receivers in `lanes` that speak for them all: the one
    // nearest their centre, then each time the one farthest from those
    // chosen, as a cluster picks its samples. None (0) unless the receivers
    // lie within a ball that, seen from the cluster, is no larger than the
    // clusters a receiver takes whole.
    std::uint64_t probeLanes(const Cluster& C, std::uint64_t lanes) const {
        double c[3] = {0, 0, 0};
        const int n = std::popcount(lanes);
        for (std::uint64_t m = lanes; m != 0; m &= m - 1) {
            const int l = std::countr_zero(m);
            c[0] += L_.px[l], c[1] += L_.py[l], c[2] += L_.pz[l];
        }
        for (double& v : c) v /= n;
        auto dist2 = [&](int l, const double q[3]) {
            const double d[3] = {L_.px[l] - q[0], L_.py[l] - q[1], L_.pz[l] - q[2]};
            return d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
        };
        double r2 = 0.0, near2 = std::numeric_limits<double>::infinity();
        int first = -1;
        for (std::uint64_t m = lanes; m != 0; m &= m - 1) {
            const int l = std::countr_zero(m);
            const double d2 = dist2(l, c);
            r2 = std::max(r2, d2);
            if (d2 < near2) near2 = d2, first = l;
        }
        const double R = std::sqrt(r2);
        const double e[3] = {c[0] - C.c[0], c[1] - C.c[1], c[2] - C.c[2]};
        const double gap = std::sqrt(e[0] * e[0] + e[1] * e[1] + e[2] * e[2]) - C.rho - R;
        if (!(first >= 0 && gap > 0.0 && R <= sight_ * gap)) return 0;
        int chosen[kProbes] = {first};
        std::uint64_t probes = std::uint64_t{1} << first;
        for (int k = 1; k < kProbes; ++k) {
            int best = -1;
            double bestD = 0.0;
            for (std::uint64_t m = lanes & ~probes; m != 0; m &= m - 1) {
                const int l = std::countr_zero(m);
                double dmin = std::numeric_limits<double>::infinity();
                for (int s = 0; s < k; ++s) {
                    const double q[3] = {L_.px[chosen[s]], L_.py[chosen[s]], L_.pz[chosen[s]]};
                    dmin = std::min(dmin, dist2(l, q));
                }
                if (dmin > bestD) bestD = dmin, best = l;
            }
            if (best < 0) break;
            chosen[k] = best;
            probes |= std::uint64_t{1} << best;
        }
        return probes;
    }

    // The least distance from lane l's receiver to a node of C, by C's
    // sphere (negative inside it), as the last classifyLanes left inv0.
    double nearest(int l, const Cluster& C) const { return 1.0 / L_.inv0[l] - C.rho; }

    // The lanes of `lanes` that still look at the leaf: a receiver whose
    // bound of the leaf's shares (leafFan) fits in what is left of its
    // leaves' allowance skips it. Groups call this while it skips often
    // enough to pay for the bounds.
    std::uint64_t unbounded(const Cluster& C, std::uint64_t lanes, const LeafRow& R) {
        if (gappy(lanes)) {
            int lane[kLanes];
            leafFan(C, packed_, 0, packLanes(L_, lanes, packed_, lane), R);
            for (int k = 0, n = std::popcount(lanes); k < n; ++k) L_.fan[lane[k]] = packed_.fan[k];
        } else {
            const auto [lo, hi] = laneSpan(lanes);
            leafFan(C, L_, lo, hi, R);
        }
        for (std::uint64_t m = lanes; m != 0; m &= m - 1) {
            const int l = std::countr_zero(m);
            const double rmin = nearest(l, C), r2 = rmin * rmin;
            const double bound = ratio_ * (0.25 / kPi) * L_.fan[l] / (r2 * r2);
            ++fanned_;
            if (rmin > 0.0 && spendFrom(L_.leafSpent[l], leafAllowance, kLeafSpend, bound)) {
                lanes &= ~(std::uint64_t{1} << l);
                ++fanSkipped_;
            }
        }
        return lanes;
    }

    // The leaf's nodes to the receivers in `lanes`, pair by pair with the
    // exact kernel's arithmetic or, where x is small, its series.
    void leaf(std::int32_t id, const Cluster& C, std::uint64_t lanes) {
        const LeafRow R{t_.x.data(),  t_.y.data(),    t_.z.data(),     t_.nx.data(),    t_.ny.data(),
                        t_.nz.data(), t_.area.data(), t_.value.data(), t_.extent.data()};
        if (leafAllowance > 0.0 && (fanned_ < kFanTrial || fanSkipped_ * kFanWorth >= fanned_)) {
            lanes = unbounded(C, lanes, R);
            if (lanes == 0) return;
        }
        if (bvh_ == nullptr) {
            // The series serves when, for every receiver, x is at most
            // seriesX_ over the leaf's sphere: a <= N . (c - P) + |N| rho
            // and r >= r0 - rho.
            bool series = seriesX_ > 0.0;
            for (std::uint64_t m = lanes; m != 0 && series; m &= m - 1) {
                const int l = std::countr_zero(m);
                const double rmin = nearest(l, C);
                series = rmin > 0.0 &&
                         L_.ai[l] * std::max(0.0, L_.nd[l] + L_.nl[l] * C.rho) <= seriesX_ * kPi * rmin * rmin * rmin;
            }
            leafBlock(C, L_, packed_, lanes, series, ratio_, sqrtPi_, R);
            return;
        }
        for (; lanes != 0; lanes &= lanes - 1) visibleLeaf(id, C, std::countr_zero(lanes));
    }

    // The same with the obstruction test of every pair, each traced once
    // over all walks when the pair cache holds the two leaves.
    void visibleLeaf(std::int32_t id, const Cluster& C, int l) {
        const std::size_t i = i_[l];
        const auto own = static_cast<std::int32_t>(i);
        const std::int32_t mine = t_.leafOf[i];
        const bool cached = pairs_ != nullptr && C.end - C.begin <= PairCache::kSide &&
                            t_.clusters[static_cast<std::size_t>(mine)].end -
                                    t_.clusters[static_cast<std::size_t>(mine)].begin <=
                                PairCache::kSide;
        const std::uint64_t key = PairCache::key(mine, id);
        PairCache::Bits known, found;
        bool looked = false;  // the cache is read at the first pair the allowance does not take
        // The shares in node order, each with what is known of it (seen,
        // hidden, or still to trace), summed in that order once traced: the
        // sum does not depend on which answers the cache already held.
        trace_.clear();
        const auto first = static_cast<std::size_t>(C.begin), count = static_cast<std::size_t>(C.end - C.begin);
        shares_.resize(count);
        state_.assign(count, kSeen);
        leafShares(first, count, l, shares_.data());
        for (std::size_t k = 0; k < count; ++k) {
            const double s = shares_[k];
            if (!(s != 0.0)) continue;  // no exchange
            const std::size_t j = first + k;
            // A share that fits in what is left of the allowance counts as
            // seen, untested: it errs by at most what it spends.
            if (allowance > 0.0 && L_.spent[l] + std::abs(s) <= allowance) {
                L_.spent[l] += std::abs(s);
                continue;
            }
            if (spendFrom(L_.pairSpent[l], pairAllowance, kPairSpend, std::abs(s))) continue;
            int b = 0;
            if (cached) {
                if (!looked) known = pairs_->get(key), looked = true;
                b = PairCache::bit(mine, own, id, static_cast<std::int32_t>(j), t_);
                const std::uint64_t mask = std::uint64_t{1} << (b % 64);
                if ((known.known[b / 64] & mask) != 0) {
                    if ((known.hidden[b / 64] & mask) != 0) state_[k] = kHidden;
                    continue;
                }
            }
            state_[k] = kPending;
            trace_.push_back({static_cast<std::int32_t>(k), static_cast<std::int32_t>(j), b});
        }
        // Each pair is traced from its lower node number, as the exact pass traces it.
        constexpr int P = SurfaceBvh::kPacket;
        for (std::size_t k0 = 0; k0 < trace_.size(); k0 += P) {
            const int n = static_cast<int>(std::min<std::size_t>(P, trace_.size() - k0));
            std::int32_t from[P], target[P];
            bool hidden[P];
            for (int k = 0; k < n; ++k) {
                const auto j = static_cast<std::size_t>(trace_[k0 + k].node);
                from[k] = std::min(t_.node[i], t_.node[j]);
                target[k] = std::max(t_.node[i], t_.node[j]);
                use(i);
                use(j);
            }
            trace(from, target, n, hidden);
            tests += n;
            for (int k = 0; k < n; ++k) {
                const Traced& t = trace_[k0 + k];
                state_[static_cast<std::size_t>(t.share)] = hidden[k] ? kHidden : kSeen;
                if (!cached) continue;
                const std::uint64_t mask = std::uint64_t{1} << (t.bit % 64);
                found.known[t.bit / 64] |= mask;
                if (hidden[k]) found.hidden[t.bit / 64] |= mask;
            }
        }
        for (std::size_t k = 0; k < count; ++k)
            if (state_[k] == kSeen) L_.exact[l] += shares_[k];
        if (!trace_.empty() && cached) pairs_->put(key, found);
    }

    // The shares of the leaf's nodes [first, first + count) at receiver l,
    // 0 where a pair does not exchange (and for the receiver itself).
    void leafShares(std::size_t first, std::size_t count, int l, double* __restrict out) const {
        const double px = L_.px[l], py = L_.py[l], pz = L_.pz[l], nx = L_.nx[l], ny = L_.ny[l], nz = L_.nz[l];
        const double ai = L_.ai[l], ei = L_.ext[l];
        const double *x = t_.x.data() + first, *y = t_.y.data() + first, *z = t_.z.data() + first;
        const double *mx = t_.nx.data() + first, *my = t_.ny.data() + first, *mz = t_.nz.data() + first;
        const double *area = t_.area.data() + first, *value = t_.value.data() + first, *ext = t_.extent.data() + first;
#pragma omp simd
        for (std::size_t k = 0; k < count; ++k) {
            out[k] = pairShare(x[k] - px, y[k] - py, z[k] - pz, nx, ny, nz, mx[k], my[k], mz[k], ai,
                               value[k] * area[k] * ratio_, std::max(ei, ext[k]), sqrtPi_);
        }
    }

    static constexpr std::uint8_t kSeen = 0, kHidden = 1, kPending = 2;
    struct Traced {
        std::int32_t share, node, bit;  // share: the node's place in the leaf
    };
    std::vector<double> shares_;
    std::vector<std::uint8_t> state_;
    std::vector<Traced> trace_;
};

}  // namespace

namespace {
std::atomic<bool> exactWhenCheaperByDefault{true};

// The share of the pairs of participants that exchange (both cosines
// positive), from kPairSamples pairs drawn by a fixed sequence.
double exchangingShare(const IlluminationNodes& p) {
    const std::size_t M = p.size();
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    auto draw = [&] {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<std::size_t>((state >> 33) % M);
    };
    std::size_t exchanging = 0, drawn = 0;
    for (; drawn < kPairSamples; ++drawn) {
        const std::size_t i = draw(), j = draw();
        const double d[3] = {p.x[j] - p.x[i], p.y[j] - p.y[i], p.z[j] - p.z[i]};
        const double cosR = p.nx[i] * d[0] + p.ny[i] * d[1] + p.nz[i] * d[2];
        const double cosE = -(p.nx[j] * d[0] + p.ny[j] * d[1] + p.nz[j] * d[2]);
        exchanging += i != j && cosR > 0.0 && cosE > 0.0;
    }
    return static_cast<double>(exchanging) / static_cast<double>(drawn);
}
}  // namespace

FarFieldRule farFieldRule(double tolerance) {
    FarFieldRule r;
    r.order = 2;
    r.tolerance = std::max(0.0, tolerance);
    r.theta = std::min(0.5, 2.5 * std::cbrt(std::max(0.0, tolerance)));
    r.exactWhenCheaper = exactWhenCheaperByDefault.load();
    return r;
}

void preferExactWhenCheaper(bool on) { exactWhenCheaperByDefault.store(on); }

std::vector<double> hierarchicalSums(const IlluminationNodes& p, double ratio, FarFieldRule rule,
                                     const SurfaceBvh* bvh, SelfIlluminationStats* stats, WorkShare share) {
    const std::size_t M = p.size();
    if (rule.leafSize <= 0) rule.leafSize = bvh != nullptr ? PairCache::kSide : kLeafSize;
    const Tree tree(p, rule.leafSize, bvh != nullptr);
    std::vector<double> sums(M, 0.0);
    const double sqrtPi = std::sqrt(kPi);
    // The allowance: a share of the tolerance times the largest correction
    // of receivers spread over the tree (walked without it), which is at
    // most the largest of all. With the obstruction test the largest often
    // lies in a corner the spread receivers miss (the example refined twice:
    // 0.11 of 2.0), and the allowances pay for most of the rays. There it
    // comes from the nodes next to the receiver, which face it at a
    // distance of the mesh's size: every receiver's near field (nearSums,
    // exact and unobstructed) tells where it lies, and the few largest
    // there and among the spread receivers are walked again with the
    // obstruction test and without the allowance. The near field finds the
    // same largest as the whole unobstructed walk of every receiver did, on
    // the example as it is and refined twice and three times (0.102, 1.99,
    // 1.12), the sphere and the concave model, in a twentieth of its time
    // (the example refined twice 0.058 s rather than 0.45 s, three times
    // 0.17 s rather than 3.8 s).
    double allowance = 0.0;
    // (the concave model of 16,400 nodes would fill 14 a node, the example
    // refined twice about 15); without the obstruction test it stays empty.
    const auto leaves = bvh == nullptr ? std::size_t{0}
                                       : static_cast<std::size_t>(std::count_if(
                                             tree.clusters.begin(), tree.clusters.end(),
                                             [](const Cluster& C) { return C.child[0] < 0; }));
    PairCache pairs(static_cast<std::size_t>(std::max(0.0, rule.pairsKept) * static_cast<double>(M)),
                    bvh != nullptr ? tree.clusters.size() : 0, leaves);
    std::unique_ptr<std::atomic<std::int32_t>[]> uses;
    if (bvh != nullptr) uses = std::make_unique<std::atomic<std::int32_t>[]>(M);
    const auto groups = static_cast<std::int64_t>(tree.groups.size());
    auto groupAt = [&](std::int64_t k) -> const Cluster& {
        return tree.clusters[static_cast<std::size_t>(tree.groups[static_cast<std::size_t>(k)])];
    };
    auto allow = [](Group& walk, double a) {
        walk.allowance = a;
        walk.leafAllowance = kLeafAllowanceShare / kAllowanceShare * a;
        walk.sightAllowance = kSightAllowanceShare / kAllowanceShare * a;
        walk.pairAllowance = kPairAllowanceShare / kAllowanceShare * a;
        walk.sampleLimit = kSampleShare / kAllowanceShare * a;
    };
    if (rule.tolerance > 0.0 && M > 0) {
        const std::size_t n = std::min<std::size_t>(M, kAllowanceSamples);
        std::vector<double> sampled(n, 0.0);
#pragma omp parallel
        {
            Group walk(tree, ratio, rule, nullptr, sqrtPi);
#pragma omp for schedule(dynamic, 1)
            for (std::size_t k = 0; k < n; ++k) walk.sum(k * M / n, 1, &sampled[k]);
        }
        auto size = [](double v) { return std::isfinite(v) ? std::abs(v) : -1.0; };
        // The tree positions of the n largest of `values` (at positions at(k)), largest first.
        auto largestOf = [&](const std::vector<double>& values, std::size_t n, auto at) {
            std::vector<std::size_t> rank(values.size());
            std::iota(rank.begin(), rank.end(), std::size_t{0});
            n = std::min(n, rank.size());
            std::partial_sort(rank.begin(), rank.begin() + static_cast<std::ptrdiff_t>(n), rank.end(),
                              [&](std::size_t a, std::size_t b) {
                                  return size(values[a]) > size(values[b]) || (size(values[a]) == size(values[b]) && a < b);
                              });
            rank.resize(n);
            for (std::size_t& k : rank) k = at(k);
            return rank;
        };
        double largest = 0.0;
        for (const double v : sampled) largest = std::max(largest, size(v));
        if (bvh != nullptr) {
            // The near field of every receiver, by the exact kernel: what
            // each group's receivers get from the leaves within the group's
            // radius of it.
            std::vector<double> open(M, 0.0);
#pragma omp parallel
            {
                Group walk(tree, ratio, rule, nullptr, sqrtPi);
#pragma omp for schedule(dynamic, 4)
                for (std::int64_t k = 0; k < groups; ++k) {
                    const Cluster& G = groupAt(k);
                    for (std::int32_t first = G.begin; first < G.end; first += kLanes)
                        walk.nearSums(G, kNearReach * G.rho, static_cast<std::size_t>(first),
                                      std::min<std::int32_t>(kLanes, G.end - first), &open[static_cast<std::size_t>(first)]);
                }
            }
            auto candidates = largestOf(open, kObstructedSamples, [](std::size_t k) { return k; });
            for (const std::size_t k : largestOf(sampled, kObstructedSamples, [&](std::size_t k) { return k * M / n; }))
                if (std::find(candidates.begin(), candidates.end(), k) == candidates.end()) candidates.push_back(k);
            std::vector<double> seen(candidates.size(), 0.0);
#pragma omp parallel
            {
                Group walk(tree, ratio, rule, bvh, sqrtPi, &pairs, uses.get());
#pragma omp for schedule(dynamic, 1)
                for (std::size_t k = 0; k < candidates.size(); ++k) walk.sum(candidates[k], 1, &seen[k]);
            }
            largest = 0.0;
            for (const double v : seen) largest = std::max(largest, size(v));
        }
        allowance = kAllowanceShare * rule.tolerance * largest;
        // With the obstruction test, a model that sees much of itself near
        // by (the inside of a closed sphere, two bowls facing each other)
        // has the walks trace about as many rays as the exact pass, and
        // dearer ones (whole segments): a few receivers spread over the
        // tree, walked alone with the allowances without tracing (every ray
        // taken as clear), tell, and the exact pass runs instead. Every
        // share of a run finds the same.
        if (bvh != nullptr && rule.exactWhenCheaper && M > 1) {
            const std::size_t m = std::min<std::size_t>(M, kRaySamples);
            std::int64_t rays = 0;
#pragma omp parallel reduction(+ : rays)
            {
                Group walk(tree, ratio, rule, bvh, sqrtPi);
                allow(walk, allowance);
                walk.dry = true;
                double sum = 0.0;
#pragma omp for schedule(dynamic, 1)
                for (std::size_t k = 0; k < m; ++k) walk.sum(k * M / m, 1, &sum);
                rays += walk.tests;
            }
            const double exact = exchangingShare(p) * static_cast<double>(M - 1) / 2.0;  // a node, each pair once
            if (static_cast<double>(rays) / static_cast<double>(m) >= kCheaperShare * exact)
                return illuminationSums(p, ratio, bvh, stats, share);
        }
    }
    // A share of several: its own groups of receivers only, dealt out as
    // ownsBlock deals out blocks of rows.
    auto owned = [&](std::int64_t k) { return share.count <= 1 || ownsBlock(static_cast<std::size_t>(k), share); };
    std::int64_t receivers = 0;
    for (std::int64_t k = 0; k < groups; ++k)
        if (owned(k)) receivers += groupAt(k).end - groupAt(k).begin;
    PairProgress progress(receivers);
    std::int64_t tests = 0, terms = 0;
    std::exception_ptr failure;
    // The leaves of group k have walked: their pairs of leaves may go.
    auto walked = [&](std::int64_t k) {
        for (std::int32_t i = groupAt(k).begin; i < groupAt(k).end; ++i) pairs.walked(tree.leafOf[static_cast<std::size_t>(i)]);
    };
    if (bvh != nullptr)
        for (std::int64_t k = 0; k < groups; ++k)
            if (!owned(k)) walked(k);

    // One walk a group of receivers (a cluster of at most kLanes nodes, or a larger leaf in parts).
#pragma omp parallel reduction(+ : tests, terms)
    {
        Group walk(tree, ratio, rule, bvh, sqrtPi, &pairs, uses.get());
        allow(walk, allowance);
        double out[kLanes];
#pragma omp for schedule(dynamic, 4)
        for (std::int64_t k = 0; k < groups; ++k) {
            if (progress.stopping() || !owned(k)) continue;
            const Cluster& L = groupAt(k);
            try {
                for (std::int32_t first = L.begin; first < L.end; first += kLanes) {
                    const int n = std::min<std::int32_t>(kLanes, L.end - first);
                    walk.sum(static_cast<std::size_t>(first), n, out);
                    for (int l = 0; l < n; ++l) sums[static_cast<std::size_t>(tree.order[static_cast<std::size_t>(first + l)])] = out[l];
                }
            } catch (...) {
#pragma omp critical(tundrel_self_illumination_tree_failure)
                if (!failure) failure = std::current_exception();
            }
            if (bvh != nullptr) walked(k);
            progress.add(static_cast<std::int64_t>(L.end - L.begin));
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
