// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/export.h>

namespace vyn {

class Worker;

// Decides whether a peer may talk. While pass() is false the peer's bytes come here instead of to
// the parser, and Worker::write() refuses to send. The base class lets everybody pass.
//
// Everything is called on the loop's thread. The application owns its authenticators.
class VYN_API Authenticator {
  public:
    virtual ~Authenticator();

    // True when the peer is authenticated.
    virtual bool pass();
    // Starts an authentication, for example by sending a challenge with worker()->writeRaw().
    virtual void require();
    // Takes the bytes of a peer that has not passed. Once it has decided, it makes pass() answer
    // the verdict and calls worker()->onAuthenticated() or worker()->onAuthenticationFailed(), as
    // its last act: the application may delete worker and authenticator in there.
    virtual void onData(const void* data, int len);

    // Sets the worker, which is not owned. Worker::attach(Authenticator*) calls it.
    void attach(Worker* worker);
    // The worker this authenticator speaks for, or null.
    [[nodiscard]] Worker* worker() const;

  private:
    Worker* mWorker = nullptr;
};

}  // namespace vyn
