// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/helper.h>
#include <vyn/ini_config.h>
#include <vyn/thread_pool.h>

#include "peers.h"
#include "recorder.h"
#include "topics.h"

// What peers may say. Each command is a line, and so is each answer:
//
//     AUTH TOKEN       over TCP the first line    WELCOME, or DENIED and the end
//     PUB TOPIC TEXT   publishes                  OK
//     SUB TOPIC        from the last text on      OK, and for each text EVENT TOPIC TEXT
//     UNSUB TOPIC      ends that                  OK
//     HASH TEXT        digests it                 HASH MD5
//     SNAPSHOT         saves the last texts       OK, once they are saved
//     STATUS           see struct Status          STATUS XML
//     PING             shows that the peer lives  PONG
//
// What can not be done is answered with a line that begins with ERR. Answers that a peer does not
// wait for are lost.
class Commands : public vyn::Message::Callback {
  public:
    Commands(Peers& peers, Recorder& recorder, const std::string& snapshotPath)
        : mPeers(peers), mRecorder(recorder), mSnapshot(snapshotPath) {
        vyn::Buffer topics;
        topics.fromHexString(mSnapshot.get("topics", ""));
        mTopics.loadFrom(topics);
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

    // The snapshot for a peer has been saved, or could not be.
    void onMessage(vyn::Message message) override {
        mIsSaving = false;
        mPeers.send(message.arg1, message.arg2 != 0 ? "OK" : "ERR not saved");
    }

  private:
    void perform(PeerId peer, const std::string& line) {
        const auto [word, text] = cutWord(line);
        if (word == "SUB") return subscribe(peer, text);
        if (word == "SNAPSHOT") return saveSnapshot(peer);
        mPeers.send(peer, answer(peer, word, text));
    }
    std::string answer(PeerId peer, const std::string& word, const std::string& text) {
        if (word == "PING") return "PONG";
        if (word == "STATUS") return "STATUS " + status();
        if (word == "HASH") {
            return "HASH " + vyn::helper::md5sum(text.data(), static_cast<int>(text.size()));
        }
        const auto [name, value] = cutWord(text);
        if (word == "UNSUB" && !name.empty()) return mTopics.unsubscribe(peer, name), "OK";
        if (word != "PUB") return "ERR no such command";
        if (name.empty() || value.empty()) return "ERR no topic or no text";
        return publish(name, value) ? "OK" : "ERR too many topics";
    }
    void subscribe(PeerId peer, const std::string& name) {
        const bool isName = !name.empty() && name.find(' ') == std::string::npos;
        Topic* const topic = isName ? mTopics.obtain(name) : nullptr;
        if (topic == nullptr) return mPeers.send(peer, "ERR no topic, or too many");
        topic->subscribers.insert(peer);
        mPeers.send(peer, "OK");
        if (!topic->value.empty()) mPeers.send(peer, event(name, topic->value));
    }
    // On another thread, because saving waits for the storage.
    void saveSnapshot(PeerId peer) {
        if (std::exchange(mIsSaving, true)) return mPeers.send(peer, "ERR one is being saved");
        vyn::Buffer topics;
        mTopics.saveTo(topics);
        mSnapshot.set("topics", topics.toHexString(), false);
        mPool.addTask([this, peer] { save(peer); });
    }
    // On the pool's thread.
    void save(PeerId peer) {
        const int isSaved = mSnapshot.save() ? 1 : 0;
        if (isSaved == 0) VYN_LOG_ERROR << "the snapshot is not saved";
        mPeers.sendMessage(vyn::Message::obtain(this, 0, peer, isSaved, nullptr));
    }
    std::string status() const {
        std::string line;
        for (const char byte : Status(mPeers.count(), mTopics).encode()) {
            if (byte != '\n' && byte != '\t') line += byte;  // layout
        }
        return line;
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
    vyn::IniConfig mSnapshot;  // the pool's while mIsSaving
    bool mIsSaving = false;
    Topics mTopics;
    vyn::ThreadPool mPool{1};  // the last member: its thread ends before the others go
};
