// Shared pieces of the commands: option checks, reading and writing models
// with messages that name the file and the reason, warnings about what a
// format loses, and the memory check.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "api/formats/safe_write.h"
#include "cli/cli.h"
#include "cli/host.h"

namespace tundrel::cli {

RunSettings& settings() {
    static RunSettings s;
    return s;
}

namespace {

std::string prefix() {
    const std::string& c = settings().command;
    return c.empty() ? "tundrel: " : "tundrel " + c + ": ";
}

std::string joinedNames(const std::vector<std::string>& names) {
    std::string s;
    for (const std::string& n : names) s += (s.empty() ? "" : ", ") + n;
    return s;
}

std::optional<double> parseNumber(const std::string& text) {
    try {
        std::size_t used = 0;
        const double v = std::stod(text, &used);
        if (used == text.size() && std::isfinite(v)) return v;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

std::string markerExtensions() {
    std::string list;
    for (const MarkerFormat& f : markerFormats()) list += (list.empty() ? "" : ", ") + std::string(f.extension);
    return list;
}

}  // namespace

void warn(const std::string& text) {
    if (settings().warnings != nullptr) settings().warnings->push_back(text);
    if (settings().quiet) return;
    cliHost().clearLine();
    std::cerr << prefix() << "warning: " << text << '\n';
}

void error(const std::string& text) {
    cliHost().clearLine();
    std::cerr << prefix() << text << '\n';
}

std::string geometryExtensions() {
    std::string list;
    for (const GeometryFormat& f : geometryFormats())
        for (std::string_view e : f.extensions) list += (list.empty() ? "" : ", ") + std::string(e);
    return list;
}

CLI::Validator geometryFile(bool toWrite) {
    return CLI::Validator(
        [toWrite](std::string& name) -> std::string {
            const GeometryFormat* f = findGeometryFormat(file_extension(name));
            if (f == nullptr) return name + ": not a model file; accepts " + geometryExtensions();
            if (!toWrite && f->read == nullptr) return name + ": " + std::string(f->name) + " files cannot be read";
            if (toWrite && f->write == nullptr) return name + ": " + std::string(f->name) + " files cannot be written";
            return {};
        },
        "MODEL");
}

CLI::Validator markerFile() {
    return CLI::Validator(
        [](std::string& name) -> std::string {
            if (findMarkerFormat(markerFileExtension(name)) != nullptr) return {};
            return name + ": not a marker file; accepts " + markerExtensions();
        },
        "MARKERS");
}

CLI::Validator numberIn(double lo, double hi, const std::string& what) {
    return CLI::Validator(
        [lo, hi, what](std::string& text) -> std::string {
            const auto v = parseNumber(text);
            if (!v || *v < lo || *v > hi) return "accepts " + what + ", not " + text;
            return {};
        },
        what);
}

std::vector<std::string> splitList(const std::string& text) {
    std::vector<std::string> items;
    std::stringstream in(text);
    std::string item;
    while (std::getline(in, item, ',')) items.push_back(item);
    if (!text.empty() && text.back() == ',') items.emplace_back();
    return items;
}

std::optional<std::pair<int, int>> pictureSize(const std::string& text) {
    const std::size_t x = text.find_first_of("xX");
    if (x == std::string::npos) return std::nullopt;
    const auto w = parseNumber(text.substr(0, x)), h = parseNumber(text.substr(x + 1));
    if (!w || !h || *w != std::floor(*w) || *h != std::floor(*h) || *w < 16 || *h < 16 || *w > 8192 || *h > 8192)
        return std::nullopt;
    return std::pair{static_cast<int>(*w), static_cast<int>(*h)};
}

CLI::Validator positiveNumber() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            const auto v = parseNumber(text);
            if (!v || *v <= 0) return "accepts a number above 0, not " + text;
            return {};
        },
        "> 0");
}

CLI::Validator intIn(long long lo, long long hi) {
    return CLI::Validator(
        [lo, hi](std::string& text) -> std::string {
            long long v = 0;
            std::istringstream in(text);
            if (!(in >> v) || !in.eof() || v < lo || v > hi)
                return "accepts a whole number " +
                       (hi >= kAnyCount ? std::to_string(lo) + " or above"
                                        : "from " + std::to_string(lo) + " to " + std::to_string(hi)) +
                       ", not " + text;
            return {};
        },
        hi >= kAnyCount ? ">= " + std::to_string(lo) : std::to_string(lo) + ".." + std::to_string(hi));
}

void addWriteOptions(CLI::App& cmd, WriteOptions& w) {
    cmd.add_option("--precision", w.precision, "Digits written for every number, 1 to 17")
        ->check(intIn(1, 17))
        ->capture_default_str();
    cmd.add_flag("--scientific", w.scientific, "Scientific notation instead of fixed");
    cmd.add_flag("--split", w.split, "One file per patch: NAME_1.EXT, NAME_2.EXT, ...");
    cmd.add_flag("--binary", w.binary, "Binary data where the format has them (VTK: appended raw)");
}

