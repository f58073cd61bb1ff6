#pragma once

#include <unistd.h>
#include <vyn/archive.h>
#include <vyn/file_utils.h>
#include <vyn/logging.h>
#include <vyn/xml_codec.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>

#include "peers.h"

struct Topic {
    std::string value;  // the last text; empty when there was none
    std::set<PeerId> subscribers;
};

// Topics by name. An archive keeps names and values, but no subscribers.
struct Topics : vyn::Serializer {
    std::map<std::string, Topic> byName;

    // The topic, which is made when it is new, or null when there are too many.
    Topic* obtain(const std::string& name) {
        constexpr size_t kMost = 1000;
        return byName.size() < kMost || byName.count(name) != 0 ? &byName[name] : nullptr;
    }
    // Ends one subscription of the peer, or all when `name` is empty.
    void unsubscribe(PeerId peer, const std::string& name) {
        for (auto entry = byName.begin(); entry != byName.end();) {
            Topic& topic = entry->second;
            if (name.empty() || name == entry->first) topic.subscribers.erase(peer);
            const bool isUsed = !topic.value.empty() || !topic.subscribers.empty();
            entry = isUsed ? std::next(entry) : byName.erase(entry);
        }
    }

    void serialize(vyn::Archive& archive) override {
        for (const auto& [name, topic] : byName) {
            if (!topic.value.empty()) archive << name << topic.value;
        }
    }
    void deserialize(vyn::Archive& archive) override {
        while (!archive.empty()) {
            std::string name, value;
            archive >> name >> value;
            if (Topic* topic = obtain(name)) topic->value = value;
        }
    }
};

// Any thread. Replaces the file as a whole, so that it holds a snapshot at all times.
inline bool saveSnapshot(const vyn::Buffer& snapshot, const std::string& path) {
    const std::string fresh = path + ".new";
    std::FILE* file = std::fopen(fresh.c_str(), "wbe");
    if (file != nullptr) {
        const auto size = static_cast<size_t>(snapshot.size);
        bool isWritten = std::fwrite(snapshot.data, 1, size, file) == size;
        isWritten = std::fflush(file) == 0 && fsync(fileno(file)) == 0 && isWritten;
        std::fclose(file);
        if (isWritten && std::rename(fresh.c_str(), path.c_str()) == 0) return true;
    }
    VYN_LOG_ERRNO_ERROR << "can not save " << path;
    return false;
}

inline void restoreSnapshot(Topics& topics, const std::string& path) {
    vyn::Buffer snapshot;
    if (!vyn::fileexists(path) || vyn::readFile(path, snapshot) < 0) return;
    topics.loadFrom(snapshot);
    VYN_LOG_INFO << topics.byName.size() << " topics restored";
}

// What STATUS tells: <gateway peers="2"><topic name="news" value="hello"/></gateway>
struct Status : vyn::XmlDocument {
    int peers = 0;
    std::map<std::string, std::string> topics;

    void writeXml(vyn::XmlCodec* codec) override {
        codec->enter("gateway", true);
        codec->put("peers", peers);
        for (const auto& [name, value] : topics) {
            codec->enter("topic", true);
            codec->put("name", name);
            codec->put("value", value);
            codec->leave();
        }
        codec->leave();
    }
    void readXml(vyn::XmlCodec*) override {}  // nobody sends it to the gateway
};
