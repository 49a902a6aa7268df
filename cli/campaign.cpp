// The campaign file of `tundrel batch`: its keys, their checks (the command
// line's own), and one run done in its staging folder.
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

#include "cli/batch.h"
#include "cli/cli.h"
#include "cli/host.h"

namespace fs = std::filesystem;

namespace tundrel::cli::batch {

namespace {

enum class Type { text, number, integer, boolean };

struct Parameter {
    std::string key;
    Type type;
    CLI::Validator check;  // the command line's check of the same option
    Json fallback;         // null: none (required, or worked out from others)
    bool required = false;
    bool path = false;     // a file name, relative to the campaign file
};

CLI::Validator anything() {
    return CLI::Validator([](std::string&) { return std::string(); }, "");
}

CLI::Validator nameCheck() {
    return CLI::Validator(
        [](std::string& n) { return n.empty() || n.size() > 255 ? std::string("accepts 1 to 255 characters") : ""; },
        "NAME");
}

CLI::Validator check(std::function<bool(const std::string&)> ok, std::string why) {
    return CLI::Validator([ok, why](std::string& text) { return ok(text) ? std::string() : why + ", not " + text; },
                          "");
}

std::string lowExtension(const std::string& f) {
    std::string e = fs::path(f).extension().string();
    for (char& c : e) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return e;
}

struct Step {
    std::string name;
    std::vector<Parameter> parameters;
};

const std::vector<Step>& stepTable() {
    static const std::vector<Step> steps = [] {
        std::string views, maps;
        for (const std::string& v : View::names()) views += (views.empty() ? "" : ", ") + v;
        for (const std::string& m : ColorMap::names()) maps += (maps.empty() ? "" : ", ") + m;
        const CLI::Validator zeroToOne = numberIn(0.0, 1.0, "a number from 0 to 1");
        return std::vector<Step>{
            {"read", {{"transpose", Type::boolean, anything(), false}}},
            {"self-illumination",
             {{"field", Type::text, anything(), nullptr, true},
              {"ratio", Type::number, zeroToOne, 1.0},
              {"obstruction", Type::boolean, anything(), false},
              {"tolerance", Type::number, zeroToOne, 0.0},
              {"name", Type::text, nameCheck(), nullptr}}},
            {"pressure-ports",
             {{"markers", Type::text, markerFile(), nullptr, true, true},
              {"field", Type::text, anything(), ""},
              {"deflexion", Type::number, positiveNumber(), nullptr, true},
              {"order", Type::integer, intIn(0, 2), 0},
              {"direction", Type::text, CLI::IsMember({"normal", "reverse"}), "normal"},
              {"name", Type::text, nameCheck(), nullptr}}},
            {"render",
             {{"field", Type::text, anything(), nullptr, true},
              {"views", Type::text,
               check(
                   [](const std::string& t) {
                       const auto l = splitList(t);
                       return !l.empty() && std::all_of(l.begin(), l.end(), [](const std::string& v) {
                           return View::named(v).has_value();
                       });
                   },
                   "accepts a list of " + views),
               "iso"},
              {"size", Type::text,
               check([](const std::string& t) { return pictureSize(t).has_value(); },
                     "accepts WxH in pixels, 16 to 8192"),
               "1200x900"},
              {"colormap", Type::text,
               check([](const std::string& t) { return ColorMap::named(t).has_value(); }, "accepts one of " + maps),
               "viridis"},
              {"samples", Type::integer, intIn(1, 8), 2},
              {"transparent", Type::boolean, anything(), false},
              {"out", Type::text,
               check([](const std::string& f) { return lowExtension(f) == ".png"; }, "accepts a .png file"),
               nullptr}}},
            {"write",
             {{"out", Type::text, geometryFile(true), nullptr, true},
              {"precision", Type::integer, intIn(1, 17), 6},
              {"scientific", Type::boolean, anything(), false},
              {"split", Type::boolean, anything(), false},
              {"binary", Type::boolean, anything(), false}}},
        };
    }();
    return steps;
}

const Step* findStep(const std::string& name) {
    for (const Step& s : stepTable())
        if (s.name == name) return &s;
    return nullptr;
}

std::string stepNames() {
    std::string s;
    for (const Step& step : stepTable()) s += (s.empty() ? "" : ", ") + step.name;
    return s;
}

std::string keyNames(const Step& step) {
    std::string s;
    for (const Parameter& p : step.parameters) s += (s.empty() ? "" : ", ") + p.key;
    return s;
}

const char* typeName(Type t) {
    switch (t) {
        case Type::text: return "a string";
        case Type::number: return "a number";
        case Type::integer: return "a whole number";
        case Type::boolean: return "true or false";
    }
    return "";
}

// The problem with `value` as `p`, or an empty string.
std::string valueProblem(const Parameter& p, const Json& value) {
    std::string text;
    switch (p.type) {
        case Type::text:
            if (!value.is_string()) return std::string("accepts ") + typeName(p.type) + ", not " + value.dump();
            text = value.get<std::string>();
            break;
        case Type::number:
            if (!value.is_number()) return std::string("accepts ") + typeName(p.type) + ", not " + value.dump();
            text = value.dump();
            break;
        case Type::integer:
            if (!value.is_number_integer()) return std::string("accepts ") + typeName(p.type) + ", not " + value.dump();
            text = value.dump();
            break;
        case Type::boolean:
            return value.is_boolean() ? std::string() : std::string("accepts true or false, not ") + value.dump();
    }
    return p.check(text);
}

// Checks the parameters object `params` of `step` at `pointer`; `skip` names
// keys that are not parameters there ("step" in the steps list).
void checkParameters(const Step& step, const Json& params, const std::string& pointer,
                     std::vector<std::string>& problems, const std::string& skip = "") {
    if (!params.is_object()) {
        problems.push_back(pointer + ": accepts an object of " + step.name + " parameters (" + keyNames(step) + ")");
        return;
    }
    for (const auto& item : params.items()) {
        const std::string& key = item.key();
        const Json& value = item.value();
        if (key == skip) continue;
        const auto p = std::find_if(step.parameters.begin(), step.parameters.end(),
                                    [&](const Parameter& q) { return q.key == key; });
        if (p == step.parameters.end()) {
            problems.push_back(pointer + "/" + key + ": unknown key; " + step.name + " takes " + keyNames(step));
            continue;
        }
        if (const std::string why = valueProblem(*p, value); !why.empty())
            problems.push_back(pointer + "/" + key + ": " + why);
    }
}

bool validId(const std::string& id) {
    if (id.empty() || id.size() > 100 || id[0] == '.') return false;
    return std::all_of(id.begin(), id.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.';
    });
}

std::string absolute(const std::string& folder, const std::string& name) {
    return (fs::path(folder) / name).lexically_normal().string();
}

}  // namespace

