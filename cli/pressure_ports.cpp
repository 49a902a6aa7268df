// tundrel pressure-ports
#include <iostream>
#include <memory>
#include <optional>

#include "cli/cli.h"
#include "cli/host.h"

namespace tundrel::cli {

namespace {

struct PortsArgs {
    std::string in, out, field, direction = "normal";
    std::optional<std::string> name;
    PressurePortsParameters p;
    bool transpose = false;
    WriteOptions w;
};

void run(PortsArgs& a, int& status) {
    region reg;
    region_fe reg_fe;
    if (!loadModel({a.in}, a.transpose, reg, reg_fe)) {
        status = kFailure;
        return;
    }
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(reg, reg_fe, field, flow);

    PressurePortsParameters p = a.p;
    p.newName = a.name ? *a.name : a.field + "_pp";
    p.direction = a.direction == "normal";
    // With --interactive the dialogs are asked on the terminal, opening with
    // the values of the flags.
    if (cliHost().interactive) {
        std::optional<PressurePortsParameters> asked = askPressurePorts(field, p);
        if (!asked) {
            std::cerr << "tundrel: pressure-ports: cancelled\n";
            status = kFailure;
            return;
        }
        p = std::move(*asked);
    }
    const PressurePortsResult r = buildPressurePorts(field, a.field, p);
    if (!r) {
        std::cerr << r.message << '\n';
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
    cmd->add_option("--markers", a->p.markersFile, "Marker file (mrk, apm, mpt, inm)")->required();
    cmd->add_option("--field", a->field, "Name of the current field; must equal the markers' function name (empty)");
    cmd->add_option("--deflexion", a->p.maxDeflexion, "Maximum distance of a marker from the surface")
        ->capture_default_str();
    cmd->add_option("--order", a->p.order, "Order of the approximation, 0 to 2")->capture_default_str();
    cmd->add_option("--direction", a->direction, "Projection of markers with two coordinates")
        ->check(CLI::IsMember({"normal", "reverse"}))
        ->capture_default_str();
    cmd->add_option("--name", a->name, "Name of the new field [FIELD_pp]");
    cmd->add_flag("--transpose", a->transpose, "Exchange the first and second grid directions on reading");
    addWriteOptions(*cmd, a->w);
    cmd->callback([a, &status] { run(*a, status); });
}

}  // namespace tundrel::cli
