// tundrel pressure-ports
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

#include "cli/cli.h"
#include "cli/host.h"

namespace tundrel::cli {

namespace {

struct PortsArgs {
    std::string in, out, field, direction = "normal", report;
    std::optional<std::string> name;
    PressurePortsParameters p;
    bool transpose = false, crossValidate = false;
    WriteOptions w;
};

std::string cell(double v, int digits = 15) {
    if (!std::isfinite(v)) return {};
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.*g", digits, v);
    return buf;
}

// One line per marker, with a header; the leave-one-out columns with
// `crossValidated`.
bool writeReport(const std::string& file, const std::vector<PortRecord>& ports, bool crossValidated) {
    const SafeWriteResult r = writeFileSafely(file, [&](const std::string& temporary) {
        std::ofstream out(temporary, std::ios::trunc);
        out << "number,x,y,z,projected_x,projected_y,projected_z,distance,use,value,field_value,difference"
            << (crossValidated ? ",predicted,prediction_error" : "") << '\n';
        for (const PortRecord& p : ports) {
            out << p.number << ',' << cell(p.x) << ',' << cell(p.y) << ',' << cell(p.z) << ',' << cell(p.px) << ','
                << cell(p.py) << ',' << cell(p.pz) << ',' << cell(p.distance) << ',' << portUseName(p.use) << ','
                << cell(p.value) << ',' << cell(p.fieldValue) << ',' << cell(p.fieldValue - p.value);
            if (crossValidated) out << ',' << cell(p.predicted) << ',' << cell(p.predictionError);
            out << '\n';
        }
        out.close();
        return !out.fail();
    });
    if (!r) error("--report: " + r.message);
    return r.ok;
}

// "12 of 14 ports used (1 inactive, 1 beyond deflexion); at the ports: rms
// difference 0.001, largest 0.004 (port 7)[; left out in turn: rms 0.02]"
std::string summary(const std::vector<PortRecord>& ports, bool crossValidated) {
    int used = 0;
    std::map<std::string, int> left;
    double sum2 = 0, largest = -1, cvSum2 = 0;
    int largestPort = 0, predicted = 0;
    for (const PortRecord& p : ports) {
        if (p.use != PortUse::used) {
            ++left[portUseName(p.use)];
            continue;
        }
        ++used;
        const double d = std::abs(p.fieldValue - p.value);
        sum2 += d * d;
        if (d > largest) largest = d, largestPort = p.number;
        if (std::isfinite(p.predictionError)) cvSum2 += p.predictionError * p.predictionError, ++predicted;
    }
    std::string s = std::to_string(used) + " of " + std::to_string(ports.size()) + " ports used";
    std::string why;
    for (const auto& [reason, n] : left) why += (why.empty() ? "" : ", ") + std::to_string(n) + " " + reason;
    if (!why.empty()) s += " (" + why + ")";
    if (used > 0)
        s += "; at the ports: rms difference " + cell(std::sqrt(sum2 / used), 3) + ", largest " + cell(largest, 3) +
             " (port " + std::to_string(largestPort) + ")";
    if (crossValidated)
        s += predicted > 0 ? "; each left out in turn: rms error " + cell(std::sqrt(cvSum2 / predicted), 3) + " over " +
                                 std::to_string(predicted) + " ports"
                           : "; too few ports to leave one out";
    return s;
}

void run(PortsArgs& a, int& status) {
    // The marker file is read by the library only after the model: a file
    // that cannot be opened is refused first.
    readMarkers(a.p.markersFile, [] {});
    region reg;
    region_fe reg_fe;
    cliHost().beginStage("reading");
    if (!loadModel({a.in}, a.transpose, reg, reg_fe)) {
        status = kFailure;
        return;
    }
    checkWritable(a.out, a.w, reg, reg_fe);
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(reg, reg_fe, field, flow);

    PressurePortsParameters p = a.p;
    p.newName = a.name ? *a.name : a.field + "_pp";
    p.direction = a.direction == "normal";
    PressurePortsResult r;
    for (;;) {
        // With --interactive the dialogs are asked on the terminal, opening
        // with the values of the flags; a refusal shows its message and asks
        // again, as the dialog would.
        PressurePortsParameters run = p;
        if (cliHost().interactive) {
            std::optional<PressurePortsParameters> asked = askPressurePorts(field, p);
            if (!asked) throw Failure{"cancelled"};
            run = std::move(*asked);
        }
        cliHost().beginStage("computing");
        readMarkers(run.markersFile, [&] { r = buildPressurePorts(field, a.field, run); });
        if (r || !cliHost().interactive) break;
        std::cerr << r.message << '\n';
    }
    if (!r) {
        std::cerr << r.message << '\n';
        int missing = 0;
        for (const PortRecord& port : r.facts.ports) missing += port.use == PortUse::noValue;
        if (missing > 0) error(std::to_string(missing) + " ports within the deflexion have no value");
        status = kFailure;
        return;
    }
    if (a.crossValidate) {
        cliHost().beginStage("leaving each port out");
        crossValidatePorts(r.facts.ports, p.order);
    }
    fieldMaster_to_Region(field, flow, reg, reg_fe);
    cliHost().beginStage("writing");
    if (!saveModel(a.out, a.w, reg, reg_fe)) status = kFailure;
    else if (!a.report.empty() && !writeReport(a.report, r.facts.ports, a.crossValidate)) status = kFailure;
    if (!settings().quiet) std::cerr << "tundrel pressure-ports: " << summary(r.facts.ports, a.crossValidate) << '\n';
    cliHost().finishStages("tundrel pressure-ports: ", settings().quiet);
}

}  // namespace

void addPressurePortsCommand(CLI::App& app, int& status) {
    auto a = std::make_shared<PortsArgs>();
    CLI::App* cmd = app.add_subcommand("pressure-ports", "Build a field from pressure-port markers");
    cmd->add_option("IN", a->in, "Model to read (" + geometryExtensions() + ")")->required()->check(geometryFile(false));
    cmd->add_option("OUT", a->out, "Model to write, with the new field")->required()->check(geometryFile(true));
    cmd->add_option("--markers", a->p.markersFile, "Marker file (mrk, apm, mpt, inm)")->required()->check(markerFile());
    cmd->add_option("--field", a->field, "Name of the current field; must equal the markers' function name (empty)");
    cmd->add_option("--deflexion", a->p.maxDeflexion,
                    "Farthest a marker may lie from the surface and still be used, above 0")
        ->required()
        ->check(positiveNumber());
    cmd->add_option("--order", a->p.order, "Order of the approximation, 0 to 2")
        ->check(intIn(0, 2))
        ->capture_default_str();
    cmd->add_option("--direction", a->direction, "Projection of markers with two coordinates")
        ->check(CLI::IsMember({"normal", "reverse"}, CLI::ignore_case))
        ->capture_default_str();
    cmd->add_option("--name", a->name, "Name of the new field [FIELD_pp], at most 255 characters")
        ->check(CLI::Validator(
            [](std::string& n) { return n.empty() || n.size() > 255 ? std::string("accepts 1 to 255 characters") : ""; },
            "NAME"));
    cmd->add_option("--report", a->report, "CSV file with a line per marker: projection, distance, use, values")
        ->check(CLI::Validator(
            [](std::string& f) { return file_extension(f) == "csv" ? std::string() : f + ": accepts a .csv file"; },
            "CSV"));
    cmd->add_flag("--cross-validate", a->crossValidate,
                  "Predict each used port from the others (one approximation per port) and add it to the report");
    cmd->add_flag("--transpose", a->transpose, "Exchange the first and second grid directions on reading");
    addWriteOptions(*cmd, a->w);
    cmd->callback([a, &status] { run(*a, status); });
}

}  // namespace tundrel::cli
