// tundrel self-illumination
#include <iostream>

#include "cli/cli.h"
#include "cli/host.h"
#include "cli/ranks.h"

namespace tundrel::cli {

namespace {

std::string scalarNames(const FieldMasterD& field) {
    std::string names;
    for (int i = 0; i < field.functionCount(); ++i)
        if (field.scalar(i) != nullptr) names += (names.empty() ? "" : ", ") + field.functionAt(i)->name();
    return names.empty() ? "none" : names;
}

struct Args {
    std::string in, out, field, name;
    std::vector<int> patches;
    double ratio = 1.0;
    double tolerance = 0.0;
    bool visibility = false;
    WriteOptions w;
};

// What a run holds between its stages.
struct Run {
    region reg;
    region_fe reg_fe;
    FieldMasterD field;
    z::ambientFlow flow;
    SelfIlluminationParameters p;
};

// Reads the model, checks what is asked and selects the patches; false
// after printing why not, or throws Failure.
bool prepare(const Args& a, Run& run) {
    cliHost().beginStage("reading");
    if (!loadModel({a.in}, false, run.reg, run.reg_fe)) return false;
    checkWritable(a.out, a.w, run.reg, run.reg_fe);  // before the work, not after
    FieldMasterD& field = run.field;
    Region_to_fieldMaster(run.reg, run.reg_fe, field, run.flow);
    const int source = field.findFunction(a.field);
    if (source < 0 || field.scalar(source) == nullptr) {
        throw Failure{a.in + " has no field " + a.field + " (fields: " + scalarNames(field) + ")"};
    }
    if (!a.patches.empty()) {
        auto& selection = field.selection();
        for (int b : a.patches) {
            if (b >= field.blockCount()) {
                throw Failure{"--select-patches: no patch " + std::to_string(b) + " (the model has " +
                              std::to_string(field.blockCount()) + ", numbered from 0)"};
            }
            for (int n = 0; n < field.nodeCount(b); ++n) selection.at(b, n) = 1;
        }
    }

    run.p = selfIlluminationDefaults(a.field);
    run.p.ratio = a.ratio;
    run.p.checkVisibility = a.visibility;
    run.p.tolerance = a.tolerance;
    if (!a.name.empty()) run.p.newName = a.name;
    return true;
}

// Writes the model with the new field; false after printing why not.
bool write(const Args& a, Run& run, const SelfIlluminationResult& r) {
    if (!r) {
        std::cerr << (r.message.empty() ? "tundrel: self-illumination: nothing computed" : r.message) << '\n';
        return false;
    }
    fieldMaster_to_Region(run.field, run.flow, run.reg, run.reg_fe);
    cliHost().beginStage("writing");
    if (!saveModel(a.out, a.w, run.reg, run.reg_fe)) return false;
    cliHost().finishStages("tundrel self-illumination: ", settings().quiet);
    return true;
}

// One correction over the ranks of an MPI run: every rank reads the model
// and sums the received light of its share of the receivers; rank 0 adds
// the shares up, appends the field and writes. Every rank checks in after
// each stage, so that a failure anywhere ends them all; the exit status.
int acrossRanks(const Args& a, Ranks& mpi) {
    Run run;
    if (!mpi.step([&] { return prepare(a, run); })) return kFailure;
    cliHost().beginStage("computing");
    SelfIlluminationSums part;
    const bool computed = mpi.step([&] {
        part = selfIlluminationShare(run.field, a.field, run.p, {mpi.rank(), mpi.size()});
        if (!part.sums.empty()) return true;
        std::cerr << (part.message.empty() ? "tundrel: self-illumination: nothing computed" : part.message) << '\n';
        return false;
    });
    if (!computed) return kFailure;
    mpi.sumToRoot(part.sums);
    std::vector<std::int64_t> facts{part.facts.pairs, part.facts.segmentTests, part.facts.clusterTerms};
    mpi.sumToRoot(facts);
    part.facts.pairs = facts[0];
    part.facts.segmentTests = facts[1];
    part.facts.clusterTerms = facts[2];
    const bool written = mpi.step([&] {
        if (mpi.rank() != 0) return true;
        return write(a, run, applySelfIllumination(run.field, a.field, run.p, part.sums, part.facts));
    });
    return written ? 0 : kFailure;
}

}  // namespace

void addSelfIlluminationCommand(CLI::App& app, int& status) {
    auto a = std::make_shared<Args>();
    CLI::App* cmd = app.add_subcommand("self-illumination",
                                       "Remove the light a model reflects onto itself from a field, as a new field");
    cmd->add_option("in", a->in, "Model to read (" + geometryExtensions() + ")")->required()->check(geometryFile(false));
    cmd->add_option("out", a->out, "Model to write, with the new field")->required()->check(geometryFile(true));
    cmd->add_option("--field", a->field, "Name of the measured field")->required();
    cmd->add_option("--ratio", a->ratio, "Complete diffusion reflection ratio, 0 to 1")
        ->check(numberIn(0.0, 1.0, "a number from 0 to 1"))
        ->capture_default_str();
    cmd->add_flag("--visibility", a->visibility, "Test every pair of nodes for obstruction by the model");
    cmd->add_option("--tolerance", a->tolerance,
                    "0: exact, every pair; EPS > 0: hierarchical, for large models, error at most about EPS "
                    "of the largest correction")
        ->check(numberIn(0.0, 1.0, "a number from 0 to 1"))
        ->capture_default_str();
    cmd->add_option("--name", a->name, "Name of the new field (default FIELD_si), at most 255 characters")
        ->check(CLI::Validator(
            [](std::string& n) { return n.empty() || n.size() > 255 ? std::string("accepts 1 to 255 characters") : ""; },
            "NAME"));
    cmd->add_option("--select-patches", a->patches, "Only these patches take part: 0-based, comma-separated")
        ->delimiter(',')
        ->check(intIn(0, kAnyCount));
    addWriteOptions(*cmd, a->w);
    cmd->callback([a, &status] {
        Ranks& mpi = ranks();
        if (!mpi.several()) {
            Run run;
            if (!prepare(*a, run)) {
                status = kFailure;
                return;
            }
            // With --interactive the dialog is asked on the terminal, opening with these values.
            if (cliHost().interactive && !askSelfIlluminationParameters(run.field, run.p)) {
                std::cerr << "tundrel: self-illumination: cancelled\n";
                status = kFailure;
                return;
            }
            cliHost().beginStage("computing");
            const SelfIlluminationResult r = selfIlluminate(run.field, a->field, run.p);
            if (!write(*a, run, r)) status = kFailure;
            return;
        }
        if (cliHost().interactive) {
            error("--interactive asks on one terminal: run it in one process, without mpirun");
            status = kUsage;
            return;
        }
        status = acrossRanks(*a, mpi);
    });
}

}  // namespace tundrel::cli
