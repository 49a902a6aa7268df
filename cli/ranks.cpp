// The ranks of an MPI run (see ranks.h).
#include "cli/ranks.h"

#include <cstdlib>
#include <iostream>
#include <new>

#include "cli/cli.h"

#ifdef TUNDREL_WITH_MPI
#include <mpi.h>
#endif

namespace tundrel::cli {

namespace {

Ranks* g_ranks = nullptr;

#ifdef TUNDREL_WITH_MPI
// Set by the launchers of Open MPI, PMIx (srun) and the PMI-1/2 family.
bool underLauncher() {
    for (const char* name : {"OMPI_COMM_WORLD_SIZE", "PMIX_RANK", "PMI_RANK", "PMI_SIZE"})
        if (std::getenv(name) != nullptr) return true;
    return false;
}
#endif

}  // namespace

Ranks::Ranks([[maybe_unused]] int& argc, [[maybe_unused]] char**& argv) {
    g_ranks = this;
#ifdef TUNDREL_WITH_MPI
    if (!underLauncher()) return;
    int provided = 0;
    // Only the main thread calls MPI; the passes' own threads never do.
    if (MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided) != MPI_SUCCESS) return;
    started_ = true;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank_);
    MPI_Comm_size(MPI_COMM_WORLD, &size_);
    if (rank_ != 0) {
        out_ = std::cout.rdbuf(&held_);
        err_ = std::cerr.rdbuf(&held_);
    }
#endif
}

Ranks::~Ranks() {
    if (out_ != nullptr) std::cout.rdbuf(out_);
    if (err_ != nullptr) std::cerr.rdbuf(err_);
#ifdef TUNDREL_WITH_MPI
    if (started_) MPI_Finalize();
#endif
    g_ranks = nullptr;
}

bool Ranks::step(const std::function<bool()>& work) {
    bool ok = false;
    try {
        ok = work();
    } catch (...) {
        printFailure();
    }
    return agree(ok);
}

bool Ranks::agree(bool ok) {
#ifdef TUNDREL_WITH_MPI
    if (!several()) return ok;
    // The first rank that failed, or size_ when none did.
    int mine = ok ? size_ : rank_, first = size_;
    MPI_Allreduce(&mine, &first, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
    if (first > 0 && first < size_) {
        if (rank_ == first) {
            char host[MPI_MAX_PROCESSOR_NAME] = {};
            int length = 0;
            MPI_Get_processor_name(host, &length);
            const std::string text = held_.str() + "tundrel: " + settings().command + ": the failure above is rank " +
                                     std::to_string(rank_) + "'s of " + std::to_string(size_) + ", on " +
                                     std::string(host, static_cast<std::size_t>(length)) + "\n";
            const int size = static_cast<int>(text.size());
            MPI_Send(&size, 1, MPI_INT, 0, 0, MPI_COMM_WORLD);
            MPI_Send(text.data(), size, MPI_CHAR, 0, 1, MPI_COMM_WORLD);
        } else if (rank_ == 0) {
            int size = 0;
            MPI_Recv(&size, 1, MPI_INT, first, 0, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
            std::string text(static_cast<std::size_t>(size), '\0');
            MPI_Recv(text.data(), size, MPI_CHAR, first, 1, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
            std::cerr << text << std::flush;
        }
    }
    held_.str({});
    return first == size_;
#else
    return ok;
#endif
}

void Ranks::sumToRoot([[maybe_unused]] std::vector<double>& values) {
#ifdef TUNDREL_WITH_MPI
    if (!several()) return;
    MPI_Reduce(rank_ == 0 ? MPI_IN_PLACE : values.data(), values.data(), static_cast<int>(values.size()), MPI_DOUBLE,
               MPI_SUM, 0, MPI_COMM_WORLD);
#endif
}

void Ranks::sumToRoot([[maybe_unused]] std::vector<std::int64_t>& values) {
#ifdef TUNDREL_WITH_MPI
    if (!several()) return;
    MPI_Reduce(rank_ == 0 ? MPI_IN_PLACE : values.data(), values.data(), static_cast<int>(values.size()),
               MPI_INT64_T, MPI_SUM, 0, MPI_COMM_WORLD);
#endif
}

Ranks& ranks() { return *g_ranks; }

int printFailure() {
    try {
        throw;
    } catch (const Failure& f) {
        if (f.libraryText) std::cerr << f.message << '\n';
        else error(f.message);
    } catch (const arrayWorks::GenericError& e) {
        std::cerr << e.message << " (" << e.file << ", line " << e.line << ")\n";
    } catch (const std::bad_alloc&) {
        std::cerr << "tundrel: not enough memory for "
                  << (settings().command.empty() ? std::string("the command") : settings().command) << "\n";
    } catch (const std::exception& e) {
        error(e.what());
    } catch (...) {
        error("failed");
    }
    return kFailure;
}

}  // namespace tundrel::cli
