// The self-illumination correction and the hidden-face removal.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "api/export.h"
#include "api/fields/core_result.h"
#include "api/field_selection.h"
#include "api/ngeo.h"
#include "api/zvec.h"

// Removes from a scalar field the light that the surface reflects onto
// itself. Asks for the reflection ratio (0 to 1), the obstruction test and
// the new field's name (proposed: fieldName + "_si") in the dialog
// "Self-illumination parameters"; refuses a name that exists with "The
// function name alredy exist" and asks again; Cancel changes nothing. On OK
// the ratio and the flag are remembered for the next call, and one scalar
// function with the corrected values is appended to the container.
//
// Nodes take part as receivers and emitters when they are selected (all nodes
// when nothing is selected) and hold a value other than -1e10. Every
// participating node R loses
//     sum over participating E != R that face R (and, with the obstruction
//     test, are not hidden from R by the surface) of
//     (S - r sqrt(pi)) V_E A_E cosE ratio / (2 S A_R),  S = sqrt(pi r^2 + cosR A_R),
// with r the distance of the two nodes, cosR and cosE the cosines between
// their normals ("$_N") and the line joining them, V the source values and A
// the node areas. An absent source field or "$_N" throws IndexError
// (api/geo, line 804) with the container unchanged; a source that is not a
// scalar field, or normals that are not vectors, end the call silently.
TUNDREL_API void self_illumination(FieldMasterD& field, std::string& fieldName);

// Hidden-face removal for a camera at `eye`: keeps in every face patch of
// `reg_fe` only the faces that the camera sees, and drops the nodes that no
// kept face uses (their node variables too; the kept nodes keep their order
// and the faces are renumbered). A face is seen when
//   - it faces the camera: with corners p0, p1, p2 in the order of the face
//     index list, (p1 - p0) x (p2 - p0) . (eye - p0) > 0 (a face with four
//     corners counts as the triangles p0 p1 p2 and p0 p2 p3, and is seen
//     when either is); and
//   - the segment from the eye to its centroid (the mean of its corners)
//     crosses no other face of any patch, by the obstruction test of the
//     self-illumination correction (faces that touch the face itself do not
//     hide it).
// Faces with fewer than three nodes are removed. A patch left without faces
// stays in the list with no nodes and no faces. Returns the number of faces
// removed; coordinates are the variables named x, y, z in any case. A patch
// without coordinates is left as it is.
TUNDREL_API int unvisible_faces_remove(region_fe& reg_fe, const z::zVec<double>& eye);

