// gateway PORT SETTINGS-FILE STATE-FOLDER
//
// One process with all that the library offers; commands.h tells what its peers may say. It listens
// on a TCP port of this machine and on the Unix socket "gateway.sock" in the folder that
// config::getUnixSocketPath() names. SIGINT, SIGTERM or "quit" on its console stop it.
#include <cstdlib>
#include <iostream>

#include "commands.h"
#include "machine.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: gateway PORT SETTINGS-FILE STATE-FOLDER" << std::endl;
        return 2;
    }
    const std::string stateFolder = argv[3];
    const std::string socketPath = vyn::config::getUnixSocketPath() + "gateway.sock";
    vyn::config::applyLogLevels();
    vyn::config::setAsyncWritting(true);  // a peer that does not read holds up nobody else

    vyn::Connector loop;
    StopSignals signals(loop);
    SettingsFile settings(loop, argv[2]);
    Recorder recorder(loop, stateFolder + "/events.log");
    Peers peers(loop, settings.current(), std::atoi(argv[1]), socketPath);
    Commands commands(peers, recorder, stateFolder + "/topics");
    RouteWatch routes(loop, [&](const std::string& text) { commands.publish("network", text); });
    Console console(loop);
    std::cout << "listening on port " << peers.port() << " and on " << socketPath << std::endl;
    loop.run();
    std::cout << "stopped" << std::endl;
}
