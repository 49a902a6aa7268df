// tundrel convert / tundrel info
#include <cmath>
#include <iomanip>
#include <iostream>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>

#include "cli/cli.h"

namespace tundrel::cli {

namespace {

using Json = nlohmann::ordered_json;

// A number, or null for NaN and infinities.
Json number(double v) { return std::isfinite(v) ? Json(v) : Json(nullptr); }

// Minimum, maximum and mean over the nodes that have a value, and how many
// have none (below the no-value threshold).
struct Statistics {
    double min = std::numeric_limits<double>::infinity();
    double max = -std::numeric_limits<double>::infinity();
    double sum = 0.0;
    long long values = 0, noValue = 0;

    void add(const NodeVariable& v, std::size_t nodes) {
        for (std::size_t n = 0; n < std::min(nodes, v.values.size()); ++n) {
            const double d = v.values[n];
            if (d < kNoValueBelow) {
                ++noValue;
                continue;
            }
            min = std::min(min, d);
            max = std::max(max, d);
            sum += d;
            ++values;
        }
    }
    double mean() const { return values > 0 ? sum / static_cast<double>(values) : std::nan(""); }
};

}  // namespace

nlohmann::ordered_json describeModel(const std::string& file, const region& reg, const region_fe& reg_fe) {
    // The title and flow conditions come from the region, or from the face
    // mesh when the region is empty.
    const bool structured = reg.patchCount() > 0 || reg_fe.patchCount() == 0;
    const GeometryFormat* format = findGeometryFormat(file_extension(file));
    Json j;
    j["file"] = file;
    j["format"] = format ? std::string(format->name) : std::string();
    j["title"] = structured ? reg.name : reg_fe.name;
    j["mach"] = number(structured ? reg.Mach : reg_fe.Mach);
    j["alpha"] = number(structured ? reg.alpha : reg_fe.alpha);
    j["beta"] = number(structured ? reg.beta : reg_fe.beta);
    long long nodes = 0, faces = 0, cells = 0;
    std::vector<std::string> order;  // variable names in the order first met
    std::map<std::string, Statistics> stats;
    auto gather = [&](const PatchBase& p, std::size_t count, Json& out) {
        Json names = Json::array();
        for (int k = 0; k < p.variableCount(); ++k) {
            const NodeVariable& v = p.variable(k);
            names.push_back(v.name);
            if (!stats.count(v.name)) order.push_back(v.name);
            stats[v.name].add(v, count);
        }
        out["variables"] = names;
    };
    j["patches"] = Json::array();
    for (int k = 0; k < reg.patchCount(); ++k) {
        const StructPatch& p = reg.patch(k);
        Json o{{"name", p.name}, {"I", p.I}, {"J", p.J}, {"K", p.K}};
        gather(p, static_cast<std::size_t>(std::max(p.N, 0)), o);
        nodes += std::max(p.N, 0);
        cells += static_cast<long long>(std::max(p.I - 1, 0)) * std::max(p.J - 1, 0) * std::max(p.K, 1);
        j["patches"].push_back(o);
    }
    j["face_patches"] = Json::array();
    for (int k = 0; k < reg_fe.patchCount(); ++k) {
        const FacePatch& p = reg_fe.patch(k);
        Json o{{"name", p.name}, {"nodes", p.nodes}, {"faces", p.faces}};
        gather(p, static_cast<std::size_t>(std::max(p.nodes, 0)), o);
        nodes += std::max(p.nodes, 0);
        faces += std::max(p.faces, 0);
        j["face_patches"].push_back(o);
    }
    j["nodes"] = nodes;
    j["faces"] = faces;
    j["cells"] = cells;
    Json fields = Json::array();
    for (const std::string& name : order) {
        const Statistics& s = stats[name];
        fields.push_back({{"name", name},
                          {"min", number(s.min)},
                          {"max", number(s.max)},
                          {"mean", number(s.mean())},
                          {"no_value", s.noValue}});
    }
    j["fields"] = fields;
    return j;
}

namespace {

std::string text(const Json& v) {
    if (v.is_null()) return "-";
    if (v.is_string()) return v.get<std::string>();
    std::ostringstream o;
    o << std::setprecision(6) << v.get<double>();
    return o.str();
}

void printText(const Json& j) {
    std::ostream& o = std::cout;
    o << "file: " << j["file"].get<std::string>() << " (" << j["format"].get<std::string>() << ")\n"
      << "title: " << j["title"].get<std::string>() << "\nMach: " << text(j["mach"]) << "  alpha: " << text(j["alpha"])
      << "  beta: " << text(j["beta"]) << '\n'
      << "nodes: " << j["nodes"] << "  faces: " << j["faces"] << "  cells: " << j["cells"] << '\n';
    auto patchLine = [&](std::size_t k, const Json& p, const std::string& sizes) {
        const std::string name = p["name"].get<std::string>();
        o << "  [" << k << "] " << (name.empty() ? "(no name)" : name) << "  " << sizes << "  variables:";
        for (const Json& n : p["variables"]) o << ' ' << n.get<std::string>();
        o << '\n';
    };
    o << "structured patches: " << j["patches"].size() << '\n';
    for (std::size_t k = 0; k < j["patches"].size(); ++k) {
        const Json& p = j["patches"][k];
        patchLine(k, p, "I=" + p["I"].dump() + " J=" + p["J"].dump() + " K=" + p["K"].dump());
    }
    o << "face patches: " << j["face_patches"].size() << '\n';
    for (std::size_t k = 0; k < j["face_patches"].size(); ++k) {
        const Json& p = j["face_patches"][k];
        patchLine(k, p, "nodes=" + p["nodes"].dump() + " faces=" + p["faces"].dump());
    }
    o << "fields: name min max mean no-value\n";
    for (const Json& f : j["fields"])
        o << "  " << f["name"].get<std::string>() << ' ' << text(f["min"]) << ' ' << text(f["max"]) << ' '
          << text(f["mean"]) << ' ' << f["no_value"] << '\n';
}

}  // namespace

void addModelCommands(CLI::App& app, int& status) {
    struct ConvertArgs {
        std::vector<std::string> files;  // IN... OUT
        bool transpose = false;
        WriteOptions w;
    };
    auto conv = std::make_shared<ConvertArgs>();
    CLI::App* convert =
        app.add_subcommand("convert", "Read models (" + geometryExtensions() + ") and write them as one file");
    convert->add_option("files", conv->files, "IN... OUT: the models to read, then the model to write")
        ->required()
        ->expected(2, -1)
        ->check(geometryFile(false));
    convert->add_flag("--transpose", conv->transpose, "Exchange the first and second grid directions on reading");
    addWriteOptions(*convert, conv->w);
    convert->callback([conv, &status] {
        region reg;
        region_fe reg_fe;
        const std::vector<std::string> in(conv->files.begin(), conv->files.end() - 1);
        if (!loadModel(in, conv->transpose, reg, reg_fe) || !saveModel(conv->files.back(), conv->w, reg, reg_fe))
            status = kFailure;
    });

    struct InfoArgs {
        std::vector<std::string> files;
        bool json = false;
        bool transpose = false;
    };
    auto inf = std::make_shared<InfoArgs>();
    CLI::App* info = app.add_subcommand(
        "info", "Print, per file, the title, flow conditions, patches, node and face counts and field statistics");
    info->add_option("files", inf->files, "FILE...")->required()->check(geometryFile(false));
    info->add_flag("--json", inf->json, "JSON: an object for one file, an array of them for several");
    info->add_flag("--transpose", inf->transpose, "Exchange the first and second grid directions on reading");
    info->callback([inf, &status] {
        Json all = Json::array();
        for (const std::string& f : inf->files) {
            region reg;
            region_fe reg_fe;
            if (!loadModel({f}, inf->transpose, reg, reg_fe)) {
                status = kFailure;
                continue;
            }
            all.push_back(describeModel(f, reg, reg_fe));
        }
        if (inf->json) {
            std::cout << (inf->files.size() == 1 && all.size() == 1 ? all[0] : all).dump() << '\n';
            return;
        }
        for (std::size_t k = 0; k < all.size(); ++k) {
            if (k > 0) std::cout << '\n';
            printText(all[k]);
        }
    });
}

}  // namespace tundrel::cli
