// `tundrel batch`: campaigns run as a user runs them, real processes and files.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/support/test_util.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;
using testutil::runCli;

namespace {

// A 3 x 3 grid with a field P and a bump in the middle.
const char* kTiny =
    "tiny\n1 1 P\n3 3 WALL WALL WALL WALL\n0 0 0 1\n1 0 0 1\n2 0 0 1\n0 1 0 1\n1 1 0.5 2\n2 1 0 1\n"
    "0 2 0 1\n1 2 0 1\n2 2 0 1\n0.5 1 0\n";

// A campaign of `runs` runs of `model` (read, self-illumination, write) in `dir`.
Json campaign(int runs, const std::string& model = "tiny.fld") {
    Json c{{"steps",
            {{{"step", "read"}},
             {{"step", "self-illumination"}, {"field", "P"}, {"name", "P_si"}},
             {{"step", "write"}, {"out", "out.dat"}}}},
           {"defaults", {{"self-illumination", {{"ratio", 0.5}}}}},
           {"runs", Json::array()}};
    for (int k = 0; k < runs; ++k) {
        std::string id(1, 'r');  // appended, not "r" + ...: GCC 12 at -O3 warns falsely on that
        id += std::to_string(k);
        c["runs"].push_back({{"id", id}, {"input", model}});
    }
    return c;
}

struct Campaign {
    testutil::ScratchDir dir;
    std::string file = dir.file("c.json");
    explicit Campaign(const Json& c) {
        testutil::writeFile(dir.file("tiny.fld"), kTiny);
        testutil::writeFile(file, c.dump());
    }
    fs::path run(const std::string& id) const { return dir.path() / "results" / id; }
    Json summary(const std::string& id) const { return Json::parse(testutil::readFile((run(id) / "summary.json").string())); }
    // Folders in results/ that are hidden (staging) or lack a summary.
    int partial() const {
        int n = 0;
        for (const auto& e : fs::directory_iterator(dir.path() / "results"))
            n += e.is_directory() && (e.path().filename().string()[0] == '.' || !fs::exists(e.path() / "summary.json"));
        return n;
    }
};

}  // namespace

// A row a refusal: a change to a good campaign, and what the message names.
TEST(Batch, RefusesBadCampaignsUpFrontNamingRunAndKey) {
    for (auto [change, says] : std::vector<std::pair<std::function<void(Json&)>, std::string>>{
             {[](Json& c) { c["runs"][1]["ratio"] = 0.5; }, "c.json: runs/1/ratio: unknown key"},
             {[](Json& c) { c["runs"][1]["self-illumination"] = {{"ratio", 2}}; },
              "runs/1/self-illumination/ratio: accepts a number from 0 to 1, not 2"},
             {[](Json& c) { c["runs"][2]["id"] = "r0"; }, "runs/2/id: r0 is the id of runs/0 too"},
             {[](Json& c) { c["steps"][1]["tolerance"] = "small"; }, "steps/1/tolerance: accepts a number"},
             {[](Json& c) { c["steps"][2]["out"] = "out.xyz"; }, "steps/2/out: out.xyz: not a model file"},
             {[](Json& c) { c["steps"][1].erase("field"); }, "runs/0/self-illumination/field: missing"},
             {[](Json& c) { c["runs"][0]["render"] = Json::object(); }, "runs/0/render: the campaign has no render step"},
             {[](Json& c) { c["defaults"]["write"] = {{"precision", 0}}; }, "defaults/write/precision: accepts a whole"},
         }) {
        Json c = campaign(3);
        change(c);
        const Campaign k(c);
        const testutil::CliRun r = runCli("batch " + k.file);
        EXPECT_EQ(r.status, 2) << r.out;
        EXPECT_NE(r.out.find(says), std::string::npos) << r.out;
        EXPECT_FALSE(fs::exists(k.dir.path() / "results")) << says;
    }
}