Campaign loadCampaign(const std::string& file, std::vector<std::string>& problems) {
    Campaign c;
    c.file = file;
    std::error_code ec;
    c.folder = fs::absolute(fs::path(file), ec).parent_path().lexically_normal().string();
    std::ifstream in(file);
    if (!in) {
        problems.push_back(std::string("cannot read the campaign: ") + std::strerror(errno));
        return c;
    }
    Json j;
    try {
        j = Json::parse(in);
    } catch (const Json::exception& e) {
        problems.push_back(std::string("not JSON: ") + e.what());
        return c;
    }
    if (!j.is_object()) {
        problems.push_back("accepts an object with steps, runs, defaults and output");
        return c;
    }
    for (const auto& [key, value] : j.items())
        if (key != "steps" && key != "runs" && key != "defaults" && key != "output" && key != "description")
            problems.push_back(key + ": unknown key; a campaign takes steps, runs, defaults, output, description");
    c.output = absolute(c.folder, "results");
    if (j.contains("output")) {
        if (j["output"].is_string() && !j["output"].get<std::string>().empty())
            c.output = absolute(c.folder, j["output"].get<std::string>());
        else
            problems.push_back("output: accepts a folder name, not " + j["output"].dump());
    }

    // The steps, each named once, in order.
    const Json steps = j.value("steps", Json());
    std::vector<std::pair<const Step*, Json>> order;
    if (!steps.is_array() || steps.empty()) problems.push_back("steps: accepts a list of steps (" + stepNames() + ")");
    else
        for (std::size_t k = 0; k < steps.size(); ++k) {
            const std::string at = "steps/" + std::to_string(k);
            const Json& s = steps[k];
            const Step* step = s.is_object() && s.contains("step") && s["step"].is_string()
                                   ? findStep(s["step"].get<std::string>())
                                   : nullptr;
            if (step == nullptr) {
                problems.push_back(at + "/step: accepts one of " + stepNames() +
                                   (s.is_object() && s.contains("step") ? ", not " + s["step"].dump() : ""));
                continue;
            }
            if (std::any_of(order.begin(), order.end(), [&](const auto& o) { return o.first == step; }))
                problems.push_back(at + "/step: " + step->name + " comes twice");
            checkParameters(*step, s, at, problems, "step");
            order.emplace_back(step, s);
        }
    if (!order.empty() && order.front().first->name != "read")
        problems.push_back("steps/0/step: the first step is read");

    const Json defaults = j.value("defaults", Json::object());
    if (!defaults.is_object()) problems.push_back("defaults: accepts an object of steps' parameters");
    else
        for (const auto& [key, value] : defaults.items()) {
            const Step* step = findStep(key);
            if (step == nullptr) problems.push_back("defaults/" + key + ": unknown key; defaults take " + stepNames());
            else checkParameters(*step, value, "defaults/" + key, problems);
        }

    const Json runs = j.value("runs", Json());
    if (!runs.is_array() || runs.empty()) {
        problems.push_back("runs: accepts a list of runs, each with an id and an input");
        return c;
    }
    std::map<std::string, std::size_t> seen;
    for (std::size_t k = 0; k < runs.size(); ++k) {
        const std::string at = "runs/" + std::to_string(k);
        const Json& r = runs[k];
        if (!r.is_object()) {
            problems.push_back(at + ": accepts an object with id, input and steps' parameters");
            continue;
        }
        Run run;
        run.index = k;
        const Json id = r.value("id", Json());
        if (!id.is_string() || !validId(id.get<std::string>()))
            problems.push_back(at + "/id: accepts 1 to 100 letters, digits, '_', '-' or '.', not starting with '.'" +
                               (id.is_null() ? std::string() : ", not " + id.dump()));
        else if (const auto [it, fresh] = seen.emplace(id.get<std::string>(), k); !fresh)
            problems.push_back(at + "/id: " + id.get<std::string>() + " is the id of runs/" +
                               std::to_string(it->second) + " too");
        else
            run.id = id.get<std::string>();
        const Json input = r.value("input", Json());
        std::vector<Json> names = input.is_array() ? std::vector<Json>(input.begin(), input.end())
                                                   : std::vector<Json>{input};
        if (names.empty() || input.is_null()) problems.push_back(at + "/input: missing; the model file(s) of the run");
        for (std::size_t n = 0; n < names.size() && !input.is_null(); ++n) {
            const std::string where = at + "/input" + (input.is_array() ? "/" + std::to_string(n) : "");
            std::string name = names[n].is_string() ? names[n].get<std::string>() : std::string();
            if (!names[n].is_string()) problems.push_back(where + ": accepts a file name, not " + names[n].dump());
            else if (const std::string why = geometryFile(false)(name); !why.empty())
                problems.push_back(where + ": " + why);
            else
                run.inputs.push_back(absolute(c.folder, name));
        }
        for (const auto& [key, value] : r.items()) {
            if (key == "id" || key == "input") continue;
            const Step* step = findStep(key);
            if (step == nullptr)
                problems.push_back(at + "/" + key + ": unknown key; a run takes id, input, " + stepNames());
            else if (std::none_of(order.begin(), order.end(), [&](const auto& o) { return o.first == step; }))
                problems.push_back(at + "/" + key + ": the campaign has no " + key + " step");
            else
                checkParameters(*step, value, at + "/" + key, problems);
        }
        // Every parameter resolved: the run's, the step's, the defaults', the step's own.
        for (const auto& [step, given] : order) {
            Json resolved{{"step", step->name}};
            const Json own = r.value(step->name, Json::object());
            const Json common = defaults.is_object() ? defaults.value(step->name, Json::object()) : Json::object();
            for (const Parameter& p : step->parameters) {
                Json v = p.fallback;
                for (const Json* from : {&own, &given, &common})
                    if (from->is_object() && from->contains(p.key)) {
                        v = (*from)[p.key];
                        break;
                    }
                if (v.is_null() && p.required)
                    problems.push_back(at + "/" + step->name + "/" + p.key + ": missing; set it in the run, the step " +
                                       "or the defaults");
                if (v.is_null()) continue;
                if (p.path && v.is_string()) v = absolute(c.folder, v.get<std::string>());
                resolved[p.key] = v;
            }
            run.steps.push_back(resolved);
        }
        c.runs.push_back(std::move(run));
    }
    return c;
}

