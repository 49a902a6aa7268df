// tundrel batch: runs a campaign, each run in a child process of its own and
// in a staging folder that is renamed into place when the run has ended, so
// that a crash of one run is that run's failure and an interrupted campaign
// leaves only whole run folders.
#include "cli/batch.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "cli/cli.h"
#include "cli/host.h"

namespace fs = std::filesystem;

namespace tundrel::cli {

namespace {

using batch::Campaign;
using batch::Json;
using batch::Run;
using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t stopSignal = 0;

void onStop(int signal) { stopSignal = signal; }

std::string hostName() {
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0) return "host";
    std::string h = name;
    for (char& c : h)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return h;
}

// The summary of a run folder, or null when it has none that can be read.
Json readSummary(const fs::path& folder) {
    std::ifstream in(folder / "summary.json");
    if (!in) return nullptr;
    try {
        Json j = Json::parse(in);
        return j.is_object() ? j : Json(nullptr);
    } catch (const Json::exception&) {
        return nullptr;
    }
}

// A run is done when its folder holds an ok summary of the same inputs and steps.
bool isDone(const Campaign& c, const Run& r) {
    const Json s = readSummary(fs::path(c.output) / r.id);
    return s.is_object() && s.value("status", "") == "ok" && s.value("inputs", Json()) == Json(r.inputs) &&
           s.value("steps", Json()) == r.steps;
}

// Staging folders of this host whose batch process has ended: left by a
// kill, removed before a new start.
void removeStale(const Campaign& c) {
    std::error_code ec;
    const std::string mark = ".tmp-" + hostName() + "-";
    for (const fs::directory_entry& e : fs::directory_iterator(c.output, ec)) {
        const std::string name = e.path().filename().string();
        const std::size_t at = name.rfind(mark);
        if (name.empty() || name[0] != '.' || at == std::string::npos) continue;
        const long pid = std::atol(name.c_str() + at + mark.size());
        if (pid > 0 && (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM)) continue;
        fs::remove_all(e.path(), ec);
    }
}

// Moves the staged run folder into place, replacing an earlier one.
bool place(const fs::path& stage, const fs::path& target, std::string& why) {
    std::error_code ec;
    fs::path old;
    if (fs::exists(target, ec)) {
        old = target.parent_path() / ("." + target.filename().string() + ".old" + stage.extension().string());
        fs::rename(target, old, ec);
        if (ec) return why = ec.message(), false;
    }
    fs::rename(stage, target, ec);
    if (ec) {
        why = ec.message();
        if (!old.empty()) fs::rename(old, target, ec);
        return false;
    }
    if (!old.empty()) fs::remove_all(old, ec);
    return true;
}

std::string describeStatus(int status) {
    if (WIFSIGNALED(status))
        return "ended by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
    return "ended with status " + std::to_string(WEXITSTATUS(status)) + " without a summary";
}

std::string duration(double seconds) {
    char buf[32];
    if (seconds < 90) std::snprintf(buf, sizeof buf, "%.0f s", seconds);
    else if (seconds < 5400) std::snprintf(buf, sizeof buf, "%.0f min", seconds / 60);
    else std::snprintf(buf, sizeof buf, "%.1f h", seconds / 3600);
    return buf;
}

// "1 run", "3 runs"
std::string count(std::size_t n, const std::string& what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

struct Child {
    const Run* run;
    fs::path stage;
};

// Starts `run` in a child process running this program, with its output in
// the stage's log and `threads` library threads.
pid_t start(const Campaign& c, const Run& run, const fs::path& stage, int threads) {
    const std::string log = (stage / "log.txt").string();
    const std::string campaign = fs::absolute(c.file).string(), dir = stage.string();
    const std::string threadText = std::to_string(threads);
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    // The child: ends with the batch process, writes into its log.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() == 1) ::_exit(kFailure);
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    const int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0) {
        ::dup2(fd, STDOUT_FILENO);
        ::dup2(fd, STDERR_FILENO);
    }
    ::setenv("OMP_NUM_THREADS", threadText.c_str(), 1);
    const char* argv[] = {"tundrel", "batch", campaign.c_str(), "--run-one", run.id.c_str(), "--stage", dir.c_str(),
                          nullptr};
    ::execv("/proc/self/exe", const_cast<char* const*>(argv));
    ::_exit(127);
}

struct BatchArgs {
    std::string campaign, shard, runOne, stage, out;
    std::vector<std::string> fields;
    int jobs = 1;
    bool collect = false, dryRun = false;
};

int runCampaign(const Campaign& c, const BatchArgs& a) {
    const bool quiet = settings().quiet;
    std::size_t shardK = 0, shardN = 1;
    if (!a.shard.empty()) std::sscanf(a.shard.c_str(), "%zu/%zu", &shardK, &shardN);
    std::vector<const Run*> mine, todo;
    for (const Run& r : c.runs)
        if (r.index % shardN == shardK) mine.push_back(&r);
    for (const Run* r : mine)
        if (!isDone(c, *r)) todo.push_back(r);
    if (a.dryRun) {
        for (const Run* r : mine) {
            std::cout << r->id << (std::find(todo.begin(), todo.end(), r) == todo.end() ? " done" : " to run");
            for (const std::string& f : r->inputs)
                if (::access(f.c_str(), R_OK) != 0) std::cout << " (" << f << ": " << std::strerror(errno) << ")";
            std::cout << '\n';
        }
        return 0;
    }
    std::error_code ec;
    fs::create_directories(c.output, ec);
    if (ec) throw Failure{"cannot make " + c.output + ": " + ec.message()};
    removeStale(c);
    for (const Run* r : todo)
        for (const std::string& f : r->inputs)
            if (::access(f.c_str(), R_OK) != 0)
                warn("run " + r->id + ": " + f + ": " + std::strerror(errno) + "; that run will fail");
    if (!quiet)
        std::cerr << "tundrel batch: " << count(mine.size(), "run") << ", " << mine.size() - todo.size() << " done before, "
                  << todo.size() << " to run, " << a.jobs << " at once\n";

    struct sigaction act {};
    act.sa_handler = onStop;
    sigemptyset(&act.sa_mask);
    struct sigaction oldInt {}, oldTerm {};
    ::sigaction(SIGINT, &act, &oldInt);
    ::sigaction(SIGTERM, &act, &oldTerm);

    // The cores this process may run on (a scheduler's allocation), shared among the jobs.
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    const long cores = ::sched_getaffinity(0, sizeof cpus, &cpus) == 0 ? std::max(1, CPU_COUNT(&cpus))
                                                                        : std::max(1L, ::sysconf(_SC_NPROCESSORS_ONLN));
    const int threads = static_cast<int>(std::max(1L, cores / a.jobs));
    const std::string tag = ".tmp-" + hostName() + "-" + std::to_string(::getpid());
    std::map<pid_t, Child> running;
    std::size_t next = 0, ok = 0, failed = 0;
    std::vector<std::string> failures;
    const auto begin = Clock::now();
    bool stopping = false;
    while (next < todo.size() || !running.empty()) {
        while (!stopSignal && next < todo.size() && running.size() < static_cast<std::size_t>(a.jobs)) {
            const Run& r = *todo[next++];
            const fs::path stage = fs::path(c.output) / ("." + r.id + tag);
            fs::remove_all(stage, ec);
            fs::create_directories(stage, ec);
            const pid_t pid = ec ? -1 : start(c, r, stage, threads);
            if (pid < 0) throw Failure{"cannot start run " + r.id + ": " + std::strerror(errno)};
            running[pid] = {&r, stage};
        }
        if (stopSignal && !stopping) {
            stopping = true;
            if (!quiet)
                std::cerr << "tundrel batch: stopping: " << count(running.size(), "run")
                          << " in progress ended, no new ones started\n";
            for (const auto& [p, child] : running) ::kill(p, SIGTERM);
        }
        int status = 0;
        const pid_t pid = ::waitpid(-1, &status, 0);
        if (pid < 0) {
            if (errno != EINTR) break;
            continue;
        }
        const auto it = running.find(pid);
        if (it == running.end()) continue;
        const Child child = it->second;
        running.erase(it);
        Json summary = readSummary(child.stage);
        if (stopSignal && !(summary.is_object() && summary.value("status", "") == "ok")) {
            fs::remove_all(child.stage, ec);  // ended by the stop: run again on the next start
            continue;
        }
        if (!summary.is_object()) {  // the run crashed: its failure, written for it
            summary = Json{{"id", child.run->id}, {"status", "failed"},
                           {"reason", describeStatus(status)}, {"version", TUNDREL_VERSION}};
            summary["inputs"] = child.run->inputs;
            summary["steps"] = child.run->steps;
            std::ofstream(child.stage / "summary.json") << summary.dump(2) << '\n';
        }
        std::string why;
        if (!place(child.stage, fs::path(c.output) / child.run->id, why)) {
            summary["status"] = "failed";
            summary["reason"] = "cannot move " + child.stage.string() + " into place: " + why;
            fs::remove_all(child.stage, ec);
        }
        const bool good = summary.value("status", "") == "ok";
        (good ? ok : failed) += 1;
        if (!good) failures.push_back(child.run->id + ": " + summary.value("reason", std::string()));
        if (!quiet) {
            const std::size_t finished = ok + failed, left = todo.size() - finished;
            const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
            std::cerr << "tundrel batch: " << child.run->id << (good ? " ok" : " failed") << "; " << ok << " done, "
                      << failed << " failed, " << left << " left";
            if (left > 0 && !stopSignal) std::cerr << ", about " << duration(elapsed / finished * left) << " to go";
            std::cerr << '\n';
        }
    }
    ::sigaction(SIGINT, &oldInt, nullptr);
    ::sigaction(SIGTERM, &oldTerm, nullptr);
    for (const std::string& f : failures) error("failed: " + f);
    if (!quiet)
        std::cerr << "tundrel batch: " << ok << " ok, " << failed << " failed, " << mine.size() - todo.size()
                  << " skipped as done before\n";
    if (stopSignal) {
        error("stopped by signal " + std::to_string(stopSignal) + "; " + count(todo.size() - ok - failed, "run") +
              " left for the next start");
        return kFailure;
    }
    return failed == 0 ? 0 : kFailure;
}

std::string csvCell(const Json& v) {
    std::string t = v.is_null() ? std::string() : v.is_string() ? v.get<std::string>() : v.dump();
    if (t.find_first_of(",\"\n") == std::string::npos) return t;
    std::string q = "\"";
    for (char ch : t) q += ch == '"' ? std::string("\"\"") : std::string(1, ch);
    return q + "\"";
}

// One row a run: id, status, reason, seconds, each step's seconds, each
// field's statistics, the output files.
int collect(const Campaign& c, const BatchArgs& a) {
    std::vector<Json> rows;
    std::vector<std::string> columns{"id", "status", "reason", "seconds"};
    auto column = [&](const std::string& name) {
        if (std::find(columns.begin(), columns.end(), name) == columns.end()) columns.push_back(name);
    };
    for (const Run& r : c.runs) {
        const Json s = readSummary(fs::path(c.output) / r.id);
        Json row{{"id", r.id}, {"status", s.is_object() ? s.value("status", "failed") : "missing"}};
        row["reason"] = s.is_object() ? s.value("reason", Json("")) : Json("");
        row["seconds"] = s.is_object() ? s.value("seconds", Json()) : Json();
        if (s.is_object()) {
            const Json timings = s.value("timings", Json::object());
            for (const auto& [step, t] : timings.items())
                column("seconds_" + step), row["seconds_" + step] = t;
            for (const Json& f : s.value("fields", Json::array())) {
                const std::string field = f.value("name", "");
                const bool chosen = a.fields.empty() ? field != "x" && field != "y" && field != "z"
                                                     : std::find(a.fields.begin(), a.fields.end(), field) != a.fields.end();
                if (!chosen) continue;
                for (const char* k : {"min", "max", "mean", "no_value"}) {
                    const std::string name = f.value("name", "") + "_" + k;
                    column(name);
                    row[name] = f.value(k, Json());
                }
            }
        }
        std::string outputs;
        for (const Json& o : s.is_object() ? s.value("outputs", Json::array()) : Json::array())
            outputs += (outputs.empty() ? "" : ";") + (fs::path(r.id) / o.get<std::string>()).string();
        row["outputs"] = outputs;
        rows.push_back(row);
    }
    column("outputs");
    const std::string prefix = a.out.empty() ? (fs::path(c.output) / "campaign").string() : a.out;
    std::error_code ec;
    if (fs::path(prefix).has_parent_path()) fs::create_directories(fs::path(prefix).parent_path(), ec);
    auto save = [](const std::string& file, const std::string& text) {
        const SafeWriteResult w = writeFileSafely(file, [&](const std::string& t) {
            std::ofstream out(t);
            out << text;
            out.close();
            return !out.fail();
        });
        if (!w) throw Failure{w.message};
    };
    std::string csv;
    for (const std::string& col : columns) csv += (col == columns.front() ? "" : ",") + col;
    csv += '\n';
    Json table = Json::array();
    for (const Json& row : rows) {
        Json ordered;
        for (const std::string& col : columns) {
            const Json v = row.value(col, Json());
            csv += (col == columns.front() ? "" : ",") + csvCell(v);
            ordered[col] = v;
        }
        csv += '\n';
        table.push_back(ordered);
    }
    save(prefix + ".csv", csv);
    save(prefix + ".json", table.dump(2) + "\n");
    std::size_t ok = 0;
    for (const Json& row : rows) ok += row["status"] == "ok";
    if (!settings().quiet)
        std::cerr << "tundrel batch: " << rows.size() << " runs (" << ok << " ok) in " << prefix << ".csv and "
                  << prefix << ".json\n";
    return 0;
}

}  // namespace

