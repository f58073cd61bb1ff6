// SPDX-License-Identifier: Apache-2.0

#include <vyn/connector.h>
#include <vyn/logging.h>
#include <vyn/tls.h>

#include "connector/connector_impl.h"
#include "connector/connector_linux.h"
#include "connector/loop_ticket.h"

namespace vyn {

namespace {

// Each thread's connector. Never destroyed: loops may still run when the process exits.
Tls& currentConnector() {
    static Tls* const tls = new Tls();
    return *tls;
}

}  // namespace

Connector::Executor::~Executor() = default;

void Connector::Executor::sendMessage(const Message& message) { sendMessageDelayed(message, 0); }

void Connector::Executor::sendMessageDelayed(const Message& message, long delayMs) {
    Connector* const connector = __atomic_load_n(&mConnector, __ATOMIC_ACQUIRE);
    if (connector != nullptr) connector->sendMessageDelayed(this, message, delayMs);
}

// The destructor uses the thread's place for a connector and the list of loops that have tickets,
// and could bear no failure to make them.
Connector::Connector()
    : mImpl((currentConnector(), LoopTicket::prepare(), createImplement(this))) {}

Connector::~Connector() {
    LoopTicket::end(this);
    destroyImplement(mImpl);
    currentConnector().set(nullptr);
}

Connector* Connector::current() { return static_cast<Connector*>(currentConnector().get()); }

void Connector::attach(Executor* executor) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->attach(executor);
}

void Connector::detach(Executor* executor) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->detach(executor);
}

void Connector::addWorkerLocked(Worker* worker, Executor* executor) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->addWorkerLocked(worker, executor);
}

void Connector::removeWorkerLocked(Worker* worker) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->removeWorkerLocked(worker);
}

void Connector::run() {
    if (current() != nullptr) {
        VYN_LOG_FATAL << "only one connector is allowed on each thread.";
        return;
    }
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    currentConnector().set(this);
    mImpl->run();
}

void Connector::stop() {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->stop();
}

void Connector::requestStop(int flushMs) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->requestStop(flushMs);
}

void Connector::dump(std::ostream& os) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->dump(os);
}

int Connector::addTimer(Timer* timer, long intervalMs, void* arg) {
    VYN_CHECK_OR_RETURN_VALUE(mImpl != NULL, -1);
    return mImpl->addTimer(timer, intervalMs, arg);
}

void Connector::removeTimer(int id) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->removeTimer(id);
}

void Connector::resetTimer(int id) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->resetTimer(id);
}

void Connector::setInterval(int id, long intervalMs) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->setInterval(id, intervalMs);
}

void Connector::setFairness(int turns) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->setFairness(turns);
}

void Connector::sendMessageDelayed(Executor* executor, const Message& message, long delayMs) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->sendMessageDelayed(executor, message, delayMs);
}

uint64_t Connector::post(std::function<void()> function, long delayMs) {
    VYN_CHECK_OR_RETURN_VALUE(mImpl != NULL, 0);
    return function ? mImpl->post(std::move(function), delayMs) : 0;
}

uint64_t Connector::every(long ms, std::function<void()> function) {
    VYN_CHECK_OR_RETURN_VALUE(mImpl != NULL, 0);
    return function ? mImpl->every(ms, std::move(function)) : 0;
}

void Connector::cancel(uint64_t id) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->cancel(id);
}

void Connector::removeMessages(Executor* executor) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->removeMessages(executor, nullptr);
}

void Connector::removeMessages(Executor* executor, int what) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->removeMessages(executor, &what);
}

void Connector::setDropListener(std::function<void(const Message&)> listener) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->setDropListener(std::move(listener));
}

bool Connector::isOnLoopThread() const {
    VYN_CHECK_OR_RETURN_VALUE(mImpl != NULL, false);
    return mImpl->isOnLoopThread();
}

void Connector::queueWrite() {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->queueWrite();
}

void Connector::queueWrite(Worker* worker) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->queueWriteOf(worker);
}

bool Connector::queueOverflow(Worker* worker) {
    VYN_CHECK_OR_RETURN_VALUE(mImpl != NULL, false);
    return mImpl->queueOverflow(worker);
}

void Connector::updateDescriptorsOf(Worker* worker) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->updateDescriptorsOf(worker);
}

void Connector::restDescriptorsOf(Worker* worker, long ms) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->restDescriptorsOf(worker, ms);
}

void Connector::updateReadingOf(Worker* worker) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->updateReadingOf(worker);
}

void Connector::remindOf(Worker* worker, int delayMs) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->remindOf(worker, delayMs);
}

uint64_t Connector::ticketOf(Worker* worker) {
    VYN_CHECK_OR_RETURN_VALUE(mImpl != NULL, 0);
    return mImpl->ticketOf(worker);
}

int Connector::getLoading() {
    VYN_CHECK_OR_RETURN_VALUE(mImpl != NULL, 0);
    return mImpl->getLoading();
}

void Connector::setLoadingRange(int empty, int full) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->setLoadingRange(empty, full);
}

LoopFigures Connector::figures() {
    VYN_CHECK_OR_RETURN_VALUE(mImpl != NULL, {});
    return mImpl->figures();
}

void Connector::setCallbackLimit(int ms) {
    VYN_CHECK_OR_RETURN(mImpl != NULL);
    mImpl->setCallbackLimit(ms);
}

Connector::Impl* Connector::createImplement(Connector* connector) {
    return new LinuxConnector(connector);
}

void Connector::destroyImplement(Impl* impl) {
    VYN_CHECK_OR_RETURN(impl != NULL);
    delete impl;
}

std::ostream& operator<<(std::ostream& os, Connector* connector) {
    if (connector == nullptr) return os << "Connector(NULL)";  // as on a thread without one
    connector->dump(os);
    return os;
}

std::ostream& operator<<(std::ostream& os, Connector& connector) { return os << &connector; }

}  // namespace vyn
