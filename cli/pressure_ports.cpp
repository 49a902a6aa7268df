// tundrel pressure-ports
#include <iostream>
#include <memory>
#include <optional>

#include "cli/cli.h"
#include "cli/host.h"

namespace tundrel::cli {

namespace {

struct PortsArgs {
    std::string in, out, markersFile, field, direction = "normal";
    // Typed into the dialog as given; the dialog checks them.
    std::optional<std::string> name, deflexion, order;
    bool transpose = false;
    WriteOptions w;
};

void run(const PortsArgs& a, int& status) {
    region reg;
    region_fe reg_fe;
    if (!loadModel({a.in}, a.transpose, reg, reg_fe)) {
        status = kFailure;
        return;
    }
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(reg, reg_fe, field, flow);

    // Both dialogs are answered from the flags; with --interactive they are
    // asked on the terminal, opening with the marker file and direction of
    // the flags.
    CliHost& h = cliHost();
    const bool normal = a.direction == "normal";
    if (h.interactive) {
        PressurePortsParameters& p = pressurePortsParameters();
        p.markersFile = a.markersFile;
        p.direction = normal;
    } else {
        ControlTexts typed{{PressurePortsDialog::kMarkersFile, a.markersFile}};
        if (a.deflexion) typed[PressurePortsDialog::kMaxDeflexion] = *a.deflexion;
        if (a.order) typed[PressurePortsDialog::kOrder] = *a.order;
        if (a.name) typed[PressurePortsDialog::kNewFieldName] = *a.name;
        h.answerOk(typed, kPressurePortsDialog);
        h.answerOk({{ActiveAxesDialog::kNormal, normal ? "1" : "0"}, {ActiveAxesDialog::kReverse, normal ? "0" : "1"}},
                   kActiveAxesDialog);
    }
    const std::size_t messagesBefore = h.messages.size();
    const int functionsBefore = field.functionCount();
    std::string fieldName = a.field;
    pressure_ports(field, fieldName);
    h.answers.clear();
    if (h.messages.size() != messagesBefore) {
        status = kFailure;
        return;
    }
    if (field.functionCount() == functionsBefore) {
        std::cerr << "tundrel: no field added\n";
        status = kFailure;
        return;
    }
    fieldMaster_to_Region(field, flow, reg, reg_fe);
    if (!saveModel(a.out, a.w, reg, reg_fe)) status = kFailure;
}

}  // namespace

void addPressurePortsCommand(CLI::App& app, int& status) {
    auto a = std::make_shared<PortsArgs>();
    CLI::App* cmd = app.add_subcommand("pressure-ports", "Build a field from pressure-port markers");
    cmd->add_option("IN", a->in, "Model to read (apt, fld, dat, wrl)")->required();
    cmd->add_option("OUT", a->out, "Model to write, with the new field")->required();
    cmd->add_option("--markers", a->markersFile, "Marker file (mrk, apm, mpt, inm)")->required();
    cmd->add_option("--field", a->field, "Name of the current field; must equal the markers' function name (empty)");
    cmd->add_option("--deflexion", a->deflexion, "Maximum distance of a marker from the surface [remembered: 0]");
    cmd->add_option("--order", a->order, "Order of the approximation, 0 to 2 [remembered: 0]");
    cmd->add_option("--direction", a->direction, "Projection of markers with two coordinates")
        ->check(CLI::IsMember({"normal", "reverse"}))
        ->capture_default_str();
    cmd->add_option("--name", a->name, "Name of the new field [FIELD_pp]");
    cmd->add_flag("--transpose", a->transpose, "Exchange the first and second grid directions on reading");
    addWriteOptions(*cmd, a->w);
    cmd->callback([a, &status] { run(*a, status); });
}

}  // namespace tundrel::cli
