// tundrel self-illumination
#include <iostream>

#include "cli/cli.h"
#include "cli/host.h"

namespace tundrel::cli {

namespace {

std::string scalarNames(const FieldMasterD& field) {
    std::string names;
    for (int i = 0; i < field.functionCount(); ++i)
        if (field.scalar(i) != nullptr) names += (names.empty() ? "" : ", ") + field.functionAt(i)->name();
    return names.empty() ? "none" : names;
}

}  // namespace

void addSelfIlluminationCommand(CLI::App& app, int& status) {
    struct Args {
        std::string in, out, field, name;
        std::vector<int> patches;
        double ratio = 1.0;
        double tolerance = 0.0;
        bool visibility = false;
        WriteOptions w;
    };
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
        region reg;
        region_fe reg_fe;
        cliHost().beginStage("reading");
        if (!loadModel({a->in}, false, reg, reg_fe)) {
            status = kFailure;
            return;
        }
        checkWritable(a->out, a->w, reg, reg_fe);  // before the work, not after
        FieldMasterD field;
        z::ambientFlow flow;
        Region_to_fieldMaster(reg, reg_fe, field, flow);
        const int source = field.findFunction(a->field);
        if (source < 0 || field.scalar(source) == nullptr) {
            throw Failure{a->in + " has no field " + a->field + " (fields: " + scalarNames(field) + ")"};
        }
        if (!a->patches.empty()) {
            auto& selection = field.selection();
            for (int b : a->patches) {
                if (b >= field.blockCount()) {
                    throw Failure{"--select-patches: no patch " + std::to_string(b) + " (the model has " +
                                  std::to_string(field.blockCount()) + ", numbered from 0)"};
                }
                for (int n = 0; n < field.nodeCount(b); ++n) selection.at(b, n) = 1;
            }
        }

        SelfIlluminationParameters p = selfIlluminationDefaults(a->field);
        p.ratio = a->ratio;
        p.checkVisibility = a->visibility;
        p.tolerance = a->tolerance;
        if (!a->name.empty()) p.newName = a->name;
        // With --interactive the dialog is asked on the terminal, opening with these values.
        if (cliHost().interactive && !askSelfIlluminationParameters(field, p)) {
            std::cerr << "tundrel: self-illumination: cancelled\n";
            status = kFailure;
            return;
        }
        cliHost().beginStage("computing");
        const SelfIlluminationResult r = selfIlluminate(field, a->field, p);
        if (!r) {
            std::cerr << (r.message.empty() ? "tundrel: self-illumination: nothing computed" : r.message) << '\n';
            status = kFailure;
            return;
        }
        fieldMaster_to_Region(field, flow, reg, reg_fe);
        cliHost().beginStage("writing");
        if (!saveModel(a->out, a->w, reg, reg_fe)) status = kFailure;
        cliHost().finishStages("tundrel self-illumination: ", settings().quiet);
    });
}

}  // namespace tundrel::cli
