// tundrel self-illumination
#include <iostream>
#include <optional>
#include <sstream>

#include "cli/cli.h"
#include "cli/host.h"

namespace tundrel::cli {

namespace {

// "0,2,5" -> {0, 2, 5}; nothing on a malformed list.
std::optional<std::vector<int>> patchList(const std::string& text) {
    std::vector<int> list;
    std::stringstream in(text);
    std::string item;
    while (std::getline(in, item, ',')) {
        std::size_t used = 0;
        int k = -1;
        try {
            k = std::stoi(item, &used);
        } catch (const std::exception&) {
            return std::nullopt;
        }
        if (used != item.size() || k < 0) return std::nullopt;
        list.push_back(k);
    }
    if (list.empty()) return std::nullopt;
    return list;
}

std::string scalarNames(const FieldMasterD& field) {
    std::string names;
    for (int i = 0; i < field.functionCount(); ++i)
        if (field.scalar(i) != nullptr) names += (names.empty() ? "" : ", ") + field.functionAt(i)->name();
    return names.empty() ? "none" : names;
}

}  // namespace

void addSelfIlluminationCommand(CLI::App& app, int& status) {
    struct Args {
        std::string in, out, field, name, patches;
        double ratio = 1.0;
        double tolerance = 0.0;
        bool visibility = false;
        WriteOptions w;
    };
    auto a = std::make_shared<Args>();
    CLI::App* cmd = app.add_subcommand("self-illumination",
                                       "Remove the light a model reflects onto itself from a field, as a new field");
    cmd->add_option("in", a->in, "Model to read (apt, fld, dat, wrl)")->required();
    cmd->add_option("out", a->out, "Model to write, with the new field")->required();
    cmd->add_option("--field", a->field, "Name of the measured field")->required();
    cmd->add_option("--ratio", a->ratio, "Complete diffusion reflection ratio, 0 to 1")->capture_default_str();
    cmd->add_flag("--visibility", a->visibility, "Test every pair of nodes for obstruction by the model");
    cmd->add_option("--tolerance", a->tolerance,
                    "0: exact, every pair; EPS > 0: hierarchical, for large models, error at most about EPS "
                    "of the largest correction (1e-3 is a good choice)")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    cmd->add_option("--name", a->name, "Name of the new field (default FIELD_si)");
    cmd->add_option("--select-patches", a->patches, "Only these patches take part: 0-based, comma-separated");
    addWriteOptions(*cmd, a->w);
    cmd->callback([a, &status] {
        region reg;
        region_fe reg_fe;
        if (!loadModel({a->in}, false, reg, reg_fe)) {
            status = kFailure;
            return;
        }
        FieldMasterD field;
        z::ambientFlow flow;
        Region_to_fieldMaster(reg, reg_fe, field, flow);
        const int source = field.findFunction(a->field);
        if (source < 0 || field.scalar(source) == nullptr) {
            std::cerr << "tundrel: " << a->in << " has no field " << a->field << " (fields: " << scalarNames(field)
                      << ")\n";
            status = kFailure;
            return;
        }
        if (!a->patches.empty()) {
            const auto list = patchList(a->patches);
            if (!list) {
                std::cerr << "tundrel: --select-patches: not a list of patch numbers: " << a->patches << '\n';
                status = kFailure;
                return;
            }
            auto& selection = field.selection();
            for (int b : *list) {
                if (b >= field.blockCount()) {
                    std::cerr << "tundrel: --select-patches: no patch " << b << " (the model has "
                              << field.blockCount() << ")\n";
                    status = kFailure;
                    return;
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
        const SelfIlluminationResult r = selfIlluminate(field, a->field, p);
        if (!r) {
            std::cerr << (r.message.empty() ? "tundrel: self-illumination: nothing computed" : r.message) << '\n';
            status = kFailure;
            return;
        }
        fieldMaster_to_Region(field, flow, reg, reg_fe);
        if (!saveModel(a->out, a->w, reg, reg_fe)) status = kFailure;
    });
}

}  // namespace tundrel::cli