namespace {

// Messages the library shows while `run` runs, held back instead of printed.
template <class Run>
std::vector<std::string> heldMessages(Run&& run, bool& ok) {
    CliHost& h = cliHost();
    const std::size_t before = h.messages.size();
    const bool held = h.holdMessages;
    h.holdMessages = true;
    try {
        ok = run();
    } catch (...) {
        h.holdMessages = held;
        throw;
    }
    h.holdMessages = held;
    return {h.messages.begin() + static_cast<long>(before), h.messages.end()};
}

}  // namespace

void readMarkers(const std::string& file, const std::function<void()>& read) {
    const std::string reason = fileReadReason(file);
    if (!reason.empty()) throw Failure{"cannot read markers " + file + ": " + reason};
    try {
        read();
    } catch (const arrayWorks::FileError& e) {
        throw Failure{std::string(e.message) + " (" + file + ")", true};
    }
}

bool loadModel(const std::vector<std::string>& files, bool transpose, region& reg, region_fe& reg_fe) {
    for (const std::string& f : files) {
        if (findGeometryFormat(file_extension(f)) == nullptr) {
            error(f + ": unknown file format (" + geometryExtensions() + ")");
            return false;
        }
        const int patches = reg.patchCount(), facePatches = reg_fe.patchCount();
        bool ok = false;
        const std::vector<std::string> shown =
            heldMessages([&] { return import_data(f, transpose, reg, reg_fe); }, ok);
        const std::string reason = ok ? std::string() : fileReadReason(f);
        std::string where = f + (reason.empty() ? "" : ": " + reason);
        if (ok && reg.patchCount() == patches && reg_fe.patchCount() == facePatches) {
            error(f + ": no patches in the file");
            return false;
        }
        if (ok) {
            for (const std::string& m : shown) std::cerr << m << " (" << f << ")\n";
            continue;
        }
        const std::string text = joinedNames(shown);
        if (text.empty()) error("cannot read " + where);
        else std::cerr << text << " (" << where << ")\n";
        return false;
    }
    return true;
}

namespace {

// One item of an export: a structured patch or a face patch.
struct Item {
    std::string label;  // patch 0 "Wing"
    const PatchBase* patch;
    bool structured;
};

std::vector<Item> writtenItems(const std::string& file, const region& reg, const region_fe& reg_fe) {
    std::vector<Item> items;
    auto quoted = [](const std::string& name) { return name.empty() ? std::string() : " \"" + name + "\""; };
    for (int k = 0; k < reg.patchCount(); ++k)
        items.push_back({"patch " + std::to_string(k) + quoted(reg.patch(k).name), &reg.patch(k), true});
    if (file_extension(file) != "fld")  // as export_data counts
        for (int k = 0; k < reg_fe.patchCount(); ++k)
            items.push_back(
                {"face patch " + std::to_string(k) + quoted(reg_fe.patch(k).name), &reg_fe.patch(k), false});
    return items;
}

std::vector<std::string> variableNames(const PatchBase& p) {
    std::vector<std::string> names;
    for (int k = 0; k < p.variableCount(); ++k) names.push_back(p.variable(k).name);
    return names;
}

bool isCoordinate(const std::string& name) {
    std::string low = name;
    for (char& c : low) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return low == "x" || low == "y" || low == "z";
}

// What the writer takes from the first item and applies to all: every
// variable by position where the format holds fields, else the positions of
// x, y, z.
std::string layoutKey(const PatchBase& p, bool fields) {
    std::string key;
    const std::vector<std::string> names = variableNames(p);
    for (std::size_t k = 0; k < names.size(); ++k)
        if (fields) key += names[k] + '\n';
        else if (isCoordinate(names[k])) key += std::to_string(k) + names[k] + '\n';
    return key;
}

}  // namespace

void checkWritable(const std::string& file, const WriteOptions& w, const region& reg, const region_fe& reg_fe) {
    const GeometryFormat* format = findGeometryFormat(file_extension(file));
    if (format == nullptr) throw Failure{file + ": unknown file format (" + geometryExtensions() + ")"};
    // export_data hands FLD the structured patches alone.
    if (file_extension(file) == "fld" && reg_fe.patchCount() > 0)
        throw Failure{file + ": " + std::string(format->name) + " holds structured patches only, and the model has " +
                      std::to_string(reg_fe.patchCount()) + " face patches (apt, dat and wrl hold them)"};
    if (w.split || format->holds.mixedVariables) return;
    const std::vector<Item> items = writtenItems(file, reg, reg_fe);
    if (items.empty()) return;
    // Groups of items of one layout, in the order of their first items.
    std::vector<std::pair<std::string, std::vector<const Item*>>> layouts;
    for (const Item& i : items) {
        const std::string key = layoutKey(*i.patch, format->holds.fields);
        auto g = std::find_if(layouts.begin(), layouts.end(), [&](const auto& l) { return l.first == key; });
        if (g == layouts.end()) g = layouts.insert(layouts.end(), {key, {}});
        g->second.push_back(&i);
    }
    if (layouts.size() < 2) return;
    std::string what;
    for (const auto& [key, group] : layouts) {
        std::string labels;
        for (const Item* i : group) labels += (labels.empty() ? "" : ", ") + i->label;
        what += "\n  " + labels + ": " + joinedNames(variableNames(*group.front()->patch));
    }
    throw Failure{file + ": the items written into one file carry different variables:" + what +
                  "\n  (write each into its own file with --split)"};
}

