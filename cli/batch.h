// tundrel batch: a campaign of runs, the same steps on each run's inputs.
//
// The campaign file (JSON) holds
//   "output":   the folder of the run folders (default "results"),
//   "steps":    the ordered steps, each {"step": NAME, PARAMETER: VALUE, ...},
//   "defaults": {NAME: {PARAMETER: VALUE, ...}, ...} for every run,
//   "runs":     [{"id": ID, "input": FILE or [FILES], NAME: {PARAMETER: VALUE}}, ...].
// A parameter of a step is taken from the run, else from the step, else from
// the defaults, else from the step's own default. Relative paths are relative
// to the campaign file.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tundrel::cli::batch {

using Json = nlohmann::ordered_json;

// One run with every parameter resolved.
struct Run {
    std::string id;
    std::size_t index = 0;            // in the campaign's "runs"
    std::vector<std::string> inputs;  // absolute
    Json steps = Json::array();       // [{"step": NAME, PARAMETER: VALUE, ...}] in order
};

struct Campaign {
    std::string file;    // as named on the command line
    std::string folder;  // the campaign file's folder, absolute
    std::string output;  // the run folders' folder, absolute
    std::vector<Run> runs;
};

// Reads and checks the whole campaign. Every problem is one line
// "runs/3/self-illumination/ratio: accepts a number from 0 to 1, not 2";
// the campaign is usable only when `problems` is empty.
Campaign loadCampaign(const std::string& file, std::vector<std::string>& problems);

// Runs one run in `stage` (its inputs read, its steps done, its outputs and
// summary.json written there); 0 when it succeeded.
int runOne(const Campaign& c, const Run& run, const std::string& stage);

}  // namespace tundrel::cli::batch
