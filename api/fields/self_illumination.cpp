// The self-illumination correction: node areas, the pair kernel and the
// entry with its dialog.
//
// The kernel works on flat arrays of the participating nodes. Every unordered
// pair {i, j}, i < j in running order, is visited once, by row i: the
// distance, the direction and both cosines are the same for the two
// directions (up to sign, exactly), so one visit gives the share that i
// receives from j and the one j receives from i, with the same arithmetic as
// two separate visits. Row i adds the first to its own sum and the second to
// a column of sums that belongs to the thread running the row; the columns of
// all threads are added up at the end. Memory: one double a participant and
// thread, besides the flat arrays. The obstruction test, when asked for, runs
// once for each unordered pair that faces itself, inside the same visit: no
// table of pairs is kept at all.
#include "api/detail/self_illumination_kernel.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <limits>
#include <memory>
#include <span>

#include "api/detail/surface_bvh.h"
#include "api/host.h"
#include "dialogs/dialogs.h"

namespace tundrel {

namespace {

constexpr double kPi = 3.14159265358979;

using arrayWorks::BlockLayout;

// The eight neighbours in ring order, as (column, row) offsets.
constexpr int kRing[8][2] = {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};

// Area of node n of a structured block; at(k) gives the position of node k
// of the block as three doubles.
template <class At>
double gridNodeArea(const BlockLayout& l, int n, At at) {
    const int ni = l.rowLength > 0 ? l.rowLength : l.nodes;
    // Every layer of a block is a grid of its own.
    const int rows = l.rows > 0 ? l.rows : (l.nodes + ni - 1) / ni;
    const long long perLayer = static_cast<long long>(ni) * rows;
    const long long base = n / perLayer * perLayer;
    const int inLayer = static_cast<int>(n - base);
    const int row = inLayer / ni, col = inLayer % ni;
    double p[3];
    at(n, p);
    double v[8][3];
    for (int k = 0; k < 8; ++k) {
        const int c = col + kRing[k][0], r = row + kRing[k][1];
        const long long m = base + static_cast<long long>(r) * ni + c;
        const bool inside = c >= 0 && c < ni && r >= 0 && r < rows && m < l.nodes;
        double q[3] = {p[0], p[1], p[2]};
        if (inside) at(static_cast<int>(m), q);
        for (int a = 0; a < 3; ++a) v[k][a] = q[a] - p[a];
    }
    double sum = 0.0;
    for (int k = 0; k < 8; ++k) {
        const double* a = v[k];
        const double* b = v[(k + 1) % 8];
        const double cx = a[1] * b[2] - a[2] * b[1], cy = a[2] * b[0] - a[0] * b[2], cz = a[0] * b[1] - a[1] * b[0];
        sum += std::sqrt(cx * cx + cy * cy + cz * cz);
    }
    return 0.125 * sum;
}

// A third of the area of a triangle.
double triangleThird(const double* p, const double* q, const double* r) {
    const double e1[3] = {q[0] - p[0], q[1] - p[1], q[2] - p[2]};
    const double e2[3] = {r[0] - p[0], r[1] - p[1], r[2] - p[2]};
    const double cx = e1[1] * e2[2] - e1[2] * e2[1], cy = e1[2] * e2[0] - e1[0] * e2[2],
                 cz = e1[0] * e2[1] - e1[1] * e2[0];
    return std::sqrt(cx * cx + cy * cy + cz * cz) * (1.0 / 6.0);
}

// Rows of a triangular loop are handed out in small chunks: row i has
// M - 1 - i pairs.
constexpr int kRowChunk = 8;

}  // namespace

namespace detail {

PairProgress::PairProgress(std::int64_t total) : total_(total), step_(std::max<std::int64_t>(1, total / 200)) {
    if (progressStep(0, total_)) stop_.store(true);
}

void PairProgress::add(std::int64_t n) {
    const std::int64_t done = done_.fetch_add(n, std::memory_order_relaxed) + n;
    if (omp_get_thread_num() == 0 && done - reported_ >= step_) {
        reported_ = done;
        try {
            if (progressStep(done, total_)) stop_.store(true, std::memory_order_relaxed);
        } catch (...) {
            if (!error_) error_ = std::current_exception();
            stop_.store(true, std::memory_order_relaxed);
        }
    }
}

void PairProgress::finish() {
    if (error_) std::rethrow_exception(error_);
    if (stopping()) throw Stopped{};
    host().progress(total_, total_);
}

double nodeArea(const FieldMasterD& field, int b, int n) {
    const BlockLayout& l = field.layout(b);
    field.position(b, n);  // checks n
    const Surface s(field);
    const std::size_t first = field.offset(b);
    auto at = [&](std::size_t g, double* out) {
        out[0] = s.x[g];
        out[1] = s.y[g];
        out[2] = s.z[g];
    };
    if (l.kind == BlockLayout::Kind::Structured)
        return gridNodeArea(l, n, [&](int k, double* out) { at(first + static_cast<std::size_t>(k), out); });
    const auto node = static_cast<std::int32_t>(first) + n;
    const std::span<const std::int32_t> t = field.blockTriangles(b);
    double area = 0.0;
    for (std::size_t k = 0; k + 2 < t.size(); k += 3) {
        const std::int32_t* c = &t[k];
        if (c[0] != node && c[1] != node && c[2] != node) continue;
        double q[3][3];
        for (int i = 0; i < 3; ++i) at(static_cast<std::size_t>(c[i]), q[i]);
        area += triangleThird(q[0], q[1], q[2]);
    }
    return area;
}

std::vector<double> nodeAreas(const FieldMasterD& field, const Surface& s, const std::vector<unsigned char>& wanted) {
    const std::size_t n = s.nodeCount();
    std::vector<double> area(n, 0.0);
    for (int b = 0; b < field.blockCount(); ++b) {
        const BlockLayout& l = field.layout(b);
        const std::size_t first = s.blockOffset[static_cast<std::size_t>(b)];
        if (l.kind == BlockLayout::Kind::Structured) {
            auto at = [&](int k, double* out) {
                const std::size_t g = first + static_cast<std::size_t>(k);
                out[0] = s.x[g];
                out[1] = s.y[g];
                out[2] = s.z[g];
            };
            for (int k = 0; k < l.nodes; ++k)
                if (wanted[first + static_cast<std::size_t>(k)] != 0)
                    area[first + static_cast<std::size_t>(k)] = gridNodeArea(l, k, at);
            continue;
        }
        const std::size_t t0 = 3 * s.blockTriangle[static_cast<std::size_t>(b)];
        const std::size_t t1 = 3 * s.blockTriangle[static_cast<std::size_t>(b) + 1];
        for (std::size_t t = t0; t < t1; t += 3) {
            double q[3][3];
            std::size_t g[3];
            for (int k = 0; k < 3; ++k) {
                g[k] = static_cast<std::size_t>(s.triangles[t + static_cast<std::size_t>(k)]);
                q[k][0] = s.x[g[k]];
                q[k][1] = s.y[g[k]];
                q[k][2] = s.z[g[k]];
            }
            const double third = triangleThird(q[0], q[1], q[2]);
            // A corner named twice in one triangle counts once, as it holds the node once.
            area[g[0]] += third;
            if (g[1] != g[0]) area[g[1]] += third;
            if (g[2] != g[0] && g[2] != g[1]) area[g[2]] += third;
        }
        for (int k = 0; k < l.nodes; ++k)
            if (wanted[first + static_cast<std::size_t>(k)] == 0) area[first + static_cast<std::size_t>(k)] = 0.0;
    }
    return area;
}

void IlluminationNodes::reserve(std::size_t n) {
    for (auto* c : {&x, &y, &z, &nx, &ny, &nz, &area, &value, &extent}) c->reserve(n);
    node.reserve(n);
}

void IlluminationNodes::add(const Surface& s, const z::zVec<double>& normal, std::size_t k, double a, double v) {
    x.push_back(s.x[k]);
    y.push_back(s.y[k]);
    z.push_back(s.z[k]);
    nx.push_back(normal.x);
    ny.push_back(normal.y);
    nz.push_back(normal.z);
    area.push_back(a);
    value.push_back(v);
    extent.push_back(std::max({std::abs(s.x[k]), std::abs(s.y[k]), std::abs(s.z[k])}));
    node.push_back(static_cast<std::int32_t>(k));
}

namespace {

// One unordered pair {i, j}, i < j, is visited once: the share that i
// receives from j (toI) and the one j receives from i (toJ). The arithmetic
// is that of the ordered pair (R, E) visited on its own: d = P_E - P_R,
// r = |d|, u = d * (1 / r), cosR = N_R . u, cosE = N_E . (-u),
// S = sqrt(pi * r * r + cosR * A_R), share = (S - r sqrt(pi)) V_E A_E cosE
// ratio / (2 S A_R); for (j, i) u only changes sign, so cosR and cosE swap
// exactly and both shares are what two separate visits would give.
// The two divisions by 2 S A_R are made as one (q = 1 / (di dj)), which
// changes a share by a few units in the last place. Pairs that do not
// exchange (coincident, or not facing each other) have exchange false; their
// shares are meaningless, as is the share into a receiver without area (an
// emitter without area gives 0).
struct Row {
    const double *__restrict x, *__restrict y, *__restrict z;
    const double *__restrict nx, *__restrict ny, *__restrict nz;
    const double *__restrict area, *__restrict value, *__restrict extent;
    const double* box;  // the bounding box of block b of kSpan nodes: lo at 6 b, hi at 6 b + 3