TEST(Batch, RunsSkipsDoneRunsAndRecordsAFailureAlone) {
    Json c = campaign(3);
    c["runs"][1]["input"] = "missing.fld";
    const Campaign k(c);
    testutil::CliRun r = runCli("batch --jobs 2 " + k.file);
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_EQ(k.summary("r0")["status"], "ok");
    EXPECT_EQ(k.summary("r2")["steps"][1]["ratio"], 0.5);
    EXPECT_TRUE(fs::exists(k.run("r2") / "out.dat"));
    const Json failed = k.summary("r1");
    EXPECT_EQ(failed["status"], "failed");
    EXPECT_NE(failed["reason"].get<std::string>().find("missing.fld: No such file or directory"), std::string::npos);
    EXPECT_EQ(k.partial(), 0);

    // The next start runs the failed run alone; with its input there it succeeds.
    const auto before = fs::last_write_time(k.run("r0") / "summary.json");
    fs::copy_file(k.dir.file("tiny.fld"), k.dir.file("missing.fld"));
    r = runCli("batch --jobs 2 " + k.file);
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("3 runs, 2 done before, 1 to run"), std::string::npos) << r.out;
    EXPECT_EQ(fs::last_write_time(k.run("r0") / "summary.json"), before);
    EXPECT_EQ(k.summary("r1")["status"], "ok");

    // The table: a header and a row a run, P_si's statistics among the columns.
    r = runCli("batch --collect " + k.file);
    ASSERT_EQ(r.status, 0) << r.out;
    const std::string csv = testutil::readFile(k.dir.file("results/campaign.csv"));
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 4) << csv;
    EXPECT_NE(csv.find("P_si_max"), std::string::npos) << csv;
    const Json table = Json::parse(testutil::readFile(k.dir.file("results/campaign.json")));
    ASSERT_EQ(table.size(), 3u);
    EXPECT_EQ(table[2]["outputs"], "r2/out.dat");
}

TEST(Batch, ShardsCoverEveryRunOnce) {
    const Campaign k(campaign(7));
    std::map<std::string, int> seen;
    for (int shard = 0; shard < 3; ++shard) {
        const testutil::CliRun r = runCli("batch --dry-run --shard " + std::to_string(shard) + "/3 " + k.file);
        ASSERT_EQ(r.status, 0) << r.out;
        std::istringstream lines(r.out);
        for (std::string id, rest; lines >> id && std::getline(lines, rest);) ++seen[id];
    }
    ASSERT_EQ(seen.size(), 7u);
    for (const auto& [id, n] : seen) EXPECT_EQ(n, 1) << id;
    EXPECT_EQ(runCli("batch --shard 3/3 " + k.file).status, 2);
}

// The batch process killed once a run has ended: the runs in progress are
// lost, nothing half written is in place, and the next start runs only them.
TEST(Batch, RestartAfterAKillLosesOnlyRunsInProgress) {
    Json c = campaign(3, std::string(TUNDREL_SOURCE_DIR) + "/examples/wingbody.fld");
    c["steps"][1]["field"] = "cp";
    const Campaign k(c);
    const std::string log = k.dir.file("log");
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        std::freopen(log.c_str(), "w", stderr);
        ::execl(TUNDREL_CLI, "tundrel", "batch", "--jobs", "1", k.file.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    // Waits for the first run to be placed, or for the batch to end.
    int status = 0;
    while (!fs::exists(k.run("r0")) && ::waitpid(pid, &status, WNOHANG) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    ASSERT_TRUE(fs::exists(k.run("r0") / "summary.json"));
    for (const char* id : {"r1", "r2"})
        EXPECT_TRUE(!fs::exists(k.run(id)) || fs::exists(k.run(id) / "summary.json")) << id;
    const auto before = fs::last_write_time(k.run("r0") / "summary.json");
    const testutil::CliRun r = runCli("batch --jobs 2 " + k.file);
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("3 runs, 1 done before, 2 to run"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("2 ok, 0 failed"), std::string::npos) << r.out;
    EXPECT_EQ(fs::last_write_time(k.run("r0") / "summary.json"), before);
    EXPECT_EQ(k.partial(), 0);
}
