// The processes of a `tundrel` run started by an MPI launcher (mpirun,
// srun): one model's self-illumination correction shared out over them.
// Without MPI in the build, or outside a launcher, there is one rank and
// nothing here does anything.
#pragma once

#include <cstdint>
#include <functional>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

namespace tundrel::cli {

class Ranks {
public:
    // Starts MPI when the process runs under a launcher. Ranks other than 0
    // print nothing: what they write on standard output and error is held,
    // and reaches rank 0 only when they fail.
    Ranks(int& argc, char**& argv);
    ~Ranks();
    Ranks(const Ranks&) = delete;
    Ranks& operator=(const Ranks&) = delete;

    int rank() const noexcept { return rank_; }
    int size() const noexcept { return size_; }
    bool several() const noexcept { return size_ > 1; }

    // Runs `step` on every rank (it returns false after printing why it
    // failed; an exception it throws is printed as main prints it) and then
    // waits for all: true when every rank succeeded. Otherwise rank 0 prints
    // what the first failing rank printed (when that is not rank 0 itself)
    // and every rank returns false.
    bool step(const std::function<bool()>& work);

    // Adds `values` element by element over the ranks into rank 0's copy.
    void sumToRoot(std::vector<double>& values);
    void sumToRoot(std::vector<std::int64_t>& values);

private:
    bool agree(bool ok);

    int rank_ = 0, size_ = 1;
    bool started_ = false;
    std::stringbuf held_;
    std::streambuf* out_ = nullptr;
    std::streambuf* err_ = nullptr;
};

// The ranks of this run, set up by main().
Ranks& ranks();

// Prints the exception being handled as main() prints it; the exit status.
int printFailure();

}  // namespace tundrel::cli