namespace {

using Clock = std::chrono::steady_clock;

// The model of a run between its steps.
struct Model {
    region reg;
    region_fe reg_fe;
};

// The last line of `log` that is not a warning: why a run failed when the
// code that failed printed its reason.
std::string lastReason(const std::string& log) {
    std::ifstream in(log);
    std::string line, reason;
    while (std::getline(in, line))
        if (!line.empty() && line.find(": warning: ") == std::string::npos) reason = line;
    return reason;
}

// Ends the run with `reason` unless `ok`.
void require(bool ok, const std::string& reason) {
    if (!ok) throw Failure{reason};
}

void doStep(const Json& s, const Run& run, const std::string& stage, Model& m, Json& outputs) {
    const std::string name = s["step"].get<std::string>();
    if (name == "read") {
        for (const std::string& f : run.inputs)
            if (::access(f.c_str(), R_OK) != 0) throw Failure{"cannot read " + f + ": " + std::strerror(errno)};
        require(loadModel(run.inputs, s["transpose"].get<bool>(), m.reg, m.reg_fe), "cannot read the input");
        return;
    }
    if (name == "self-illumination" || name == "pressure-ports") {
        FieldMasterD field;
        z::ambientFlow flow;
        Region_to_fieldMaster(m.reg, m.reg_fe, field, flow);
        const std::string source = s["field"].get<std::string>();
        if (name == "self-illumination") {
            const int at = field.findFunction(source);
            if (at < 0 || field.scalar(at) == nullptr) throw Failure{"the model has no field " + source};
            SelfIlluminationParameters p = selfIlluminationDefaults(source);
            p.ratio = s["ratio"].get<double>();
            p.checkVisibility = s["obstruction"].get<bool>();
            p.tolerance = s["tolerance"].get<double>();
            if (s.contains("name")) p.newName = s["name"].get<std::string>();
            const SelfIlluminationResult r = selfIlluminate(field, source, p);
            require(static_cast<bool>(r), r.message.empty() ? "self-illumination: nothing computed" : r.message);
        } else {
            PressurePortsParameters p = pressurePortsDefaults(source);
            if (s.contains("name")) p.newName = s["name"].get<std::string>();
            p.markersFile = s["markers"].get<std::string>();
            p.maxDeflexion = s["deflexion"].get<double>();
            p.order = s["order"].get<int>();
            p.direction = s["direction"].get<std::string>() == "normal";
            PressurePortsResult r;
            readMarkers(p.markersFile, [&] { r = buildPressurePorts(field, source, p); });
            require(static_cast<bool>(r), r.message);
        }
        fieldMaster_to_Region(field, flow, m.reg, m.reg_fe);
        return;
    }
    if (name == "render") {
        PictureOptions o;
        o.field = s["field"].get<std::string>();
        o.views.clear();
        for (const std::string& v : splitList(s["views"].get<std::string>())) o.views.push_back(*View::named(v));
        std::tie(o.width, o.height) = *pictureSize(s["size"].get<std::string>());
        o.samples = s["samples"].get<int>();
        o.colormap = s["colormap"].get<std::string>();
        o.transparent = s["transparent"].get<bool>();
        const Picture p = renderPicture(m.reg, m.reg_fe, o);
        require(static_cast<bool>(p), "render: " + p.message);
        const std::string out = s.contains("out") ? s["out"].get<std::string>() : o.field + ".png";
        const SafeWriteResult w =
            writeFileSafely(absolute(stage, out), [&](const std::string& f) { return writePng(p.image, f); });
        require(w.ok, "render: " + w.message);
        outputs.push_back(out);
        return;
    }
    // write
    const std::string out = s["out"].get<std::string>();
    const WriteOptions w{s["precision"].get<int>(), s["scientific"].get<bool>(), s["split"].get<bool>(),
                         s["binary"].get<bool>()};
    const int items = m.reg.patchCount() + (file_extension(out) == "fld" ? 0 : m.reg_fe.patchCount());
    require(saveModel(absolute(stage, out), w, m.reg, m.reg_fe), "cannot write " + out);
    for (const std::string& f : exportFileNames(out, w.split, items)) outputs.push_back(f);
}

}  // namespace