namespace {

// Warnings about what `format` does not keep of the items written.
void warnLosses(const std::string& file, const GeometryFormat& format, const region& reg, const region_fe& reg_fe) {
    const GeometryFormatHolds& holds = format.holds;
    const std::vector<Item> items = writtenItems(file, reg, reg_fe);
    const std::string fmt = std::string(format.name);
    if (!holds.fields) {
        std::set<std::string> dropped;
        int carrying = 0;
        for (const Item& i : items) {
            bool any = false;
            for (const std::string& n : variableNames(*i.patch))
                if (!isCoordinate(n)) {
                    dropped.insert(n);
                    any = true;
                }
            carrying += any;
        }
        if (!dropped.empty())
            warn(file + ": " + fmt + " holds no fields; " + std::to_string(dropped.size()) + " dropped (" +
                 joinedNames({dropped.begin(), dropped.end()}) + ") from " + std::to_string(carrying) + " of " +
                 std::to_string(items.size()) + " items");
    }
    bool anyStructured = false, anyFaces = false;
    for (const Item& i : items) (i.structured ? anyStructured : anyFaces) = true;
    auto header = [&](bool structured, const std::string& whose) {
        const std::string& title = structured ? reg.name : reg_fe.name;
        const double mach = structured ? reg.Mach : reg_fe.Mach;
        const double alpha = structured ? reg.alpha : reg_fe.alpha;
        const double beta = structured ? reg.beta : reg_fe.beta;
        if (!holds.title && !title.empty()) warn(file + ": " + fmt + " holds no title; \"" + title + "\"" + whose + " dropped");
        const bool flow = mach != 0 || alpha != 0 || beta != 0;
        std::ostringstream values;
        values << "Mach " << mach << ", alpha " << alpha << ", beta " << beta;
        if (flow && !holds.flow)
            warn(file + ": " + fmt + " holds no flow conditions; " + values.str() + whose + " dropped");
        else if (flow && holds.flowNeedsMach && !(mach > 0))
            warn(file + ": " + fmt + " writes the flow conditions only with Mach above 0; " + values.str() + whose +
                 " dropped");
    };
    // The structured patches come first and give the header when there are any.
    if (anyStructured) header(true, anyFaces ? " (of the structured patches)" : "");
    if (anyFaces && (!anyStructured || format.name == "VRML")) header(false, "");
    if (!holds.noValue) {
        std::map<std::string, long long> zeros;
        for (const Item& i : items)
            for (int k = 0; k < i.patch->variableCount(); ++k) {
                const NodeVariable& v = i.patch->variable(k);
                long long n = 0;
                for (double d : v.values) n += d < kWrittenAsZeroBelow;
                if (n > 0) zeros[v.name] += n;
            }
        for (const auto& [name, n] : zeros)
            warn(file + ": " + fmt + " has no mark for no value; " + std::to_string(n) + " no-value nodes of " + name +
                 " written as 0");
    }
    if (format.name == "FLD") {
        int volumes = 0;
        for (int k = 0; k < reg.patchCount(); ++k) volumes += reg.patch(k).K >= 2;
        if (volumes > 0) warn(file + ": FLD holds surfaces only; " + std::to_string(volumes) + " patches with K >= 2 skipped");
    }
}

}  // namespace

bool saveModel(const std::string& file, const WriteOptions& w, region& reg, region_fe& reg_fe) {
    checkWritable(file, w, reg, reg_fe);
    warnLosses(file, *findGeometryFormat(file_extension(file)), reg, reg_fe);
    const GeometryFormat& format = *findGeometryFormat(file_extension(file));
    if (w.binary && format.writeBinary == nullptr)
        warn(file + ": " + std::string(format.name) + " has no binary form, written as text");
    const SafeWriteResult r = exportDataSafely(file, {w.precision, w.scientific, w.split, w.binary}, reg, reg_fe);
    if (!r) {
        std::cerr << r.message << '\n';
        return false;
    }
    return true;
}

void checkMemory(double bytes, const std::string& what) {
    std::ifstream in("/proc/meminfo");
    std::string key;
    double kb = 0;
    while (in >> key >> kb) {
        if (key == "MemAvailable:") {
            if (bytes > kb * 1024.0) {
                char m[96];
                std::snprintf(m, sizeof m, ": needs about %.0f MB, %.0f MB available", bytes / 1048576.0, kb / 1024.0);
                throw Failure{"not enough memory for " + what + m};
            }
            return;
        }
        in.ignore(1 << 10, '\n');
    }
}

}  // namespace tundrel::cli
