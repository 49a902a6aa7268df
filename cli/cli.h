// The `tundrel` command: shared pieces of its subcommands.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "api/TundrelApi.h"

namespace tundrel::cli {

// Exit statuses: 0 success (warnings included), 1 failure, 2 bad usage.
inline constexpr int kFailure = 1;
inline constexpr int kUsage = 2;

// Thrown by a command to end with a message on standard error and exit 1.
struct Failure {
    std::string message;
    bool libraryText = false;  // starts with the library's text: printed as it is
};

// Settings of the whole run.
struct RunSettings {
    bool quiet = false;  // no warnings
    std::string command; // the subcommand running, for messages
    std::vector<std::string>* warnings = nullptr;  // when set, warnings are kept here too
};
RunSettings& settings();

// "tundrel <command>: warning: ..." on standard error, unless --quiet.
void warn(const std::string& text);

// Option checks, each naming what it accepts (CLI11 puts the option's name
// in front of the message).
CLI::Validator geometryFile(bool toWrite);  // an extension of the format table
CLI::Validator markerFile();                // an extension of the marker formats
CLI::Validator numberIn(double lo, double hi, const std::string& what);
CLI::Validator positiveNumber();            // finite and > 0
CLI::Validator intIn(long long lo, long long hi);  // hi = kAnyCount: no upper bound
inline constexpr long long kAnyCount = 1 << 30;
// "apt, fld, dat, wrl"
std::string geometryExtensions();

// The options of every command that writes a model.
struct WriteOptions {
    int precision = 6;
    bool scientific = false;
    bool split = false;
    bool binary = false;
};
void addWriteOptions(CLI::App& cmd, WriteOptions& w);

// Reads each file in order into one region and region_fe; false after
// printing the reader's message, the file name and the system's reason.
bool loadModel(const std::vector<std::string>& files, bool transpose, region& reg, region_fe& reg_fe);

// What the written file is to hold: checked before any computing.
// Throws Failure when the format cannot hold the model at all (FLD and face
// patches; patches of different variables in one file).
void checkWritable(const std::string& file, const WriteOptions& w, const region& reg, const region_fe& reg_fe);
// Checks, warns about what the format loses, and writes through a temporary
// file; false after printing the writer's message, the file and the reason.
bool saveModel(const std::string& file, const WriteOptions& w, region& reg, region_fe& reg_fe);

// Refuses work whose memory need is beyond what the system has available:
// throws Failure "not enough memory for <what>: needs about N MB, M MB
// available".
void checkMemory(double bytes, const std::string& what);

// Runs `read`, which reads the marker file `file`: a file that cannot be
// opened, or a FileError out of `read`, throws Failure with the library's
// text, the file and the system's reason.
void readMarkers(const std::string& file, const std::function<void()>& read);

// What `tundrel info --json` prints of a model: title, flow conditions,
// patches, counts, and under "fields" each variable's min, max, mean and
// no-value count.
nlohmann::ordered_json describeModel(const std::string& file, const region& reg, const region_fe& reg_fe);

// "a,b,,c" -> {"a", "b", "", "c"}; a trailing comma gives a last empty item.
std::vector<std::string> splitList(const std::string& text);

// "1600x1200" -> {1600, 1200}; nothing unless both sides are whole numbers
// from 16 to 8192.
std::optional<std::pair<int, int>> pictureSize(const std::string& text);

// Prints "tundrel <command>: <text>" on standard error.
void error(const std::string& text);

// The commands, each adding itself to the app; a callback sets `status` or
// throws Failure.
void addModelCommands(CLI::App& app, int& status);    // convert, info
void addMarkersCommand(CLI::App& app, int& status);   // markers
void addMeshCommands(CLI::App& app, int& status);     // triangulate, refine, merge, mirror
void addPressurePortsCommand(CLI::App& app, int& status);     // pressure-ports
void addSelfIlluminationCommand(CLI::App& app, int& status);  // self-illumination
void addRenderCommand(CLI::App& app, int& status);  // render
void addBatchCommand(CLI::App& app, int& status);   // batch

}  // namespace tundrel::cli
