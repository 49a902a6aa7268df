// Helpers shared by the tests: scratch files, a scripted host, the command
// line, and (through models.h) the model builders.
#pragma once

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "api/TundrelApi.h"
#include "api/detail/self_illumination_kernel.h"
#include "tests/support/models.h"

namespace testutil {

// For one scope, a tolerance with the obstruction test runs the hierarchical
// walk even where the exact pass would be cheaper: tests of the walk itself.
struct WalkItself {
    WalkItself() { tundrel::detail::preferExactWhenCheaper(false); }
    ~WalkItself() { tundrel::detail::preferExactWhenCheaper(true); }
    WalkItself(const WalkItself&) = delete;
    WalkItself& operator=(const WalkItself&) = delete;
};

namespace fs = std::filesystem;

// A fresh directory per test, removed afterwards.
class ScratchDir {
public:
    ScratchDir() {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string(info->test_suite_name()) + "_" + info->name();
        for (char& c : name)
            if (c == '/') c = '_';
        path_ = fs::temp_directory_path() / ("tundrel_test_" + std::to_string(::getpid())) / name;
        fs::remove_all(path_);
        fs::create_directories(path_);
    }
    ~ScratchDir() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

inline void writeFile(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::binary);
    f << text;
}

inline std::string readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

inline std::string dataFile(const std::string& name) { return std::string(TUNDREL_TEST_DATA) + "/" + name; }

// A test fixture with a scratch directory and a scripted host installed.
class HostTest : public ::testing::Test {
protected:
    tundrel::ScriptedHost host;
    tundrel::HostScope scope{host};
    ScratchDir dir;

    const std::vector<std::string>& messages() const { return host.messages; }
};

// Runs the `tundrel` command with arguments (shell words) and collects its
// exit status and what it printed on both streams.
struct CliRun {
    int status;
    std::string out;
};

// `shell` runs before the command in the same shell (e.g. "ulimit -f 1;").
inline CliRun runCli(const std::string& args, const std::string& shell = "") {
    const std::string cmd = shell + std::string(TUNDREL_CLI) + " " + args + " 2>&1";
    CliRun r{-1, {}};
    FILE* p = ::popen(cmd.c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    const int rc = ::pclose(p);
    r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    return r;
}

}  // namespace testutil
