#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <new>

#include "cli/cli.h"
#include "cli/host.h"
#include "cli/ranks.h"

namespace {

// "  convert      Read models ..." for every command.
std::string commandList(const CLI::App& app) {
    std::string list = "Commands:\n";
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        std::string name = sub->get_name();
        name.resize(std::max<std::size_t>(name.size(), 18), ' ');
        list += "  " + name + " " + sub->get_description() + "\n";
    }
    return list + "Run 'tundrel help COMMAND' for a command's options.\n";
}

// Edits (insertions, deletions, changes) between two names.
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = up;
        }
    }
    return row[b.size()];
}

// "; did you mean convert?" for a name two edits or fewer from a command.
std::string nearest(const CLI::App& app, const std::string& name) {
    std::string best;
    std::size_t bestDistance = 3;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
        if (const std::size_t d = distance(name, sub->get_name()); d < bestDistance) {
            bestDistance = d;
            best = sub->get_name();
        }
    return best.empty() ? std::string() : "; did you mean " + best + "?";
}

// `tundrel help [COMMAND]`.
void addHelpCommand(CLI::App& app, int& status) {
    auto topic = std::make_shared<std::string>();
    CLI::App* help = app.add_subcommand("help", "Print the commands, or the options of one command");
    help->add_option("command", *topic, "COMMAND");
    help->callback([&app, topic, &status] {
        if (topic->empty()) {
            std::cout << app.get_formatter()->make_help(&app, "tundrel", CLI::AppFormatMode::Normal)
                      << "Run 'tundrel help COMMAND' for a command's options.\n";
            return;
        }
        for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
            if (sub->get_name() == *topic) {
                std::cout << sub->help();
                return;
            }
        std::cerr << "tundrel: no command " << *topic << "\n" << commandList(app);
        status = tundrel::cli::kUsage;
    });
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tundrel::cli;
    Ranks mpi(argc, argv);  // one rank unless started by an MPI launcher
    CLI::App app{"tundrel: surface geometry and fields of wind-tunnel measurements"};
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", std::string("tundrel ") + TUNDREL_VERSION);
    int status = 0;

    // A write beyond the file size limit fails with its reason instead of
    // ending the process.
    std::signal(SIGXFSZ, SIG_IGN);
    CliHost& host = cliHost();
    host.terminal = ::isatty(STDERR_FILENO) != 0;
    tundrel::HostScope scope(host);
    app.add_flag("--interactive", host.interactive, "Ask the parameters of dialogs on the terminal");
    app.add_flag("--quiet,-q", settings().quiet, "No warnings and no closing line of stage times");

    addModelCommands(app, status);
    addMarkersCommand(app, status);
    addMeshCommands(app, status);
    addPressurePortsCommand(app, status);
    addSelfIlluminationCommand(app, status);
    addRenderCommand(app, status);
    addBatchCommand(app, status);
    addHelpCommand(app, status);
    for (CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
        sub->preparse_callback([sub, &mpi](std::size_t) {
            settings().command = sub->get_name();
            // Other commands would write their output once a rank.
            if (mpi.several() && sub->get_name() != "self-illumination" && sub->get_name() != "help")
                throw CLI::ValidationError("runs in one process; of the commands only self-illumination runs "
                                           "across MPI ranks");
        });

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        if (settings().command.empty()) {
            const std::vector<std::string> extras = app.remaining();
            if (!extras.empty() && extras.front().rfind("-", 0) != 0)
                std::cerr << "tundrel: unknown command " << extras.front() << nearest(app, extras.front()) << "\n";
            else if (dynamic_cast<const CLI::RequiredError*>(&e) != nullptr)
                std::cerr << "tundrel: a command is required\n";
            else
                std::cerr << "tundrel: " << e.what() << "\n";
            std::cerr << commandList(app);
        } else {
            error(e.what());
            std::cerr << "Run 'tundrel help " << settings().command << "' for its options.\n";
        }
        return kUsage;
    } catch (const Failure& f) {
        if (f.libraryText) std::cerr << f.message << '\n';
        else error(f.message);
        return kFailure;
    } catch (const arrayWorks::GenericError& e) {
        std::cerr << e.message << " (" << e.file << ", line " << e.line << ")\n";
        return kFailure;
    } catch (const std::bad_alloc&) {
        std::cerr << "tundrel: not enough memory for "
                  << (settings().command.empty() ? std::string("the command") : settings().command) << "\n";
        return kFailure;
    }
    return status;
}
