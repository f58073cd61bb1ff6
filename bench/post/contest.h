// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <future>
#include <thread>

#include "support/bench.h"
#include "support/machine.h"

// Messages from other threads, which share a core of theirs, to a loop. Each contestant is a class
// of this shape:
//
//     explicit Loop(Receiver& receiver);
//     void post(const Item& item);    // any thread
//     void run();                     // gives each item to the receiver, until stop()
//     void stop();                    // from the receiver
namespace post {

struct Item {
    int what;
    void* object;
};

class Receiver {
  public:
    virtual ~Receiver() = default;
    virtual void receive(const Item& item) = 0;
};

constexpr int kMessages = 1000000;
constexpr int kHops = 50000;
constexpr size_t kWarmUpHops = 1000;

// Ends the loop with the last message. What it counts lies in no line of the cache that posters
// look at in a loop.
template <class Loop>
struct Counter : Receiver {
    Loop loop{*this};
    alignas(64) int count = 0;
    void receive(const Item&) override {
        if (++count == kMessages) loop.stop();
    }
};

template <class Loop>
void throughput(int threads) {
    Counter<Loop> counter;
    std::atomic<int> waiting{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> posters;
    for (int i = 0; i < threads; ++i) {
        posters.emplace_back([&] {
            bench::pinTo(bench::kLoadCore);
            ++waiting;
            while (!go) std::this_thread::yield();
            for (int n = kMessages / threads; n > 0; --n) counter.loop.post({n, &counter});
        });
    }
    bench::pinTo(bench::kMeasuredCore);
    while (waiting < threads) std::this_thread::yield();
    const int64_t cpuBefore = bench::threadCpuTime();
    const int64_t begin = bench::now();
    go = true;
    counter.loop.run();
    const int64_t duration = bench::now() - begin;
    const int64_t cpu = bench::threadCpuTime() - cpuBefore;
    for (std::thread& poster : posters) poster.join();
    bench::report("messages_per_s", kMessages * 1e9 / static_cast<double>(duration), "1/s");
    bench::report("cpu_per_message", static_cast<double>(cpu) / kMessages, "ns");
}

// What the two sides share; only the one whose turn it is touches it.
struct Rally {
    int64_t sentAt = 0;
    std::vector<int64_t> latencies;
};

template <class Loop>
struct Player : Receiver {
    explicit Player(Rally& shared) : rally(shared) {}
    Rally& rally;
    Loop loop{*this};
    Loop* peer = nullptr;

    void receive(const Item& item) override {
        rally.latencies.push_back(bench::now() - rally.sentAt);
        if (item.what > 0) send(item.what - 1);
        if (item.what <= 1) loop.stop();
    }
    void send(int what) {
        rally.sentAt = bench::now();
        peer->post({what, &rally});
    }
};

// From the call that posts to the handler's beginning, both loops being idle: on a core each, or
// both on one.
template <class Loop>
void oneWay(int otherCore) {
    Rally rally;
    rally.latencies.reserve(kHops + 1);
    Player<Loop> here(rally);
    std::promise<Player<Loop>*> started;
    std::promise<void> over;
    std::thread other([&] {
        bench::pinTo(otherCore);
        Player<Loop> there(rally);
        there.peer = &here.loop;
        started.set_value(&there);
        there.loop.run();
        over.get_future().wait();  // the other side may still be in its last post()
    });
    bench::pinTo(bench::kMeasuredCore);
    here.peer = &started.get_future().get()->loop;
    here.send(kHops);
    here.loop.run();
    over.set_value();
    other.join();
    rally.latencies.erase(rally.latencies.begin(), rally.latencies.begin() + kWarmUpHops);
    bench::report("latency_p50", bench::percentile(rally.latencies, 0.5) / 1000, "us");
    bench::report("latency_p99", bench::percentile(rally.latencies, 0.99) / 1000, "us");
}

template <class Loop>
std::vector<bench::Contest> contests(const char* name) {
    return {{"1-thread", name, [] { throughput<Loop>(1); }},
            {"4-threads", name, [] { throughput<Loop>(4); }},
            {"one-way", name, [] { oneWay<Loop>(bench::kLoadCore); }},
            {"one-way-one-core", name, [] { oneWay<Loop>(bench::kMeasuredCore); }}};
}

std::vector<bench::Contest> ours();
std::vector<bench::Contest> libuv();
std::vector<bench::Contest> libevent();
std::vector<bench::Contest> asio();
std::vector<bench::Contest> epoll();

}  // namespace post