void addBatchCommand(CLI::App& app, int& status) {
    auto a = std::make_shared<BatchArgs>();
    CLI::App* cmd = app.add_subcommand(
        "batch", "Run a campaign: the same steps on many runs, each in its own folder, with restart");
    cmd->add_option("campaign", a->campaign, "Campaign file (JSON)")->required()->check(CLI::ExistingFile);
    cmd->add_option("--jobs,-j", a->jobs, "Runs at once; the cores are shared among them")
        ->check(intIn(1, 1024))
        ->capture_default_str();
    cmd->add_option("--shard", a->shard, "K/N: only runs K, K+N, K+2N, ... (K from 0 to N-1)")
        ->check(CLI::Validator(
            [](std::string& t) {
                std::size_t k = 0, n = 0;
                char end = 0;
                return std::sscanf(t.c_str(), "%zu/%zu%c", &k, &n, &end) == 2 && n > 0 && k < n
                           ? std::string()
                           : "accepts K/N with 0 <= K < N, not " + t;
            },
            "K/N"));
    cmd->add_flag("--dry-run", a->dryRun, "List the runs of this shard, done or to run, and start none");
    cmd->add_flag("--collect", a->collect, "Merge the runs' summaries into one table, CSV and JSON");
    cmd->add_option("--out", a->out, "With --collect: the table's files, OUT.csv and OUT.json (default OUTPUT/campaign)");
    cmd->add_option("--fields", a->fields, "With --collect: the fields whose statistics are columns (default all but x, y, z)")
        ->delimiter(',');
    cmd->add_option("--run-one", a->runOne)->group("");
    cmd->add_option("--stage", a->stage)->group("");
    cmd->callback([a, &status] {
        std::vector<std::string> problems;
        const Campaign c = batch::loadCampaign(a->campaign, problems);
        if (!problems.empty()) {
            for (const std::string& p : problems) error(a->campaign + ": " + p);
            status = kUsage;
            return;
        }
        if (!a->runOne.empty()) {
            const auto r = std::find_if(c.runs.begin(), c.runs.end(), [&](const Run& x) { return x.id == a->runOne; });
            if (r == c.runs.end() || a->stage.empty()) throw Failure{"no run " + a->runOne};
            status = batch::runOne(c, *r, a->stage);
            return;
        }
        status = a->collect ? collect(c, *a) : runCampaign(c, *a);
    });
}

}  // namespace tundrel::cli
