// tundrel markers
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli/cli.h"

namespace tundrel::cli {

namespace {

void printMarkers(const markers& set, bool json) {
    std::ostream& o = std::cout;
    if (json) {
        nlohmann::ordered_json j{{"name", set.name}, {"hasX", set.hasX}, {"hasY", set.hasY}, {"hasZ", set.hasZ},
                                 {"hasValue", set.hasValue}, {"markers", nlohmann::ordered_json::array()}};
        for (const marker& m : set.list)
            j["markers"].push_back({{"number", m.number}, {"x", m.x}, {"y", m.y}, {"z", m.z}, {"value", m.value},
                                    {"active", m.active}});
        o << j.dump() << '\n';
        return;
    }
    o << "name: " << set.name << '\n'
      << "hasX: " << set.hasX << "  hasY: " << set.hasY << "  hasZ: " << set.hasZ << "  hasValue: " << set.hasValue
      << '\n'
      << "markers: " << set.count() << '\n'
      << "number x y z value active\n"
      << std::setprecision(15);
    for (const marker& m : set.list)
        o << m.number << ' ' << m.x << ' ' << m.y << ' ' << m.z << ' ' << m.value << ' ' << m.active << '\n';
}

}  // namespace

void addMarkersCommand(CLI::App& app, int& status) {
    struct MarkersArgs {
        std::string file;
        bool json = false;
        int imageHeight = 0;
    };
    auto args = std::make_shared<MarkersArgs>();
    CLI::App* cmd = app.add_subcommand("markers", "Print the markers of a marker file (mpt, inm, apm, mrk)");
    cmd->add_option("file", args->file, "FILE")->required()->check(markerFile());
    cmd->add_flag("--json", args->json, "One JSON object");
    cmd->add_option("--image-height", args->imageHeight, "Image height for the row flip of inm files")
        ->check(intIn(0, kAnyCount))
        ->capture_default_str();
    cmd->callback([args, &status] {
        if (findMarkerFormat(markerFileExtension(args->file)) == nullptr) {
            std::string list;
            for (const MarkerFormat& f : markerFormats()) list += (list.empty() ? "" : ", ") + std::string(f.extension);
            std::cerr << "tundrel: " << args->file << ": unknown marker file format (" << list << ")\n";
            status = kFailure;
            return;
        }
        markers set;
        readMarkers(args->file, [&] { importMarkers(args->file, set, args->imageHeight); });
        printMarkers(set, args->json);
    });
}

}  // namespace tundrel::cli
