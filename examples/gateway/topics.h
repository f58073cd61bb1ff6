// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/archive.h>
#include <vyn/xml_codec.h>

#include <iterator>
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

// What STATUS tells: <gateway peers="2"><topic name="news" value="hello"/></gateway>
struct Status : vyn::XmlDocument {
    Status(int peerCount, const Topics& itsTopics) : peers(peerCount), topics(itsTopics) {}
    void writeXml(vyn::XmlCodec* codec) override {
        codec->enter("gateway", true);
        codec->put("peers", peers);
        for (const auto& [name, topic] : topics.byName) {
            codec->enter("topic", true);
            codec->put("name", name);
            codec->put("value", topic.value);
            codec->leave();
        }
        codec->leave();
    }
    void readXml(vyn::XmlCodec*) override {}  // nobody sends it to the gateway

    const int peers;
    const Topics& topics;
};
