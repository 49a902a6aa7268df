// tundrel convert / tundrel info
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "cli/cli.h"
#include "cli/json.h"

namespace tundrel::cli {

void addWriteOptions(CLI::App& cmd, WriteOptions& w) {
    cmd.add_option("--precision", w.precision, "Digits written for every number")->capture_default_str();
    cmd.add_flag("--scientific", w.scientific, "Scientific notation instead of fixed");
    cmd.add_flag("--split", w.split, "One file per patch: NAME_1.EXT, NAME_2.EXT, ...");
    cmd.add_flag("--binary", w.binary, "Binary data where the format has them (VTK: appended raw)");
}

namespace {

// "apt, fld, dat, wrl": the extensions of the format table.
std::string geometryExtensions() {
    std::string list;
    for (const GeometryFormat& f : geometryFormats())
        for (std::string_view e : f.extensions) list += (list.empty() ? "" : ", ") + std::string(e);
    return list;
}

}  // namespace

bool loadModel(const std::vector<std::string>& files, bool transpose, region& reg, region_fe& reg_fe) {
    for (const std::string& f : files) {
        if (!import_data(f, transpose, reg, reg_fe)) {
            if (tundrel::findGeometryFormat(file_extension(f)) == nullptr)
                std::cerr << "tundrel: " << f << ": unknown file format (" << geometryExtensions() << ")\n";
            return false;
        }
    }
    return true;
}

bool saveModel(const std::string& file, const WriteOptions& w, region& reg, region_fe& reg_fe) {
    const GeometryFormat* format = findGeometryFormat(file_extension(file));
    if (w.binary && format != nullptr && format->writeBinary == nullptr)
        std::cerr << "tundrel: warning: " << file << ": " << format->name << " has no binary form, written as text\n";
    return exportGeometry(file, {w.precision, w.scientific, w.split, w.binary}, reg, reg_fe);
}

namespace {



template <class Patch>
std::vector<std::string> variableNames(const Patch& p) {
    std::vector<std::string> names;
    for (const auto& v : p.variables) names.push_back(v ? v->name : std::string());
    return names;
}

std::string jsonNames(const std::vector<std::string>& names) {
    std::string s = "[";
    for (std::size_t i = 0; i < names.size(); ++i) s += (i ? ", " : "") + jsonString(names[i]);
    return s + "]";
}

void printInfo(const region& reg, const region_fe& reg_fe, bool json) {
    // The title and flow conditions come from the region, or from the face
    // mesh when the region is empty.
    const bool structured = reg.patchCount() > 0 || reg_fe.patchCount() == 0;
    const std::string& title = structured ? reg.name : reg_fe.name;
    const double mach = structured ? reg.Mach : reg_fe.Mach;
    const double alpha = structured ? reg.alpha : reg_fe.alpha;
    const double beta = structured ? reg.beta : reg_fe.beta;
    std::ostream& o = std::cout;
    if (json) {
        o << "{\"title\": " << jsonString(title) << ", \"mach\": " << jsonNumber(mach)
          << ", \"alpha\": " << jsonNumber(alpha) << ", \"beta\": " << jsonNumber(beta) << ", \"patches\": [";
        for (int k = 0; k < reg.patchCount(); ++k) {
            const StructPatch& p = reg.patch(k);
            o << (k ? ", " : "") << "{\"name\": " << jsonString(p.name) << ", \"I\": " << p.I << ", \"J\": " << p.J
              << ", \"K\": " << p.K << ", \"variables\": " << jsonNames(variableNames(p)) << "}";
        }
        o << "], \"face_patches\": [";
        for (int k = 0; k < reg_fe.patchCount(); ++k) {
            const FacePatch& p = reg_fe.patch(k);
            o << (k ? ", " : "") << "{\"name\": " << jsonString(p.name) << ", \"nodes\": " << p.nodes
              << ", \"faces\": " << p.faces << ", \"variables\": " << jsonNames(variableNames(p)) << "}";
        }
        o << "]}\n";
        return;
    }
    o << "title: " << title << "\nMach: " << mach << "  alpha: " << alpha << "  beta: " << beta << '\n';
    o << "structured patches: " << reg.patchCount() << '\n';
    for (int k = 0; k < reg.patchCount(); ++k) {
        const StructPatch& p = reg.patch(k);
        o << "  [" << k << "] " << (p.name.empty() ? "(no name)" : p.name) << "  I=" << p.I << " J=" << p.J
          << " K=" << p.K << "  variables:";
        for (const auto& n : variableNames(p)) o << ' ' << n;
        o << '\n';
    }
    o << "face patches: " << reg_fe.patchCount() << '\n';
    for (int k = 0; k < reg_fe.patchCount(); ++k) {
        const FacePatch& p = reg_fe.patch(k);
        o << "  [" << k << "] " << (p.name.empty() ? "(no name)" : p.name) << "  nodes=" << p.nodes
          << " faces=" << p.faces << "  variables:";
        for (const auto& n : variableNames(p)) o << ' ' << n;
        o << '\n';
    }
}

}  // namespace

void addModelCommands(CLI::App& app, int& status) {
    struct ConvertArgs {
        std::vector<std::string> files;
        bool transpose = false;
        WriteOptions w;
    };
    auto conv = std::make_shared<ConvertArgs>();
    CLI::App* convert =
        app.add_subcommand("convert", "Read models (" + geometryExtensions() + ") and write them as one file");
    convert->add_option("files", conv->files, "IN... OUT")->required()->expected(2, -1);
    convert->add_flag("--transpose", conv->transpose, "Exchange the first and second grid directions on reading");
    addWriteOptions(*convert, conv->w);
    convert->callback([conv, &status] {
        std::vector<std::string> in(conv->files.begin(), conv->files.end() - 1);
        const std::string& out = conv->files.back();
        if (tundrel::findGeometryFormat(file_extension(out)) == nullptr) {  // before any reading
            std::cerr << "tundrel: " << out << ": unknown file format (" << geometryExtensions() << ")\n";
            status = kFailure;
            return;
        }
        region reg;
        region_fe reg_fe;
        if (!loadModel(in, conv->transpose, reg, reg_fe) || !saveModel(conv->files.back(), conv->w, reg, reg_fe))
            status = kFailure;
    });

    struct InfoArgs {
        std::vector<std::string> files;
        bool json = false;
        bool transpose = false;
    };
    auto inf = std::make_shared<InfoArgs>();
    CLI::App* info = app.add_subcommand("info", "Print the title, flow conditions and patches of models");
    info->add_option("files", inf->files, "FILE...")->required()->expected(1, -1);
    info->add_flag("--json", inf->json, "One JSON object");
    info->add_flag("--transpose", inf->transpose, "Exchange the first and second grid directions on reading");
    info->callback([inf, &status] {
        region reg;
        region_fe reg_fe;
        if (!loadModel(inf->files, inf->transpose, reg, reg_fe)) {
            status = kFailure;
            return;
        }
        printInfo(reg, reg_fe, inf->json);
    });
}

}  // namespace tundrel::cli
