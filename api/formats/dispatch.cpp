#include <cctype>

#include "api/formats/formats.h"

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

using Reader = bool (*)(const std::string&, region&, region_fe&);
using Writer = bool (*)(const std::string&, region&, region_fe&, int, int, int, bool);

struct Format {
    const char* extension;
    Reader read;
    Writer write;
};

// The formats in the order the dispatch tests them. Each entry adapts the
// format's own reader and writer signature.
const Format kFormats[] = {
    {"apt", [](const std::string& f, region& r, region_fe&) { return read_apt(f, r); }, write_apt},
    {"fld", [](const std::string& f, region& r, region_fe&) { return read_fld(f, r); },
     [](const std::string& f, region& r, region_fe&, int first, int last, int precision, bool scientific) {
         return write_fld(f, r, first, last, precision, scientific);
     }},
    {"dat", read_dat, write_dat},
    {"wrl", read_vrml, write_vrml},
};

const Format* findFormat(const std::string& ext) {
    for (const Format& f : kFormats)
        if (ext == f.extension) return &f;
    return nullptr;
}

}  // namespace

bool import_data(const std::string& file, bool transpose, region& reg, region_fe& reg_fe) {
    const Format* format = findFormat(file_extension(file));
    if (format == nullptr) return false;
    const bool ok = format->read(file, reg, reg_fe);
    if (ok && transpose) {
        for (int k = 0; k < reg.patchCount(); ++k)
            if (reg.patches.exists(k)) reg.patches.set(k, transpose_patch(reg.patch(k)));
    }
    return ok;
}

bool export_data(const std::string& file, int precision, bool split, bool scientific, region& reg,
                 region_fe& reg_fe) {
    const std::string ext = file_extension(file);
    int count = reg.patchCount();
    if (ext != "fld") count += reg_fe.patchCount();
    const Format* format = findFormat(ext);

    auto pass = [&](const std::string& name, int first, int last) {
        return format != nullptr && format->write(name, reg, reg_fe, first, last, precision, scientific);
    };
    if (!split) return pass(file, 0, count - 1);

    bool result = true;
    const std::size_t dot = file.rfind('.');
    for (int i = 0; i < count; ++i) {
        const std::size_t cut = dot == std::string::npos ? file.size() : dot;
        const std::string name = file.substr(0, cut) + "_" + std::to_string(i + 1) + file.substr(cut);
        result = pass(name, i, i);
    }
    return result;
}
