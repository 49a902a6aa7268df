#include <iostream>

#include "cli/cli.h"
#include "cli/host.h"

int main(int argc, char** argv) {
    CLI::App app{"tundrel: surface geometry and fields of wind-tunnel measurements"};
    app.require_subcommand(1);
    int status = 0;

    tundrel::cli::CliHost& host = tundrel::cli::cliHost();
    tundrel::HostScope scope(host);
    app.add_flag("--interactive", host.interactive, "Ask the parameters of dialogs on the terminal");

    tundrel::cli::addModelCommands(app, status);
    tundrel::cli::addMarkersCommand(app, status);
    tundrel::cli::addMeshCommands(app, status);
    tundrel::cli::addPressurePortsCommand(app, status);
    tundrel::cli::addSelfIlluminationCommand(app, status);
    tundrel::cli::addRenderCommand(app, status);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);  // prints help or the usage error
        return code == 0 ? 0 : 2;
    } catch (const arrayWorks::GenericError& e) {
        std::cerr << e.message << " (" << e.file << ", line " << e.line << ")\n";
        return tundrel::cli::kFailure;
    }
    return status;
}
