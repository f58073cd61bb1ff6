// SPDX-License-Identifier: Apache-2.0

// gateway PORT SETTINGS-FILE STATE-FOLDER
//
// One process with all that the library offers; commands.h tells what its peers may say. It listens
// on a TCP port of this machine and on the Unix socket "gateway.sock" in the folder that
// config::getUnixSocketPath() names. SIGINT, SIGTERM or "quit" on its console stop it.
#include <cstdlib>
#include <exception>
#include <iostream>

#include "commands.h"
#include "machine.h"

void serve(int port, const std::string& settingsFile, const std::string& stateFolder) {
    const std::string socketPath = vyn::config::getUnixSocketPath() + "gateway.sock";
    vyn::config::applyLogLevels();
    vyn::config::setAsyncWritting(true);  // a peer that does not read holds up nobody else

    vyn::Connector loop;
    StopSignals signals(loop);
    SettingsFile settings(loop, settingsFile);
    Recorder recorder(loop, stateFolder + "/events.log");
    Peers peers(loop, settings.current(), port, socketPath);
    Commands commands(peers, recorder, stateFolder + "/topics");
    RouteWatch routes(loop, [&](const std::string& text) { commands.publish("network", text); });
    Console console(loop);
    std::cout << "listening on port " << peers.port() << " and on " << socketPath << std::endl;
    loop.run();
    std::cout << "stopped" << std::endl;
}

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: gateway PORT SETTINGS-FILE STATE-FOLDER" << std::endl;
        return 2;
    }
    try {
        serve(std::atoi(argv[1]), argv[2], argv[3]);
    } catch (const std::exception& error) {  // of the standard library, such as a refused thread
        VYN_LOG_ERROR << "the gateway can not go on: " << error.what();
        return 1;
    }
}
