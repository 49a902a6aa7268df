// tundrel triangulate / refine / merge / mirror
#include <algorithm>
#include <iostream>
#include <map>

#include "cli/cli.h"

namespace tundrel::cli {

namespace {

struct MeshArgs {
    std::string in, out;
    bool transpose = false;
    WriteOptions w;
};

void addInOut(CLI::App& cmd, MeshArgs& a) {
    cmd.add_option("IN", a.in, "Model to read (apt, fld, dat, wrl)")->required();
    cmd.add_option("OUT", a.out, "Model to write")->required();
    cmd.add_flag("--transpose", a.transpose, "Exchange the first and second grid directions on reading");
    addWriteOptions(cmd, a.w);
}

// Every structured patch that can be triangulated becomes a face patch after
// those already there; patches narrower than 2 x 2 stay structured.
bool triangulate(region& reg, region_fe& fe) {
    const int before = fe.patchCount();
    if (!converter_reg_to_reg_fe(reg, fe)) return false;
    if (fe.patchCount() == before) return true;
    if (before == 0) {
        fe.name = reg.name;
        fe.Mach = reg.Mach;
        fe.alpha = reg.alpha;
        fe.beta = reg.beta;
    }
    arrayWorks::PtrList<StructPatch> kept;
    for (int k = 0; k < reg.patchCount(); ++k) {
        const StructPatch& p = reg.patch(k);
        if (p.I < 2 || p.J < 2) kept.append(reg.patches.shared(k));
    }
    reg.patches = std::move(kept);
    return true;
}

// Reads IN for a command that edits face patches: a model without any is
// triangulated first, so that structured models (APT, FLD) can be edited too.
bool loadFaces(const MeshArgs& a, region& reg, region_fe& fe) {
    if (!loadModel({a.in}, a.transpose, reg, fe)) return false;
    if (fe.patchCount() == 0 && !triangulate(reg, fe)) return false;
    if (fe.patchCount() == 0) {
        std::cerr << "tundrel: " << a.in << ": no face patches\n";
        return false;
    }
    return true;
}

bool checkPatch(int k, const region_fe& fe) {
    if (k >= 0 && k < fe.patchCount()) return true;
    std::cerr << "tundrel: no face patch " << k << " (the model has " << fe.patchCount() << ", numbered from 0)\n";
    return false;
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
        if (!loadModel({tri->in}, tri->transpose, reg, fe) || !triangulate(reg, fe) ||
            !saveModel(tri->out, tri->w, reg, fe))
            status = kFailure;
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
        ->delimiter(',');
    refineCmd->add_option("--times", ref->times, "How many times to refine")
        ->check(CLI::NonNegativeNumber)
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
        for (int k : list)
            if (!checkPatch(k, fe)) {
                status = kFailure;
                return;
            }
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        // Refinement rebuilds the patch list from an empty buffer, which
        // also empties the title and flow conditions: the model keeps its own.
        const std::string title = fe.name;
        const double mach = fe.Mach, alpha = fe.alpha, beta = fe.beta;
        for (int t = 0; t < ref->times; ++t) block_fe_compress(fe, static_cast<int>(list.size()), list.data());
        fe.name = title;
        fe.Mach = mach;
        fe.alpha = alpha;
        fe.beta = beta;
        if (!saveModel(ref->out, ref->w, reg, fe)) status = kFailure;
    });

    struct MergeArgs : MeshArgs {
        int into = -1, from = -1;
    };
    auto mer = std::make_shared<MergeArgs>();
    CLI::App* mergeCmd = app.add_subcommand(
        "merge", "Join face patch B into face patch A (a model without face patches is triangulated first)");
    addInOut(*mergeCmd, *mer);
    mergeCmd->add_option("--into", mer->into, "A: the patch that receives")->required();
    mergeCmd->add_option("--from", mer->from, "B: the patch that is joined in and disappears")->required();
    mergeCmd->callback([mer, &status] {
        region reg;
        region_fe fe;
        if (!loadFaces(*mer, reg, fe) || !checkPatch(mer->into, fe) || !checkPatch(mer->from, fe)) {
            status = kFailure;
            return;
        }
        if (!merge_in_reg_fe(fe, mer->into, mer->from)) {
            if (mer->into == mer->from) std::cerr << "tundrel: a patch cannot be merged into itself\n";
            else std::cerr << "tundrel: face patch " << mer->from << " has no faces to merge\n";
            status = kFailure;
            return;
        }
        if (!saveModel(mer->out, mer->w, reg, fe)) status = kFailure;
    });

    struct MirrorArgs : MeshArgs {
        int patch = -1;
        std::string plane = "xz";
    };
    auto mir = std::make_shared<MirrorArgs>();
    CLI::App* mirrorCmd = app.add_subcommand(
        "mirror", "Add the mirror image of a face patch, faces turned so that normals point outward (a model "
                  "without face patches is triangulated first)");
    addInOut(*mirrorCmd, *mir);
    mirrorCmd->add_option("--patch", mir->patch, "K: the face patch to mirror")->required();
    mirrorCmd->add_option("--plane", mir->plane, "Mirror plane: xz negates y, xy negates z, yz negates x")
        ->check(CLI::IsMember({"xy", "yz", "xz"}))
        ->capture_default_str();
    mirrorCmd->callback([mir, &status] {
        region reg;
        region_fe fe;
        if (!loadFaces(*mir, reg, fe) || !checkPatch(mir->patch, fe)) {
            status = kFailure;
            return;
        }
        static const std::map<std::string, mesh::MirrorPlane> planes = {
            {"xy", mesh::MirrorPlane::xy}, {"yz", mesh::MirrorPlane::yz}, {"xz", mesh::MirrorPlane::xz}};
        if (fe.patch(mir->patch).variableCount() < 3 || mesh::mirrorPatch(fe, mir->patch, planes.at(mir->plane)) < 0) {
            std::cerr << "tundrel: face patch " << mir->patch << " has no x, y, z among its first three variables\n";
            status = kFailure;
            return;
        }
        if (!saveModel(mir->out, mir->w, reg, fe)) status = kFailure;
    });
}

}  // namespace tundrel::cli
