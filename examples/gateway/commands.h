#pragma once

#include <vyn/helper.h>

#include <algorithm>
#include <cstdio>

#include "jobs.h"
#include "peers.h"
#include "recorder.h"
#include "topics.h"

// What peers may say. Each command is a line, and so is each answer:
//
//     AUTH TOKEN         over TCP the first line        WELCOME, or DENIED and the end
//     PUB TOPIC TEXT     publishes                      OK
//     SUB TOPIC          from the last text on          OK, and for each text EVENT TOPIC TEXT
//     UNSUB [TOPIC]      without a topic, all of them   OK
//     HASH TEXT          others may overtake it         HASH MD5 CHECKSUM
//     SNAPSHOT           saves the last texts           OK
//     STATUS             see struct Status              STATUS XML
//     PING               shows that the peer lives      PONG
//
// What can not be done is answered with a line that begins with ERR. Answers that a peer does not
// wait for are lost.
class Commands {
  public:
    Commands(Peers& peers, Recorder& recorder, const std::string& snapshotPath)
        : mPeers(peers), mRecorder(recorder), mSnapshotPath(snapshotPath), mJobs(peers) {
        restoreSnapshot(mTopics, mSnapshotPath);
        peers.onLine = [this](PeerId peer, const std::string& line) { perform(peer, line); };
        peers.onGone = [this](PeerId peer) { mTopics.unsubscribe(peer, ""); };
    }

    // False when there are too many topics.
    bool publish(const std::string& name, const std::string& text) {
        Topic* const topic = mTopics.obtain(name);
        if (topic == nullptr) return false;
        topic->value = text;
        for (const PeerId peer : topic->subscribers) mPeers.send(peer, event(name, text));
        mRecorder.record(name + " " + text);
        return true;
    }

  private:
    void perform(PeerId peer, const std::string& line) {
        const auto [word, arguments] = cutWord(line);
        if (word == "PUB") return mPeers.send(peer, pub(arguments));
        if (word == "SUB") return sub(peer, arguments);
        if (word == "UNSUB") return unsub(peer, arguments);
        if (word == "HASH") return hash(peer, arguments);
        if (word == "SNAPSHOT") return snapshot(peer);
        if (word == "STATUS") return mPeers.send(peer, "STATUS " + status());
        mPeers.send(peer, word == "PING" ? "PONG" : "ERR no such command");
    }
    std::string pub(const std::string& arguments) {
        const auto [name, text] = cutWord(arguments);
        if (name.empty() || text.empty()) return "ERR no topic or no text";
        return publish(name, text) ? "OK" : "ERR too many topics";
    }
    void sub(PeerId peer, const std::string& name) {
        const bool isName = !name.empty() && name.find(' ') == std::string::npos;
        Topic* const topic = isName ? mTopics.obtain(name) : nullptr;
        if (topic == nullptr) return mPeers.send(peer, "ERR no topic, or too many");
        topic->subscribers.insert(peer);
        mPeers.send(peer, "OK");
        if (!topic->value.empty()) mPeers.send(peer, event(name, topic->value));
    }
    void unsub(PeerId peer, const std::string& name) {
        mTopics.unsubscribe(peer, name);
        mPeers.send(peer, "OK");
    }
    void hash(PeerId peer, const std::string& text) {
        const auto work = [text] {
            const int size = static_cast<int>(text.size());
            char checksum[9];
            std::snprintf(checksum, sizeof checksum, "%08X", vyn::helper::crc32(text.data(), size));
            return "HASH " + vyn::helper::md5sum(text.data(), size) + " " + checksum;
        };
        mJobs.run(work, [this, peer](const std::string& answer) { mPeers.send(peer, answer); });
    }
    void snapshot(PeerId peer) {
        if (std::exchange(mIsSaving, true)) return mPeers.send(peer, "ERR one is being saved");
        vyn::Buffer block;
        mTopics.saveTo(block);
        const auto work = [block, path = mSnapshotPath] {
            return saveSnapshot(block, path) ? "OK" : "ERR not saved";
        };
        mJobs.run(work, [this, peer](const std::string& answer) {
            mIsSaving = false;
            mPeers.send(peer, answer);
        });
    }
    std::string status() const {
        Status status;
        status.peers = mPeers.count();
        for (const auto& [name, topic] : mTopics.byName) status.topics[name] = topic.value;
        std::string xml = status.encode();
        const auto isLayout = [](char byte) { return byte == '\n' || byte == '\t'; };
        xml.erase(std::remove_if(xml.begin(), xml.end(), isLayout), xml.end());
        return xml;
    }

    // The first word, and what stands behind the blank that ends it.
    static std::pair<std::string, std::string> cutWord(const std::string& text) {
        const size_t blank = text.find(' ');
        if (blank == std::string::npos) return {text, ""};
        return {text.substr(0, blank), text.substr(blank + 1)};
    }
    static std::string event(const std::string& name, const std::string& text) {
        return "EVENT " + name + " " + text;
    }

    Peers& mPeers;
    Recorder& mRecorder;
    const std::string mSnapshotPath;
    bool mIsSaving = false;
    Topics mTopics;
    Jobs mJobs;
};
