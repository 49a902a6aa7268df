// The `tundrel` command: shared pieces of its subcommands.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "api/TundrelApi.h"

namespace tundrel::cli {

// Exit statuses: 0 success, 1 failure, 2 bad usage (CLI11's own).
inline constexpr int kFailure = 1;

// The options of every command that writes a model.
struct WriteOptions {
    int precision = 6;
    bool scientific = false;
    bool split = false;
};
void addWriteOptions(CLI::App& cmd, WriteOptions& w);

// Reads every file in order into one region and region_fe; false when any
// import fails (the reader has shown its message) or a file has no format.
bool loadModel(const std::vector<std::string>& files, bool transpose, region& reg, region_fe& reg_fe);
// Writes the model; false on failure.
bool saveModel(const std::string& file, const WriteOptions& w, region& reg, region_fe& reg_fe);


void addModelCommands(CLI::App& app, int& status);   // convert, info
void addMarkersCommand(CLI::App& app, int& status);  // markers
void addMeshCommands(CLI::App& app, int& status);    // triangulate, refine, merge, mirror
void addPressurePortsCommand(CLI::App& app, int& status);  // pressure-ports
void addSelfIlluminationCommand(CLI::App& app, int& status);  // self-illumination
void addRenderCommand(CLI::App& app, int& status);  // render

}  // namespace tundrel::cli
