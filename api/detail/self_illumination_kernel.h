// The self-illumination correction's internals: node areas, the gather of
// the participating nodes and the pair kernel, for the typed core and the
// tests. Never installed, never exported.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "api/fields/self_illumination.h"
#include "api/fields/surface.h"

namespace tundrel {
class SurfaceBvh;
}

namespace tundrel::detail {

// The area that belongs to node n of block b. Structured blocks: 0.125 times
// the summed lengths of the cross products of consecutive vectors to the
// eight neighbours (a neighbour outside the patch is the node itself; the
// ring starts at column + 1 and turns towards row + 1). Face blocks: a third
// of the area of every triangle that holds the node; a four-cornered face
// reaches the container as two triangles and so gives each corner a third of
// each triangle it belongs to. Checked access, one node at a time.
double nodeArea(const FieldMasterD& field, int b, int n);

// The same areas for the nodes where `wanted` (one byte a node, all blocks
// together) is nonzero; 0 for the others.
std::vector<double> nodeAreas(const FieldMasterD& field, const Surface& surface,
                                          const std::vector<unsigned char>& wanted);

// The participating nodes as flat arrays for the pair kernel.
struct IlluminationNodes {
    std::vector<double> x, y, z;     // positions
    std::vector<double> nx, ny, nz;  // normals
    std::vector<double> area, value;
    std::vector<double> extent;      // largest absolute coordinate
    std::vector<std::int32_t> node;  // global node number, ascending

    std::size_t size() const noexcept { return node.size(); }
    void reserve(std::size_t n);
    // Node k of the surface with its normal, area and value.
    void add(const Surface& s, const z::zVec<double>& normal, std::size_t k, double area, double value);
};

// Thrown by PairProgress::finish() when the host asked to stop.
struct Stopped {};

// Progress of a pass over the participants, reported through the host by the
// calling thread only (the host belongs to the user-interface thread), which
// also asks the host whether to stop; the other threads see the answer
// through stopping() and skip their remaining work. An exception the host
// throws is kept and rethrown by finish(), which throws Stopped after a stop
// request.
class PairProgress {
public:
    explicit PairProgress(std::int64_t total);
    bool stopping() const { return stop_.load(std::memory_order_relaxed); }
    void add(std::int64_t n);  // from any thread of the pass
    void finish();

private:
    std::atomic<std::int64_t> done_{0};
    std::atomic<bool> stop_{false};
    std::int64_t total_, step_, reported_ = 0;
    std::exception_ptr error_;
};

// The received sum of every participant (the amount subtracted from its
// value), without the obstruction test when bvh is null. Runs in parallel
// and reports progress through the host. With a share of several, only the
// rows of pairs of that share are summed (both directions of each pair).
std::vector<double> illuminationSums(const IlluminationNodes& nodes, double ratio, const SurfaceBvh* bvh,
                                                 SelfIlluminationStats* stats = nullptr, WorkShare share = {});

// The rows of the pairs that belong to `share` of a triangular loop over M
// rows (row i holds M - 1 - i pairs): blocks of kShareBlock rows dealt out
// in turn, forwards in even rounds and backwards in odd ones.
inline constexpr std::size_t kShareBlock = 64;
std::vector<std::uint32_t> shareRows(std::size_t M, WorkShare share);
// Whether block `block` of a loop dealt out that way belongs to `share`.
bool ownsBlock(std::size_t block, WorkShare share);

// How the hierarchical pass approximates a far cluster of emitters (see
// self_illumination_tree.cpp): accepted when (radius / distance)^(order + 1)
// is at most theta^(order + 1) times the two cosines at its centre (floored)
// and the receiver's area is small against the squared nearest distance; its
// shares summed from the cluster's moments up to `order` (0: sum of V A N;
// 1: also its first moments about the centre; 2: also the second).
// farFieldRule gives what a tolerance asks for.
struct FarFieldRule {
    double theta = 0.0;
    int order = 1;
    // Largest number of nodes in a leaf cluster; 0: 32, or with the
    // obstruction test 16, the leaves whose pairs' answers are kept.
    int leafSize = 0;
    // Above 0: each receiver may leave out clusters whose shares are bounded
    // by a quarter of tolerance times the largest correction of a sample.
    double tolerance = 0.0;
    // With the obstruction test: run the exact pass instead when a few
    // receivers' walks show that it would trace about as many rays.
    bool exactWhenCheaper = false;
    // With the obstruction test: how many pairs of leaves whose rays' answers
    // are kept for the other node's walk, a participant (about 110 bytes each).
    double pairsKept = 8.0;
};
// The rule a tolerance asks for; exactWhenCheaper as preferExactWhenCheaper
// last set it (on unless a test or benchmark measures the walk itself).
FarFieldRule farFieldRule(double tolerance);
void preferExactWhenCheaper(bool on);

// The received sums as illuminationSums gives them, with far clusters of
// emitters taken whole by `rule`; with the obstruction test when bvh is not
// null (accepted clusters by a few rays, single pairs by their own test).
// With a share of several, only the receivers of that share (the tree's
// groups of receivers dealt out as ownsBlock deals out blocks) are summed;
// the others get 0.
std::vector<double> hierarchicalSums(const IlluminationNodes& nodes, double ratio, FarFieldRule rule,
                                     const SurfaceBvh* bvh, SelfIlluminationStats* stats = nullptr,
                                     WorkShare share = {});

// The corrected values of every node (all blocks together) without changing
// the container: the source values, less the received sums at participating
// nodes. Throws as self_illumination does; empty when it would end silently.
// A tolerance above 0 takes the hierarchical pass.
std::vector<double> selfIlluminationValues(const FieldMasterD& field, const std::string& fieldName,
                                                       double ratio, bool checkVisibility,
                                                       SelfIlluminationStats* stats = nullptr,
                                                       double tolerance = 0.0);

// The received sums of a share as one value a node of the container (0 for
// the nodes outside the share, without area or not taking part): what
// selfIlluminationValues subtracts when the shares are added. Throws and
// ends silently (empty) as selfIlluminationValues.
std::vector<double> receivedSums(const FieldMasterD& field, const std::string& fieldName, double ratio,
                                 bool checkVisibility, SelfIlluminationStats* stats, double tolerance,
                                 WorkShare share);

// The correction proper, with the dialog's values: appends the new scalar
// function `newName`. False when it ended silently (see above, or newName
// exists); errors as self_illumination.
bool correctSelfIllumination(FieldMasterD& field, const std::string& fieldName, double ratio,
                                         bool checkVisibility, const std::string& newName,
                                         SelfIlluminationStats* stats = nullptr, double tolerance = 0.0);

}  // namespace tundrel::detail
