#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyn/unix_socket.h>

#include <csignal>
#include <cstddef>
#include <string>
#include <thread>

#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::awaitReadable;
using testing::Connection;
using testing::LogCapture;
using testing::TemporaryFolder;
using testing::UnixTransport;

UnixSocket boundTo(UnixSocket::Type type, const std::string& addr) {
    UnixSocket socket(type);
    return socket.bind(addr) ? socket : UnixSocket();
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

TEST(UnixSocket, KnowsBothAddresses) {
    Connection<UnixTransport> connection;
    const std::string path = connection.listener.getLocalAddr();
    EXPECT_TRUE(exists(path));
    EXPECT_EQ(connection.server.getLocalAddr(), path);
    EXPECT_EQ(connection.server.getRemoteAddr(), "");  // the client was never bound
    EXPECT_EQ(connection.client.getLocalAddr(), "");
    connection.server.reset();
    EXPECT_EQ(connection.client.getRemoteAddr(), path);
    connection.client.reset();
    EXPECT_EQ(connection.client.getRemoteAddr(), "");
}

TEST(UnixSocket, ABoundClientShowsItsAddressToTheListener) {
    TemporaryFolder folder;
    UnixSocket listener = boundTo(UnixSocket::STREAM, folder / "listener");
    ASSERT_TRUE(listener.listen());
    UnixSocket client = boundTo(UnixSocket::STREAM, folder / "client");
    ASSERT_TRUE(client.connect(folder / "listener"));
    ASSERT_TRUE(awaitReadable(listener.fd()));
    EXPECT_EQ(listener.accept().getRemoteAddr(), folder / "client");
}

TEST(UnixSocket, AbstractNamesLiveInNoFolderAndGoWithTheirSocket) {
    const std::string name = "@vyn-test-" + std::to_string(getpid());
    for (int i = 0; i < 2; ++i) {
        UnixSocket listener = boundTo(UnixSocket::STREAM, name);
        ASSERT_TRUE(listener.listen());
        EXPECT_EQ(listener.getLocalAddr(), name);
        EXPECT_FALSE(exists(name));
        UnixSocket client(UnixSocket::STREAM);
        EXPECT_TRUE(client.connect(name));
        EXPECT_EQ(client.getRemoteAddr(), name);
        UnixSocket rival(UnixSocket::STREAM);
        EXPECT_FALSE(rival.bind(name));
        EXPECT_EQ(errno, EADDRINUSE);
    }
    UnixSocket client(UnixSocket::STREAM);
    EXPECT_FALSE(client.connect(name));
}

TEST(UnixSocket, RefusesWhatCannotBeAnAddressWithOneLine) {
    TemporaryFolder folder;
    const size_t longest = sizeof sockaddr_un{}.sun_path - 1;
    const std::string fits = folder / std::string(longest - folder.path().size() - 1, 'x');
    const std::string tooLong = fits + "x";
    UnixSocket socket(UnixSocket::STREAM);
    LogCapture capture;
    EXPECT_FALSE(socket.bind(tooLong));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(capture.texts(),
              std::vector<std::string>{"[36] File name too long. no address of a unix socket: " +
                                       tooLong});
    EXPECT_EQ(folder.entries(), 0);
    for (const std::string& text : {std::string(), std::string("@"), std::string("a\0b", 3)}) {
        capture.clear();
        EXPECT_FALSE(socket.bind(text));
        EXPECT_FALSE(socket.connect(text));
        EXPECT_EQ(socket.sendTo("x", 1, text), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(capture.count("[22] Invalid argument. no address of a unix socket:"), 3);
    }
    EXPECT_TRUE(socket.bind(fits)) << socket.lastErrorMessage();
    EXPECT_EQ(socket.getLocalAddr(), fits);
    EXPECT_TRUE(boundTo(UnixSocket::STREAM, "@" + std::string(longest - 1, 'x')).isValid());
}

TEST(UnixSocket, ReplacesTheFileOfASocketThatIsGone) {
    TemporaryFolder folder;
    const std::string path = folder / "socket";
    for (const auto type : {UnixSocket::STREAM, UnixSocket::STREAM, UnixSocket::DGRAM,
                            UnixSocket::DGRAM, UnixSocket::STREAM}) {
        EXPECT_TRUE(boundTo(type, path).isValid());
        EXPECT_TRUE(exists(path));
    }
}

TEST(UnixSocket, ReplacesTheFileOfAKilledProcess) {
    TemporaryFolder folder;
    const std::string path = folder / "socket";
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t owner = fork();
    if (owner == 0) {
        UnixSocket listener(UnixSocket::STREAM);
        const bool listening = listener.bind(path) && listener.listen();
        if (write(ready[1], listening ? "y" : "n", 1) == 1) pause();
        _exit(0);
    }
    char listening = 'n';
    EXPECT_EQ(read(ready[0], &listening, 1), 1);
    EXPECT_EQ(listening, 'y');
    UnixSocket heir(UnixSocket::STREAM);
    EXPECT_FALSE(heir.bind(path));
    EXPECT_EQ(errno, EADDRINUSE);
    kill(owner, SIGKILL);
    waitpid(owner, nullptr, 0);
    EXPECT_TRUE(heir.bind(path)) << heir.lastErrorMessage();
    EXPECT_TRUE(heir.listen());
    close(ready[0]);
    close(ready[1]);
}

TEST(UnixSocket, LeavesTheFileOfALiveSocketAndDoesNotDisturbIt) {
    TemporaryFolder folder;
    UnixSocket listener = boundTo(UnixSocket::STREAM, folder / "listening");
    ASSERT_TRUE(listener.listen());
    UnixSocket bound = boundTo(UnixSocket::STREAM, folder / "bound");
    UnixSocket datagrams = boundTo(UnixSocket::DGRAM, folder / "datagrams");
    for (const char* name : {"listening", "bound", "datagrams"}) {
        for (const auto type : {UnixSocket::STREAM, UnixSocket::DGRAM}) {
            UnixSocket rival(type);
            EXPECT_FALSE(rival.bind(folder / name));
            EXPECT_EQ(errno, EADDRINUSE);
        }
    }
    EXPECT_FALSE(listener.accept().isValid());  // no rival's probe waits here
    UnixSocket client(UnixSocket::STREAM);
    EXPECT_TRUE(client.connect(folder / "listening"));
}

TEST(UnixSocket, RemovesNothingButSockets) {
    TemporaryFolder folder;
    const std::string file = folder.write("file", "precious");
    boundTo(UnixSocket::STREAM, folder / "stale");
    ASSERT_EQ(symlink((folder / "stale").c_str(), (folder / "link").c_str()), 0);
    ASSERT_EQ(mkdir((folder / "folder").c_str(), 0700), 0);
    for (const char* name : {"file", "link", "folder"}) {
        UnixSocket socket(UnixSocket::STREAM);
        EXPECT_FALSE(socket.bind(folder / name));
        EXPECT_EQ(errno, EADDRINUSE);
    }
    EXPECT_EQ(folder.read("file"), "precious");
    EXPECT_EQ(folder.entries(), 4);
}

TEST(UnixSocket, TellsWhoIsAtTheOtherEnd) {
    Connection<UnixTransport> connection;
    for (const UnixSocket* end : {&connection.server, &connection.client}) {
        const auto peer = end->peerCredentials();
        ASSERT_TRUE(peer.has_value());
        EXPECT_EQ(peer->pid, getpid());
        EXPECT_EQ(peer->uid, geteuid());
        EXPECT_EQ(peer->gid, getegid());
    }
    EXPECT_FALSE(UnixSocket(UnixSocket::STREAM).peerCredentials().has_value());
    EXPECT_FALSE(UnixSocket().peerCredentials().has_value());
}

TEST(UnixSocket, WaitsForRoomInTheBacklogAtMostItsTimeout) {
    TemporaryFolder folder;
    UnixSocket listener = boundTo(UnixSocket::STREAM, folder / "socket");
    ASSERT_EQ(::listen(listener.fd(), 0), 0);
    UnixSocket first(UnixSocket::STREAM);
    ASSERT_TRUE(first.connect(folder / "socket"));
    UnixSocket second(UnixSocket::STREAM);
    EXPECT_FALSE(second.connect(folder / "socket", 30));
    EXPECT_EQ(errno, EAGAIN);

    std::thread late([&] { EXPECT_TRUE(listener.accept().isValid()); });
    EXPECT_TRUE(second.connect(folder / "socket", 60000));
    late.join();

    timeval sendTimeout{1, 1};
    socklen_t length = sizeof sendTimeout;
    getsockopt(second.fd(), SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, &length);
    EXPECT_EQ(sendTimeout.tv_sec * 1000000 + sendTimeout.tv_usec, 0);  // sends still wait for ever
}

TEST(UnixSocket, CarriesOneDatagramARead) {
    TemporaryFolder folder;
    UnixSocket server = boundTo(UnixSocket::DGRAM, folder / "server");
    UnixSocket client = boundTo(UnixSocket::DGRAM, folder / "client");
    ASSERT_TRUE(client.connect(folder / "server"));
    EXPECT_EQ(client.send("one", 3), 3);
    EXPECT_EQ(client.send("", 0), 0);
    EXPECT_EQ(client.send("three", 5), 5);

    char buffer[16] = {};
    std::string from;
    EXPECT_EQ(server.recvFrom(buffer, sizeof buffer, 10000, &from), 3);
    EXPECT_EQ(from, folder / "client");
    EXPECT_EQ(server.recv(buffer, sizeof buffer), 0);
    EXPECT_EQ(server.recv(buffer, 2, 10000), 2);
    EXPECT_EQ(server.recv(buffer, sizeof buffer, 0), -1);  // the rest of a datagram is lost

    EXPECT_EQ(server.sendTo("back", 4, from), 4);
    EXPECT_EQ(client.recv(buffer, sizeof buffer, 10000), 4);
    UnixSocket nameless(UnixSocket::DGRAM);
    EXPECT_EQ(nameless.sendTo("x", 1, folder / "server"), 1);
    EXPECT_EQ(server.recvFrom(buffer, sizeof buffer, 10000, &from), 1);
    EXPECT_EQ(from, "");
}

}  // namespace
}  // namespace vyn
