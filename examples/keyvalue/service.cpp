// SPDX-License-Identifier: Apache-2.0

// keyvalue PORT [SOCKET-FILE]     keeps values by key, and passes messages on, for clients that
//                                 speak RESP and know KEYVALUE_PASSWORD of the environment, if it
//                                 is there. SIGINT or SIGTERM stops it when all is answered.
#include <vyn/config.h>
#include <vyn/handler.h>
#include <vyn/net_device.h>
#include <vyn/signal_device.h>
#include <vyn/unix_device.h>

#include <charconv>
#include <csignal>
#include <iostream>
#include <memory>
#include <set>
#include <unordered_map>

#include "request_parser.h"

constexpr int kLastWordsMs = 2000;

struct Client : vyn::Worker {
    explicit Client(vyn::BaseDevice* device) : Worker(device, new RequestParser(*this)) {
        device->setReadSize(256 << 10);
        setEagerWriting(true);
        setMaxPendingBytes(64 << 20);  // of answers, while it does not read
    }
    ~Client() override { delete getParser(), delete getDevice(); }

    void answer(std::string_view text) { writeRaw(text.data(), static_cast<int>(text.size())); }
    void answerNumber(int64_t number) { answer(":" + std::to_string(number) + "\r\n"); }
    void answerBulk(std::string_view text) {
        answer("$" + std::to_string(text.size()) + "\r\n"), answer(text), answer("\r\n");
    }

    bool authenticated = false;
    std::set<std::string> topics;
};

class KeyValueService : public vyn::Handler {
  public:
    KeyValueService(vyn::Connector& loop, const char* password)
        : Handler(loop), mPassword(password == nullptr ? "" : password) {}
    void onNewConnection(vyn::Worker* listener, int, void* data) override {
        const bool isTcp =
            std::string_view("ListenerDevice") == listener->getDevice()->getClassName();
        isTcp ? admit<vyn::NetDevice>(static_cast<const vyn::Socket*>(data))
              : admit<vyn::UnixDevice>(static_cast<const vyn::UnixSocket*>(data));
    }
    void onCommand(vyn::Worker* worker, vyn::Command* command) override {
        static const std::unordered_map<std::string_view, Entry> commands = {
            {"PING", {1, 2, &KeyValueService::ping, false}},
            {"ECHO", {2, 2, &KeyValueService::echo, false}},
            {"GET", {2, 2, &KeyValueService::get, false}},
            {"SET", {3, 3, &KeyValueService::set, false}},
            {"DEL", {2, SIZE_MAX, &KeyValueService::del, false}},
            {"INCR", {2, 2, &KeyValueService::incr, false}},
            {"AUTH", {2, 3, &KeyValueService::auth, true}},
            {"SUBSCRIBE", {2, SIZE_MAX, &KeyValueService::subscribe, false}},
            {"PUBLISH", {3, 3, &KeyValueService::publish, false}},
            {"QUIT", {1, 1, &KeyValueService::quit, true}},
        };
        const Words& words = static_cast<Request*>(command)->words;
        if (words.empty()) return;
        Client& client = *static_cast<Client*>(worker);
        key(words[0]);
        for (char& letter : mKey) letter = static_cast<char>(std::toupper(letter & 0xff));
        const auto found = commands.find(mKey);
        if (found == commands.end()) return client.answer("-ERR no such command\r\n");
        const Entry& entry = found->second;
        if (!client.authenticated && !entry.forAll) return client.answer("-NOAUTH\r\n");
        const bool isRight = words.size() >= entry.fewest && words.size() <= entry.most;
        isRight ? (this->*entry.function)(client, words)
                : client.answer("-ERR wrong number of words\r\n");
    }
    void onDisconnected(vyn::Worker* worker) override {
        auto* client = static_cast<Client*>(worker);
        for (const std::string& topic : client->topics) mSubscribers[topic].erase(client);
        mLoop.removeWorkerLocked(client);
        mClients.erase(client);
    }

  private:
    using Words = std::vector<std::string_view>;
    struct Entry {
        size_t fewest, most;  // words
        void (KeyValueService::*function)(Client&, const Words&);
        bool forAll;  // also for clients that are not authenticated
    };