int runOne(const Campaign& c, const Run& run, const std::string& stage) {
    std::vector<std::string> warnings;
    settings().warnings = &warnings;
    Json summary{{"id", run.id}, {"status", "failed"}, {"reason", ""}, {"version", TUNDREL_VERSION},
                 {"campaign", absolute(c.folder, fs::path(c.file).filename().string())}};
    summary["inputs"] = run.inputs;
    summary["steps"] = run.steps;
    Json timings = Json::object(), outputs = Json::array();
    Model m;
    const auto start = Clock::now();
    std::string failedStep;
    try {
        for (const Json& s : run.steps) {
            failedStep = s["step"].get<std::string>();
            const auto t0 = Clock::now();
            doStep(s, run, stage, m, outputs);
            timings[failedStep] = std::chrono::duration<double>(Clock::now() - t0).count();
        }
        failedStep.clear();
        summary["status"] = "ok";
    } catch (const Failure& f) {
        summary["reason"] = f.message;
    } catch (const arrayWorks::GenericError& e) {
        summary["reason"] = std::string(e.message) + " (" + e.file + ", line " + std::to_string(e.line) + ")";
    } catch (const std::bad_alloc&) {
        summary["reason"] = "not enough memory";
    }
    std::cerr.flush();
    if (!failedStep.empty()) {
        const std::string printed = lastReason(absolute(stage, "log.txt"));
        if (!printed.empty() && summary["reason"] != printed)
            summary["reason"] = summary["reason"].get<std::string>() + (printed.empty() ? "" : ": " + printed);
        summary["reason"] = failedStep + ": " + summary["reason"].get<std::string>();
    }
    summary["seconds"] = std::chrono::duration<double>(Clock::now() - start).count();
    summary["timings"] = timings;
    summary["fields"] = describeModel("", m.reg, m.reg_fe)["fields"];
    summary["outputs"] = outputs;
    // Warnings name the files of the run, not the staging folder they were written in.
    const std::string staged = (fs::path(stage) / "").string();
    for (std::string& w : warnings)
        for (std::size_t at; (at = w.find(staged)) != std::string::npos;) w.erase(at, staged.size());
    summary["warnings"] = warnings;
    settings().warnings = nullptr;
    const SafeWriteResult w = writeFileSafely(absolute(stage, "summary.json"), [&](const std::string& f) {
        std::ofstream out(f);
        out << summary.dump(2) << '\n';
        out.close();
        return !out.fail();
    });
    if (!w) {
        error(w.message);
        return kFailure;
    }
    return summary["status"] == "ok" ? 0 : kFailure;
}

}  // namespace tundrel::cli::batch
