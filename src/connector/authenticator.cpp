// SPDX-License-Identifier: Apache-2.0

#include <vyn/authenticator.h>

namespace vyn {

Authenticator::~Authenticator() = default;

bool Authenticator::pass() { return true; }

void Authenticator::require() {}

void Authenticator::onData(const void*, int) {}

void Authenticator::attach(Worker* worker) { mWorker = worker; }

Worker* Authenticator::worker() const { return mWorker; }

}  // namespace vyn