namespace tundrel {

inline constexpr const char* kSelfIlluminationSuffix = "_si";

// What one run visited.
struct SelfIlluminationStats {
    std::int64_t participants = 0;  // nodes that take part
    std::int64_t pairs = 0;         // ordered pairs of participants (R, E), R != E
    std::int64_t segmentTests = 0;  // obstruction tests run, one per unordered pair at most
                                    // (hierarchical: rays to single nodes and to clusters' samples;
                                    // threads share answers, so the count varies a little)
    std::int64_t clusterTerms = 0;  // hierarchical: far clusters taken whole, over all receivers
};

// ---- the typed core ----------------------------------------------------------

// The parameters of the correction. The name is taken as the dialog takes
// it (an empty one too); selfIlluminationDefaults gives what the dialog
// proposes on its first call.
//
// tolerance 0 runs the exact correction, every pair of nodes. A tolerance
// EPS > 0 runs the hierarchical one for large models: far groups of nodes are
// taken whole, aiming at max |c_h - c| <= EPS max |c| over the nodes, with c
// the amount the exact correction subtracts; 1e-3 is a sensible choice.
// With the obstruction test, where a few receivers' walks show that the
// hierarchical pass would trace about as many rays as the exact one (small
// models, surfaces that mostly face themselves), the exact one runs.
struct SelfIlluminationParameters {
    double ratio = 1.0;            // diffuse reflection ratio, 0 to 1
    bool checkVisibility = false;  // the obstruction test for every pair
    std::string newName;
    double tolerance = 0.0;        // 0: exact; > 0: hierarchical, aimed error
};

// Ratio 1, no obstruction test, the name source + "_si".
inline SelfIlluminationParameters selfIlluminationDefaults(const std::string& source) {
    return {1.0, false, source + kSelfIlluminationSuffix, 0.0};
}

// The dialog's rules for these values, in the dialog's order: its message
// ("Please enter a number between 0 and 1.", "Please enter no more than 255
// characters.") or an empty string; then a tolerance that is not a number
// of at least 0: "The tolerance must be a number of at least 0.".
TUNDREL_API std::string checkParameters(const SelfIlluminationParameters& p);

using SelfIlluminationResult = CoreResult<SelfIlluminationStats>;

// ---- one correction over several processes -------------------------------------
//
// A driver that runs one correction in P processes (MPI ranks, say) gives
// each process its share: every process holds the whole model, computes the
// received sums of its share with selfIlluminationShare, the P vectors are
// added element by element, and one process appends the field with
// applySelfIllumination. The result equals selfIlluminate's to rounding (the
// exact pass adds the shares of a receiver in another order); with P = 1 it
// is the same.

// Part `index` of `count`, 0 <= index < count. The exact pass splits the rows
// of its pairs (row i holds the pairs {i, j > i}) in blocks of 64 rows dealt
// out in turn, back and forth, so that every part has nearly the same number
// of pairs; the hierarchical pass deals out its groups of receivers
// (neighbours, at most 64 of them) the same way.
struct WorkShare {
    int index = 0;
    int count = 1;
};

// What a share gives: one received sum a node of the container (all blocks
// together; 0 where a node does not take part, has no area, or its sum is
// not in this share's part), and the facts of the share (participants: all
// of them; pairs, segment tests and cluster terms: this share's, so that the
// sums over the shares are the whole run's). `message` refuses the run as
// selfIlluminate refuses it; `stopped`: the host asked to stop. An empty
// `sums` without message: the run would end silently.
struct SelfIlluminationSums {
    std::vector<double> sums;
    SelfIlluminationStats facts{};
    std::string message;
    bool stopped = false;
};

// The received sums of a share, with selfIlluminate's checks (parameters,
// the new name, the source and "$_N", which throw IndexError when absent);
// a share outside 0 <= index < count is refused. The container is not
// changed. Progress is reported for the share's own part.
TUNDREL_API SelfIlluminationSums selfIlluminationShare(const FieldMasterD& field, const std::string& source,
                                                       const SelfIlluminationParameters& p, WorkShare share);

// Appends the field that selfIlluminate appends, from `sums`: the sums of all
// shares added up (one a node of the container). The same checks and
// refusals as selfIlluminate, and a refusal when `sums` does not have one
// value a node; `facts` are returned in the result as they are.
TUNDREL_API SelfIlluminationResult applySelfIllumination(FieldMasterD& field, const std::string& source,
                                                         const SelfIlluminationParameters& p,
                                                         const std::vector<double>& sums,
                                                         const SelfIlluminationStats& facts);

// The correction without a dialog: the parameters are checked by the dialog's
// rules, then a new name that exists is refused with "The function name
// alredy exist"; then the correction runs as the dialog's OK runs it (wait
// cursor, progress). An absent source or "$_N" throws IndexError with the
// container unchanged; a source that is not a scalar field, or normals that
// are not vectors, give neither function nor message. Nothing is shown and
// nothing remembered.
TUNDREL_API SelfIlluminationResult selfIlluminate(FieldMasterD& field, const std::string& source,
                                                  const SelfIlluminationParameters& p);

// The dialog loop of self_illumination over `values`: the dialog opens with
// them, every OK stores the typed values back, and a new name that exists is
// refused ("The function name alredy exist") and the dialog asked again.
// False for Cancel.
TUNDREL_API bool askSelfIlluminationParameters(const FieldMasterD& field, SelfIlluminationParameters& values);

}  // namespace tundrel