    template <class DeviceType, class SocketType>
    void admit(const SocketType* accepted) {
        if (!accepted->isValid()) return;
        auto client = std::make_unique<Client>(new DeviceType(accepted));
        client->authenticated = mPassword.empty();
        mLoop.addWorkerLocked(client.get(), this);
        mClients[client.get()] = std::move(client);
    }
    // Looking something up with it allocates no memory, as a new string would.
    const std::string& key(std::string_view word) { return mKey.assign(word); }

    void ping(Client& client, const Words& words) {
        words.size() > 1 ? client.answerBulk(words[1]) : client.answer("+PONG\r\n");
    }
    void echo(Client& client, const Words& words) { client.answerBulk(words[1]); }
    void get(Client& client, const Words& words) {
        const auto found = mValues.find(key(words[1]));
        found == mValues.end() ? client.answer("$-1\r\n") : client.answerBulk(found->second);
    }
    void set(Client& client, const Words& words) {
        mValues[key(words[1])] = words[2];
        client.answer("+OK\r\n");
    }
    void del(Client& client, const Words& words) {
        size_t deleted = 0;
        for (size_t i = 1; i < words.size(); ++i) deleted += mValues.erase(key(words[i]));
        client.answerNumber(static_cast<int64_t>(deleted));
    }
    void incr(Client& client, const Words& words) {
        std::string& value = mValues.try_emplace(key(words[1]), "0").first->second;
        const char* const end = value.data() + value.size();
        int64_t number = 0;
        const auto [last, error] = std::from_chars(value.data(), end, number);
        const bool mayGrow = error == std::errc() && last == end && number < INT64_MAX;
        if (!mayGrow) return client.answer("-ERR no number that one can be added to\r\n");
        value = std::to_string(++number);
        client.answerNumber(number);
    }
    void auth(Client& client, const Words& words) {
        client.authenticated = mPassword.empty() || words.back() == mPassword;
        client.answer(client.authenticated ? "+OK\r\n" : "-WRONGPASS another password\r\n");
    }
    void subscribe(Client& client, const Words& words) {
        for (auto topic = words.begin() + 1; topic != words.end(); ++topic) {
            client.topics.emplace(*topic);
            mSubscribers[key(*topic)].insert(&client);
            client.answer("*3\r\n$9\r\nsubscribe\r\n"), client.answerBulk(*topic);
            client.answerNumber(static_cast<int64_t>(client.topics.size()));
        }
    }
    void publish(Client& client, const Words& words) {
        const auto found = mSubscribers.find(key(words[1]));
        if (found == mSubscribers.end()) return client.answer(":0\r\n");
        for (Client* subscriber : found->second) {
            subscriber->answer("*3\r\n$7\r\nmessage\r\n");
            subscriber->answerBulk(words[1]), subscriber->answerBulk(words[2]);
        }
        client.answerNumber(static_cast<int64_t>(found->second.size()));
    }
    void quit(Client& client, const Words&) {
        client.answer("+OK\r\n");
        client.disconnectWhenWritten(kLastWordsMs);
    }

    const std::string mPassword;
    std::string mKey;
    std::unordered_map<std::string, std::string> mValues;
    std::unordered_map<std::string, std::set<Client*>> mSubscribers;  // by topic
    std::unordered_map<Client*, std::unique_ptr<Client>> mClients;
};

int main(int argc, char** argv) {
    vyn::config::setAsyncWritting(true);  // a client that does not read holds up nobody else
    vyn::Connector loop;
    KeyValueService service(loop, std::getenv("KEYVALUE_PASSWORD"));
    vyn::SignalDevice stopSignals({SIGINT, SIGTERM},
                                  [&](const auto&) { loop.requestStop(kLastWordsMs); });
    vyn::Worker stopping(&stopSignals, nullptr);
    loop.addWorkerLocked(&stopping, &service);
    vyn::ListenerDevice tcp;
    if (!tcp.listen(argc > 1 ? std::atoi(argv[1]) : 0, "127.0.0.1")) return 1;
    vyn::Worker tcpListener(&tcp, nullptr);
    loop.addWorkerLocked(&tcpListener, &service);
    std::unique_ptr<vyn::UnixListenerDevice> local;
    if (argc > 2) local = std::make_unique<vyn::UnixListenerDevice>(argv[2]);
    vyn::Worker localListener(local.get(), nullptr);
    if (local) loop.addWorkerLocked(&localListener, &service);
    std::cout << "listening on port " << tcp.socket().getHostPort() << std::endl;
    loop.run();
    std::cout << "stopped" << std::endl;
}
