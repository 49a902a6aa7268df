// tundrel triangulate / refine / merge / mirror
#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>

#include "cli/cli.h"
#include "cli/host.h"

namespace tundrel::cli {

namespace {

struct MeshArgs {
    std::string in, out;
    bool transpose = false;
    WriteOptions w;
};

void addInOut(CLI::App& cmd, MeshArgs& a) {
    cmd.add_option("IN", a.in, "Model to read (" + geometryExtensions() + ")")->required()->check(geometryFile(false));
    cmd.add_option("OUT", a.out, "Model to write")->required()->check(geometryFile(true));
    cmd.add_flag("--transpose", a.transpose, "Exchange the first and second grid directions on reading");
    addWriteOptions(cmd, a.w);
}

// Reads IN for a command that edits face patches: a model without any is
// triangulated first, so that structured models (APT, FLD) can be edited too.
bool loadFaces(const MeshArgs& a, region& reg, region_fe& fe) {
    if (!loadModel({a.in}, a.transpose, reg, fe)) return false;
    if (fe.patchCount() == 0 && !mesh::triangulateModel(reg, fe)) return false;
    if (fe.patchCount() == 0) {
        error(a.in + ": no face patches");
        return false;
    }
    return true;
}

void checkPatch(int k, const region_fe& fe) {
    if (k < 0 || k >= fe.patchCount())
        throw Failure{"no face patch " + std::to_string(k) + " (the model has " + std::to_string(fe.patchCount()) +
                      ", numbered from 0)"};
}

std::string names(const FacePatch& p) {
    std::string s;
    for (int k = 0; k < p.variableCount(); ++k) s += (k ? ", " : "") + p.variable(k).name;
    return s;
}

// The buffer operations copy every patch with the variables of the first
// one: patches that carry others would lose them or fail half way.
void checkSameVariables(const region_fe& fe, const std::vector<int>& patches) {
    for (int k : patches)
        if (names(fe.patch(k)) != names(fe.patch(0)))
            throw Failure{"face patch " + std::to_string(k) + " carries " + names(fe.patch(k)) + ", face patch 0 " +
                          names(fe.patch(0)) + "; the operation needs the same variables in every patch"};
}

}  // namespace

void addMeshCommands(CLI::App& app, int& status) {
    auto tri = std::make_shared<MeshArgs>();
    CLI::App* triangulateCmd =
        app.add_subcommand("triangulate", "Turn every structured patch into a face patch of triangles");
    addInOut(*triangulateCmd, *tri);
    triangulateCmd->callback([tri, &status] {
        region reg;
        region_fe fe;
        if (!loadModel({tri->in}, tri->transpose, reg, fe)) {
            status = kFailure;
            return;
        }
        double faces = 0;
        for (int k = 0; k < reg.patchCount(); ++k)
            faces += 2.0 * std::max(reg.patch(k).I - 1, 0) * std::max(reg.patch(k).J - 1, 0);
        checkMemory(faces * 4 * sizeof(std::int32_t), "triangulate");
        if (!mesh::triangulateModel(reg, fe) || !saveModel(tri->out, tri->w, reg, fe)) status = kFailure;
    });

    struct RefineArgs : MeshArgs {
        std::vector<int> patches;
        int times = 1;
    };
    auto ref = std::make_shared<RefineArgs>();
    CLI::App* refineCmd = app.add_subcommand(
        "refine", "Split every triangle of face patches in four at its edge midpoints (a model without face "
                  "patches is triangulated first)");
    addInOut(*refineCmd, *ref);
    refineCmd->add_option("--patches", ref->patches, "Face patches to refine, e.g. 0,2 (default: all)")
        ->delimiter(',')
        ->check(intIn(0, kAnyCount));
    refineCmd->add_option("--times", ref->times, "How many times to refine, 0 to 30 (each makes 4 x the faces)")
        ->check(intIn(0, 30))
        ->capture_default_str();
    refineCmd->callback([ref, &status] {
        region reg;
        region_fe fe;
        if (!loadFaces(*ref, reg, fe)) {
            status = kFailure;
            return;
        }
        std::vector<int> list = ref->patches;
        if (list.empty())
            for (int k = 0; k < fe.patchCount(); ++k) list.push_back(k);
        for (int k : list) checkPatch(k, fe);
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        checkSameVariables(fe, list);
        // Each pass makes 4 x the faces and about 1 + 1.5 x faces new nodes
        // (one per edge); the last pass holds the old and the new patch.
        double bytes = 0;
        for (int k : list) {
            const FacePatch& p = fe.patch(k);
            const double faces = p.faces * std::pow(4.0, ref->times);
            const double nodes = p.nodes + 1.5 * faces;
            bytes += 1.25 * (faces * 4 * sizeof(std::int32_t) + nodes * p.variableCount() * sizeof(double));
        }
        checkMemory(bytes, "refine --times " + std::to_string(ref->times));
        // Refinement rebuilds the patch list from an empty buffer, which
        // also empties the title and flow conditions: the model keeps its own.
        const std::string title = fe.name;
        const double mach = fe.Mach, alpha = fe.alpha, beta = fe.beta;
        for (int t = 0; t < ref->times; ++t) {
            cliHost().beginStage("refining " + std::to_string(t + 1) + " of " + std::to_string(ref->times));
            block_fe_compress(fe, static_cast<int>(list.size()), list.data());
        }
        fe.name = title;
        fe.Mach = mach;
        fe.alpha = alpha;
        fe.beta = beta;
        cliHost().beginStage("writing");
        if (!saveModel(ref->out, ref->w, reg, fe)) status = kFailure;
        cliHost().finishStages("tundrel refine: ", settings().quiet);
    });

    struct MergeArgs : MeshArgs {
        int into = -1, from = -1;
    };
    auto mer = std::make_shared<MergeArgs>();
    CLI::App* mergeCmd = app.add_subcommand(
        "merge", "Join face patch B into face patch A (a model without face patches is triangulated first)");
    addInOut(*mergeCmd, *mer);
    mergeCmd->add_option("--into", mer->into, "A: the patch that receives")->required()->check(intIn(0, kAnyCount));
    mergeCmd->add_option("--from", mer->from, "B: the patch that is joined in and disappears")
        ->required()
        ->check(intIn(0, kAnyCount));
    mergeCmd->callback([mer, &status] {
        if (mer->into == mer->from) throw CLI::ValidationError("--from", "a patch cannot be merged into itself");
        region reg;
        region_fe fe;
        if (!loadFaces(*mer, reg, fe)) {
            status = kFailure;
            return;
        }
        checkPatch(mer->into, fe);
        checkPatch(mer->from, fe);
        std::vector<int> all;
        for (int k = 0; k < fe.patchCount(); ++k) all.push_back(k);
        checkSameVariables(fe, all);
        if (!merge_in_reg_fe(fe, mer->into, mer->from))
            throw Failure{"face patch " + std::to_string(mer->from) + " has no faces to merge"};
        if (!saveModel(mer->out, mer->w, reg, fe)) status = kFailure;
    });

    struct MirrorArgs : MeshArgs {
        int patch = -1;
        std::string plane = "xz";
    };
    auto mir = std::make_shared<MirrorArgs>();
    CLI::App* mirrorCmd = app.add_subcommand(
        "mirror", "Add the mirror image of a face patch with all its fields, faces turned so that normals point "
                  "outward (a model without face patches is triangulated first)");
    addInOut(*mirrorCmd, *mir);
    mirrorCmd->add_option("--patch", mir->patch, "K: the face patch to mirror")->required()->check(intIn(0, kAnyCount));
    mirrorCmd->add_option("--plane", mir->plane, "Mirror plane: xz negates y, xy negates z, yz negates x")
        ->check(CLI::IsMember({"xy", "yz", "xz"}))
        ->capture_default_str();
    mirrorCmd->callback([mir, &status] {
        region reg;
        region_fe fe;
        if (!loadFaces(*mir, reg, fe)) {
            status = kFailure;
            return;
        }
        checkPatch(mir->patch, fe);
        static const std::map<std::string, mesh::MirrorPlane> planes = {
            {"xy", mesh::MirrorPlane::xy}, {"yz", mesh::MirrorPlane::yz}, {"xz", mesh::MirrorPlane::xz}};
        const int count = fe.patch(mir->patch).variableCount() < 3
                              ? -1
                              : mesh::mirrorPatch(fe, mir->patch, planes.at(mir->plane));
        if (count < 0)
            throw Failure{"face patch " + std::to_string(mir->patch) +
                          " has no x, y, z among its first three variables"};
        // The image carries the fields of its source, so that it writes
        // into one file with the other patches.
        mesh::carryVariables(fe.patch(mir->patch), fe.patch(count - 1));
        if (!saveModel(mir->out, mir->w, reg, fe)) status = kFailure;
    });
}

}  // namespace tundrel::cli
