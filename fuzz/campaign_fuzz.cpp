// The campaign file of `tundrel batch` on arbitrary bytes: it is either
// refused with problems, or gives runs with unique ids, each with its inputs
// and every step resolved; nothing escapes as an exception.
#include <unistd.h>

#include <fstream>
#include <set>

#include "cli/batch.h"
#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string file = "/tmp/tundrel_campaign_fuzz_" + std::to_string(::getpid()) + ".json";
    std::ofstream(file, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data),
                                                                   static_cast<std::streamsize>(size));
    std::vector<std::string> problems;
    const tundrel::cli::batch::Campaign c = tundrel::cli::batch::loadCampaign(file, problems);
    ::unlink(file.c_str());
    if (!problems.empty()) return 0;
    fuzzutil::check(!c.runs.empty(), "a campaign with runs");
    std::set<std::string> ids;
    for (const auto& r : c.runs) {
        fuzzutil::check(ids.insert(r.id).second, "unique run ids");
        fuzzutil::check(!r.inputs.empty() && !r.steps.empty(), "inputs and steps in every run");
        fuzzutil::check(r.steps[0].value("step", std::string()) == std::string("read"), "read first");
    }
    return 0;
}
