#include <cctype>

#include "api/formats/formats.h"
#include "api/detail/format_readers.h"
#include "api/detail/text.h"
#include "api/host.h"
#include "api/detail/geometry_rules.h"

std::string file_extension(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot + 1 >= name.size()) return {};
    return lowered(name.substr(dot + 1));
}

std::shared_ptr<StructPatch> transpose_patch(const StructPatch& p) {
    const int NI = p.I, NJ = p.J, NK = p.K;
    auto t = std::make_shared<StructPatch>(NJ, NI, NK);
    t->name = p.name;
    for (const auto& v : p.variables) {
        if (!v) continue;
        NodeVariable& nv = t->addVariable(v->name);
        const std::size_t layer = static_cast<std::size_t>(NI) * static_cast<std::size_t>(NJ);
        for (int k = 0; k < NK; ++k)
            for (int j = 0; j < NJ; ++j)
                for (int i = 0; i < NI; ++i)
                    nv.values[static_cast<std::size_t>(j) + static_cast<std::size_t>(NJ) * i + layer * k] =
                        v->values[static_cast<std::size_t>(i) + static_cast<std::size_t>(NI) * j + layer * k];
    }
    return t;
}

namespace {

using namespace tundrel::formats;

constexpr std::string_view kApt[] = {"apt"};
constexpr std::string_view kFld[] = {"fld"};
constexpr std::string_view kDat[] = {"dat"};
constexpr std::string_view kWrl[] = {"wrl"};
constexpr std::string_view kVtk[] = {"vtm", "vts", "vtp"};

// The formats in the order the dispatch tests them. Each entry adapts the
// format's own reader and writer signature.
const tundrel::GeometryFormat kFormats[] = {
    {"APT", kApt, true, false, [](std::string_view t, region& r, region_fe&) { return read_apt_text(t, r); },
     kAptCannotOpen, write_apt, nullptr, nullptr, {.fields = false, .title = false, .flow = false}},
    {"FLD", kFld, true, false, [](std::string_view t, region& r, region_fe&) { return read_fld_text(t, r); },
     kFldCannotOpen,
     [](const std::string& f, region& r, region_fe&, int first, int last, int precision, bool scientific) {
         return write_fld(f, r, first, last, precision, scientific);
     },
     nullptr, nullptr, {}},
    {"DAT", kDat, true, true, read_dat_text, kDatCannotOpen, write_dat, nullptr, nullptr,
     {.flowNeedsMach = true, .noValue = false}},
    {"VRML", kWrl, false, true, read_vrml_text, kVrmlCannotOpen, write_vrml, nullptr, nullptr,
     {.fields = false, .flow = false}},
    {"VTK", kVtk, true, true, read_vtk_text, kVtkCannotOpen, write_vtk, read_vtk_file, write_vtk_binary,
     {.mixedVariables = true}},
};

}  // namespace

namespace tundrel {

std::span<const GeometryFormat> geometryFormats() noexcept { return kFormats; }

const GeometryFormat* findGeometryFormat(std::string_view extension) noexcept {
    for (const GeometryFormat& f : kFormats)
        for (std::string_view e : f.extensions)
            if (extension == e) return &f;
    return nullptr;
}

bool readGeometryFile(const GeometryFormat& format, const std::string& file, region& reg, region_fe& reg_fe) {
    if (format.readFile != nullptr) return format.readFile(file, reg, reg_fe);
    std::string text;
    if (!text::loadFile(file, text)) {
        showMessage(format.cannotOpen);
        return false;
    }
    return format.read(text, reg, reg_fe);
}

}  // namespace tundrel

bool import_data(const std::string& file, bool transpose, region& reg, region_fe& reg_fe) {
    const tundrel::GeometryFormat* format = tundrel::findGeometryFormat(file_extension(file));
    if (format == nullptr) return false;
    const bool ok = tundrel::readGeometryFile(*format, file, reg, reg_fe);
    if (ok && transpose) {
        for (int k = 0; k < reg.patchCount(); ++k)
            if (reg.patches.exists(k)) reg.patches.set(k, transpose_patch(reg.patch(k)));
    }
    return ok;
}

namespace tundrel {

bool exportGeometry(const std::string& file, const GeometryWriteOptions& options, region& reg, region_fe& reg_fe) {
    const std::string ext = file_extension(file);
    int count = reg.patchCount();
    if (ext != "fld") count += reg_fe.patchCount();
    const GeometryFormat* format = findGeometryFormat(ext);

    auto pass = [&](const std::string& name, int first, int last) {
        if (format == nullptr) return false;
        if (options.binary && format->writeBinary != nullptr)
            return format->writeBinary(name, reg, reg_fe, first, last);
        return format->write(name, reg, reg_fe, first, last, options.precision, options.scientific);
    };
    if (!options.split) return pass(file, 0, count - 1);

    bool result = true;
    const std::size_t dot = file.rfind('.');
    for (int i = 0; i < count; ++i) {
        const std::size_t cut = dot == std::string::npos ? file.size() : dot;
        const std::string name = file.substr(0, cut) + "_" + std::to_string(i + 1) + file.substr(cut);
        result = pass(name, i, i);
    }
    return result;
}

}  // namespace tundrel

bool export_data(const std::string& file, int precision, bool split, bool scientific, region& reg,
                 region_fe& reg_fe) {
    return tundrel::exportGeometry(file, {precision, scientific, split, false}, reg, reg_fe);
}