    Row(const IlluminationNodes& p, const std::vector<double>& boxes)
        : x(p.x.data()), y(p.y.data()), z(p.z.data()), nx(p.nx.data()), ny(p.ny.data()), nz(p.nz.data()),
          area(p.area.data()), value(p.value.data()), extent(p.extent.data()), box(boxes.data()) {}
};

// Pairs are taken a span at a time: the nodes from i + 1 to the end of the
// block of kSpan nodes that i + 1 is in, then block by block.
constexpr std::size_t kSpan = 64;

// The bounding boxes of the blocks of kSpan nodes.
std::vector<double> blockBoxes(const IlluminationNodes& p) {
    const std::size_t M = p.size(), blocks = (M + kSpan - 1) / kSpan;
    std::vector<double> box(6 * blocks);
    const std::vector<double>* c[3] = {&p.x, &p.y, &p.z};
    for (std::size_t b = 0; b < blocks; ++b)
        for (int k = 0; k < 3; ++k) {
            const auto first = c[k]->begin() + static_cast<std::ptrdiff_t>(b * kSpan);
            const auto last = c[k]->begin() + static_cast<std::ptrdiff_t>(std::min(M, (b + 1) * kSpan));
            const auto [lo, hi] = std::minmax_element(first, last);
            // A NaN position leaves the box NaN: such a block is never passed over.
            const bool nan = std::any_of(first, last, [](double v) { return std::isnan(v); });
            box[6 * b + k] = nan ? std::numeric_limits<double>::quiet_NaN() : *lo;
            box[6 * b + 3 + k] = nan ? std::numeric_limits<double>::quiet_NaN() : *hi;
        }
    return box;
}

#define TUNDREL_PAIR_TERMS(i, j)                                                                \
    const double dx = R.x[j] - xi, dy = R.y[j] - yi, dz = R.z[j] - zi;                         \
    const double r = std::sqrt(dx * dx + dy * dy + dz * dz);                                    \
    const double m = std::max(ei, R.extent[j]);                                                 \
    const double inv = 1.0 / (r > 0.0 ? r : 1.0);                                               \
    const double ux = dx * inv, uy = dy * inv, uz = dz * inv;                                   \
    const double cosI = nxi * ux + nyi * uy + nzi * uz;                                         \
    const double cosJ = R.nx[j] * -ux + R.ny[j] * -uy + R.nz[j] * -uz;                          \
    const bool exchange = (r > 1e-10 * m) & (cosI > 0.0) & (cosJ > 0.0);                        \
    const double aj = R.area[j];                                                                \
    const double rr = kPi * r * r;                                                              \
    const double rs = r * sqrtPi;                                                               \
    const double si = std::sqrt(rr + cosI * ai);                                                \
    const double sj = std::sqrt(rr + cosJ * aj);                                                \
    const double di = 2 * si * ai, dj = 2 * sj * aj, dd = di * dj;                               \
    const double q = 1.0 / (dd > 0.0 ? dd : 1.0);                                               \
    const double toI = (si - rs) * R.value[j] * aj * cosJ * ratio * (dj * q);                   \
    const double toJ = (sj - rs) * vi * ai * cosI * ratio * (di * q)

#define TUNDREL_ROW_CONSTANTS(i)                                                   \
    const double xi = R.x[i], yi = R.y[i], zi = R.z[i];                           \
    const double nxi = R.nx[i], nyi = R.ny[i], nzi = R.nz[i];                     \
    const double ai = R.area[i], vi = R.value[i], ei = R.extent[i]

// Whether a pair (i, j), j in [first, last), may exchange: false only when
// one of the two surely faces away, by N . d without the square root and
// the division (rounding cannot make such a cosine positive), so that spans
// where no pair exchanges (much of a convex body) cost little.
__attribute__((target_clones("avx512f", "avx2", "default"))) bool mayExchange(const Row& R, std::size_t i,
                                                                               std::size_t first, std::size_t last) {
    const double xi = R.x[i], yi = R.y[i], zi = R.z[i], nxi = R.nx[i], nyi = R.ny[i], nzi = R.nz[i];
    int any = 0;
#pragma omp simd reduction(| : any)
    for (std::size_t j = first; j < last; ++j) {
        const double dx = R.x[j] - xi, dy = R.y[j] - yi, dz = R.z[j] - zi;
        const double ti = nxi * dx + nyi * dy + nzi * dz;
        const double si = std::abs(nxi * dx) + std::abs(nyi * dy) + std::abs(nzi * dz);
        const double tj = R.nx[j] * dx + R.ny[j] * dy + R.nz[j] * dz;
        const double sj = std::abs(R.nx[j] * dx) + std::abs(R.ny[j] * dy) + std::abs(R.nz[j] * dz);
        any |= static_cast<int>(!(ti < -1e-12 * si) & !(tj > 1e-12 * sj));
    }
    return any != 0;
}

// Whether every node of block b lies behind the plane of node i, so that
// no pair of i with them exchanges: by the box's farthest corner along N_i,
// with a margin far above the rounding of N_i . d, whose terms lie between
// those at the box's faces (rounding keeps the order).
bool behind(const Row& R, std::size_t i, std::size_t b) {
    const double p[3] = {R.x[i], R.y[i], R.z[i]}, n[3] = {R.nx[i], R.ny[i], R.nz[i]};
    const double* lo = R.box + 6 * b;
    const double* hi = lo + 3;
    double most = 0.0, size = 0.0;
    for (int k = 0; k < 3; ++k) {
        const double a = n[k] * (lo[k] - p[k]), c = n[k] * (hi[k] - p[k]);
        most += std::max(a, c);
        size += std::max(std::abs(a), std::abs(c));
    }
    return most < -1e-10 * size;
}

// The spans of row i, in order, that may hold a pair that exchanges. A
// block that lies behind node i's plane is passed over whole; a span is
// looked at with mayExchange first only when the one before held none, so
// that where every pair exchanges (a surface seen from inside) the look
// costs nothing. `work(first, last)` returns whether a pair exchanged.
template <typename Work>
void eachSpan(const Row& R, std::size_t i, std::size_t M, Work&& work) {
    bool look = true;
    for (std::size_t first = i + 1; first < M;) {
        const std::size_t block = first / kSpan, last = std::min(M, (block + 1) * kSpan);
        if (behind(R, i, block) || (look && !mayExchange(R, i, first, last))) look = true;
        else look = !work(first, last);
        first = last;
    }
}

// Pairs (i, j), j in [first, last), without the obstruction test: the sum i
// receives; col[j] gets what j receives from i; `any` whether a pair
// exchanged. Written for the vectoriser: flat arrays, no branches.
__attribute__((target_clones("avx512f", "avx2", "default"))) double openSpan(
    const Row& R, std::size_t i, std::size_t first, std::size_t last, double* __restrict col, double ratio,
    double sqrtPi, bool& any) {
    TUNDREL_ROW_CONSTANTS(i);
    double sum = 0.0;
    int exchanged = 0;
#pragma omp simd reduction(+ : sum) reduction(| : exchanged)
    for (std::size_t j = first; j < last; ++j) {
        TUNDREL_PAIR_TERMS(i, j);
        sum += exchange ? toI : 0.0;
        col[j] += exchange ? toJ : 0.0;
        exchanged |= static_cast<int>(exchange);
    }
    any = exchanged != 0;
    return sum;
}

// Row i without the obstruction test.
double openRow(const Row& R, std::size_t i, std::size_t M, double* __restrict col, double ratio, double sqrtPi) {
    double sum = 0.0;
    eachSpan(R, i, M, [&](std::size_t first, std::size_t last) {
        bool any = false;
        sum += openSpan(R, i, first, last, col, ratio, sqrtPi, any);
        return any;
    });
    return sum;
}

// The shares of the pairs (i, j), j in [first, last), into flat arrays:
// vectorised, with the same arithmetic as openSpan; exchange[j - first] 0
// where the pair does not exchange. Returns whether a pair exchanged.
__attribute__((target_clones("avx512f", "avx2", "default"))) bool rowShares(
    const Row& R, std::size_t i, std::size_t first, std::size_t last, double ratio, double sqrtPi,
    std::uint8_t* __restrict exchanges, double* __restrict shareI, double* __restrict shareJ) {
    TUNDREL_ROW_CONSTANTS(i);
    int exchanged = 0;
#pragma omp simd reduction(| : exchanged)
    for (std::size_t j = first; j < last; ++j) {
        TUNDREL_PAIR_TERMS(i, j);
        exchanges[j - first] = exchange ? 1 : 0;
        shareI[j - first] = toI;
        shareJ[j - first] = toJ;
        exchanged |= static_cast<int>(exchange);
    }
    return exchanged != 0;
}

// Row i with the obstruction test, run once for each pair that exchanges.
// The shares are worked out a span of pairs at a time, the pairs that
// exchange go to the hierarchy in packets of rays from node i, and their
// shares are added afterwards in the order of j, as a pair-by-pair loop
// adds them.
double testedRow(const Row& R, const std::vector<std::int32_t>& node, std::size_t i, std::size_t M,
                 double* __restrict col, double ratio, double sqrtPi, const SurfaceBvh& bvh, std::int64_t& tests) {
    constexpr int P = SurfaceBvh::kPacket;
    std::int32_t from[P], target[P];
    std::size_t at[P];
    double toI[P], toJ[P];
    bool hidden[P];
    alignas(64) std::uint8_t exchanges[kSpan];
    alignas(64) double shareI[kSpan], shareJ[kSpan];
    int n = 0;
    double sum = 0.0;
    auto flush = [&] {
        bvh.occludedPairs(from, target, n, hidden);
        tests += n;
        for (int k = 0; k < n; ++k) {
            if (hidden[k]) continue;
            sum += toI[k];
            col[at[k]] += toJ[k];
        }
        n = 0;
    };
    eachSpan(R, i, M, [&](std::size_t first, std::size_t last) {
        if (!rowShares(R, i, first, last, ratio, sqrtPi, exchanges, shareI, shareJ)) return false;
        for (std::size_t j = first; j < last; ++j) {
            if (exchanges[j - first] == 0) continue;
            from[n] = node[i];
            target[n] = node[j];
            at[n] = j;
            toI[n] = shareI[j - first];
            toJ[n] = shareJ[j - first];
            if (++n == P) flush();
        }
        return true;
    });
    if (n > 0) flush();
    return sum;
}

#undef TUNDREL_PAIR_TERMS
#undef TUNDREL_ROW_CONSTANTS

}  // namespace

bool ownsBlock(std::size_t block, WorkShare share) {
    const auto count = static_cast<std::size_t>(std::max(1, share.count));
    const std::size_t round = block / count, place = block % count;
    return static_cast<int>(round % 2 == 0 ? place : count - 1 - place) == share.index;
}

std::vector<std::uint32_t> shareRows(std::size_t M, WorkShare share) {
    std::vector<std::uint32_t> rows;
    rows.reserve(M / static_cast<std::size_t>(std::max(1, share.count)) + kShareBlock);
    for (std::size_t first = 0, block = 0; first < M; first += kShareBlock, ++block)
        if (ownsBlock(block, share))
            for (std::size_t i = first; i < std::min(M, first + kShareBlock); ++i)
                rows.push_back(static_cast<std::uint32_t>(i));
    return rows;
}

std::vector<double> illuminationSums(const IlluminationNodes& p, double ratio, const SurfaceBvh* bvh,
                                     SelfIlluminationStats* stats, WorkShare share) {
    const std::size_t M = p.size();
    const double sqrtPi = std::sqrt(kPi);
    const int threads = std::max(1, omp_get_max_threads());
    // One column of received sums a thread. Rows are dealt out to the
    // threads in a fixed order, so that each column adds its terms in the
    // same order every run: a run repeats to the bit (for the same number of
    // threads).
    std::vector<double> columns(static_cast<std::size_t>(threads) * M, 0.0);
    // A share of several walks its own rows only; a whole run every row.
    const bool part = share.count > 1;
    const std::vector<std::uint32_t> owned = part ? shareRows(M, share) : std::vector<std::uint32_t>{};
    const std::size_t rowCount = part ? owned.size() : M;
    std::int64_t total = static_cast<std::int64_t>(M) * static_cast<std::int64_t>(M > 0 ? M - 1 : 0) / 2;
    if (part) {
        total = 0;
        for (const std::uint32_t i : owned) total += static_cast<std::int64_t>(M - 1 - i);
    }
    PairProgress progress(total);
    std::int64_t tests = 0;
    std::exception_ptr failure;
    const std::vector<double> boxes = blockBoxes(p);
    const Row rows(p, boxes);

#pragma omp parallel num_threads(threads) reduction(+ : tests)
    {
        double* col = columns.data() + static_cast<std::size_t>(omp_get_thread_num()) * M;
#pragma omp for schedule(static, kRowChunk)
        for (std::size_t k = 0; k < rowCount; ++k) {
            const std::size_t i = part ? owned[k] : k;
            if (progress.stopping()) continue;
            if (bvh == nullptr) {
                col[i] += openRow(rows, i, M, col, ratio, sqrtPi);
            } else {
                try {
                    col[i] += testedRow(rows, p.node, i, M, col, ratio, sqrtPi, *bvh, tests);
                } catch (...) {
#pragma omp critical(tundrel_self_illumination_failure)
                    if (!failure) failure = std::current_exception();
                }
            }
            progress.add(static_cast<std::int64_t>(M - 1 - i));
        }
    }
    if (failure) std::rethrow_exception(failure);
    progress.finish();

    std::vector<double> sums(M, 0.0);
    for (int t = 0; t < threads; ++t) {
        const double* col = columns.data() + static_cast<std::size_t>(t) * M;
        for (std::size_t i = 0; i < M; ++i) sums[i] += col[i];
    }
    if (stats != nullptr) {
        stats->participants = static_cast<std::int64_t>(M);
        stats->pairs = 2 * total;
        stats->segmentTests = tests;
    }
    return sums;
}

namespace {

// The participants and what they receive (the share's part; 0 elsewhere);
// the source values, or null when the run ends silently.
const double* participantSums(const FieldMasterD& field, const std::string& fieldName, double ratio,
                              bool checkVisibility, SelfIlluminationStats* stats, double tolerance, WorkShare share,
                              IlluminationNodes& nodes, std::vector<double>& sums) {
    // Absent names throw IndexError here, before anything changes.
    arrayWorks::FieldFunction* source = field.functionAt(field.findFunction(fieldName));
    arrayWorks::FieldFunction* normals = field.functionAt(field.findFunction(arrayWorks::kNormalsName));
    const auto* values = dynamic_cast<const arrayWorks::ScalarFunction*>(source);
    const auto* normalValues = dynamic_cast<const arrayWorks::VectorFunction*>(normals);
    const std::size_t n = field.totalNodes();
    if (values == nullptr || normalValues == nullptr || values->size() != n || normalValues->size() != n)
        return nullptr;

    // Nothing selected: every node takes part; otherwise the selected ones.
    const bool everyNode = field.selectionState() == arrayWorks::NothingSelected;
    const arrayWorks::SelectionFunction& selection = field.selection();
    const Surface surface(field);

    const double* v = values->data();
    std::vector<unsigned char> takesPart(n, 0);
    std::size_t participants = 0;
    for (std::size_t k = 0; k < n; ++k) {
        takesPart[k] = (everyNode || selection.data()[k] != 0) && v[k] != arrayWorks::kNoValue;
        participants += takesPart[k];
    }
    const std::vector<double> area = nodeAreas(field, surface, takesPart);

    // The participants' own copy of their positions and normals ("$_N").
    nodes.reserve(participants);
    const z::zVec<double>* normal = normalValues->data();
    for (std::size_t k = 0; k < n; ++k)
        if (takesPart[k] != 0) nodes.add(surface, normal[k], k, area[k], v[k]);

    std::unique_ptr<SurfaceBvh> bvh;
    if (checkVisibility && nodes.size() > 1) bvh = std::make_unique<SurfaceBvh>(surface);
    sums = tolerance > 0.0 ? hierarchicalSums(nodes, ratio, farFieldRule(tolerance), bvh.get(), stats, share)
                           : illuminationSums(nodes, ratio, bvh.get(), stats, share);
    return v;
}

}  // namespace

std::vector<double> selfIlluminationValues(const FieldMasterD& field, const std::string& fieldName, double ratio,
                                           bool checkVisibility, SelfIlluminationStats* stats, double tolerance) {
    IlluminationNodes nodes;
    std::vector<double> sums;
    const double* v =
        participantSums(field, fieldName, ratio, checkVisibility, stats, tolerance, {}, nodes, sums);
    if (v == nullptr) return {};
    std::vector<double> result(v, v + field.totalNodes());
    // A receiver without area (a node that no face holds) receives nothing.
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (nodes.area[i] > 0.0) result[static_cast<std::size_t>(nodes.node[i])] -= sums[i];
    return result;
}

std::vector<double> receivedSums(const FieldMasterD& field, const std::string& fieldName, double ratio,
                                 bool checkVisibility, SelfIlluminationStats* stats, double tolerance,
                                 WorkShare share) {
    IlluminationNodes nodes;
    std::vector<double> sums;
    if (participantSums(field, fieldName, ratio, checkVisibility, stats, tolerance, share, nodes, sums) == nullptr)
        return {};
    std::vector<double> result(field.totalNodes(), 0.0);
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (nodes.area[i] > 0.0) result[static_cast<std::size_t>(nodes.node[i])] = sums[i];
    return result;
}
}  // namespace detail

using detail::correctSelfIllumination;
using detail::selfIlluminationValues;


namespace {

arrayWorks::ScalarFunction* appendValues(FieldMasterD& field, const std::string& newName,
                                         const std::vector<double>& result);

// Appends the corrected field as correctSelfIllumination does; the new
// function, or null when the run ended silently.
arrayWorks::ScalarFunction* appendCorrected(FieldMasterD& field, const std::string& fieldName, double ratio,
                                            bool checkVisibility, const std::string& newName,
                                            SelfIlluminationStats* stats, double tolerance) {
    // The same checks as in selfIlluminationValues, before the name is looked at.
    arrayWorks::FieldFunction* source = field.functionAt(field.findFunction(fieldName));
    arrayWorks::FieldFunction* normals = field.functionAt(field.findFunction(arrayWorks::kNormalsName));
    if (source == nullptr || normals == nullptr || field.hasFunction(newName)) return nullptr;

    std::vector<double> result;
    {
        BusyScope busy;
        result = selfIlluminationValues(field, fieldName, ratio, checkVisibility, stats, tolerance);
    }
    return appendValues(field, newName, result);
}

// Appends `newName` with `result` (one value a node); null when `result` is
// empty for a model with nodes: the run ended silently.
arrayWorks::ScalarFunction* appendValues(FieldMasterD& field, const std::string& newName,
                                         const std::vector<double>& result) {
    if (result.empty() && field.totalNodes() > 0) return nullptr;

    field.addScalar(newName);
    auto* target = field.scalar(field.findFunction(newName));
    if (target == nullptr) return nullptr;
    // Block by block, while the new function's block arrays fit the blocks.
    for (int b = 0; b < field.blockCount(); ++b) {
        if (b >= static_cast<int>(target->values.blocks.size())) break;
        const auto& arr = target->values.blocks[static_cast<std::size_t>(b)];
        if (arr.data == nullptr || arr.count != field.nodeCount(b)) break;
        const std::size_t first = field.offset(b);
        for (int k = 0; k < arr.count; ++k) arr.data[k] = result[first + static_cast<std::size_t>(k)];
    }
    return target;
}

}  // namespace

namespace detail {
bool correctSelfIllumination(FieldMasterD& field, const std::string& fieldName, double ratio, bool checkVisibility,
                             const std::string& newName, SelfIlluminationStats* stats, double tolerance) {
    return appendCorrected(field, fieldName, ratio, checkVisibility, newName, stats, tolerance) != nullptr;
}
}  // namespace detail

// ---- the typed core and the exported entry -------------------------------------

std::string checkParameters(const SelfIlluminationParameters& p) {
    using D = SelfIlluminationDialog;
    if (std::string m = numberRefusal(kSelfIlluminationDialog, D::kRatio, p.ratio); !m.empty()) return m;
    if (std::string m = textRefusal(kSelfIlluminationDialog, D::kNewFieldName, p.newName); !m.empty()) return m;
    if (!(p.tolerance >= 0.0) || std::isinf(p.tolerance)) return "The tolerance must be a number of at least 0.";
    return {};
}

SelfIlluminationResult selfIlluminate(FieldMasterD& field, const std::string& source,
                                      const SelfIlluminationParameters& p) {
    if (std::string m = checkParameters(p); !m.empty()) return SelfIlluminationResult::refused(std::move(m));
    if (field.findFunction(p.newName) >= 0) return SelfIlluminationResult::refused(arrayWorks::kDuplicateNameMessage);
    SelfIlluminationResult r;
    try {
        r.function = appendCorrected(field, source, p.ratio, p.checkVisibility, p.newName, &r.facts, p.tolerance);
    } catch (const detail::Stopped&) {
        return SelfIlluminationResult::stoppedEarly();
    }
    return r;
}

namespace {

// selfIlluminate's refusals before any work: the parameters, then the name.
std::string refusal(const FieldMasterD& field, const SelfIlluminationParameters& p) {
    if (std::string m = checkParameters(p); !m.empty()) return m;
    if (field.findFunction(p.newName) >= 0) return arrayWorks::kDuplicateNameMessage;
    return {};
}

}  // namespace

SelfIlluminationSums selfIlluminationShare(const FieldMasterD& field, const std::string& source,
                                           const SelfIlluminationParameters& p, WorkShare share) {
    SelfIlluminationSums r;
    if (share.count < 1 || share.index < 0 || share.index >= share.count) {
        r.message = "The share must be a part 0 to count - 1 of a count of at least 1.";
        return r;
    }
    if (r.message = refusal(field, p); !r.message.empty()) return r;
    try {
        BusyScope busy;
        r.sums = detail::receivedSums(field, source, p.ratio, p.checkVisibility, &r.facts, p.tolerance, share);
    } catch (const detail::Stopped&) {
        r.sums.clear();
        r.stopped = true;
    }
    return r;
}

SelfIlluminationResult applySelfIllumination(FieldMasterD& field, const std::string& source,
                                             const SelfIlluminationParameters& p, const std::vector<double>& sums,
                                             const SelfIlluminationStats& facts) {
    if (std::string m = refusal(field, p); !m.empty()) return SelfIlluminationResult::refused(std::move(m));
    // The checks of the correction itself, in its order: absent names throw.
    arrayWorks::FieldFunction* values = field.functionAt(field.findFunction(source));
    arrayWorks::FieldFunction* normals = field.functionAt(field.findFunction(arrayWorks::kNormalsName));
    const auto* scalar = dynamic_cast<const arrayWorks::ScalarFunction*>(values);
    const auto* vectors = dynamic_cast<const arrayWorks::VectorFunction*>(normals);
    const std::size_t n = field.totalNodes();
    if (scalar == nullptr || vectors == nullptr || scalar->size() != n || vectors->size() != n) return {};
    if (sums.size() != n)
        return SelfIlluminationResult::refused("The received sums have " + std::to_string(sums.size()) +
                                               " values for a model of " + std::to_string(n) + " nodes.");
    std::vector<double> result(scalar->data(), scalar->data() + n);
    // Nodes outside the run have a sum of +0 and keep their value as it is.
    for (std::size_t k = 0; k < n; ++k)
        if (sums[k] != 0.0 || std::signbit(sums[k])) result[k] -= sums[k];
    SelfIlluminationResult r;
    r.function = appendValues(field, p.newName, result);
    r.facts = facts;
    return r;
}

bool askSelfIlluminationParameters(const FieldMasterD& field, SelfIlluminationParameters& values) {
    SelfIlluminationDialog dialog;
    dialog.ratio = values.ratio;
    dialog.checkVisibility = values.checkVisibility;
    dialog.newFieldName = values.newName;
    for (;;) {
        if (!runDialog(dialog)) return false;
        values.ratio = dialog.ratio;
        values.checkVisibility = dialog.checkVisibility;
        values.newName = dialog.newFieldName;
        if (field.findFunction(dialog.newFieldName) < 0) return true;
        showMessage(arrayWorks::kDuplicateNameMessage);
    }
}

namespace {
// The ratio and the flag last confirmed, for the next call.
SelfIlluminationParameters g_remembered;
}  // namespace

}  // namespace tundrel

void self_illumination(FieldMasterD& field, std::string& fieldName) {
    using namespace tundrel;
    BusyScope busy;  // the dialog takes the wait cursor off while it is open
    g_remembered.newName = fieldName + kSelfIlluminationSuffix;
    if (!askSelfIlluminationParameters(field, g_remembered)) return;
    selfIlluminate(field, fieldName, g_remembered);
}
