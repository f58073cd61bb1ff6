// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>

#include <vyn/export.h>

namespace vyn {

// One pointer for each thread, null until that thread sets it. What it points to is not owned: it
// is not deleted when the thread or the Tls ends. Any thread may call set() and get().
class VYN_API Tls {
  public:
    Tls();
    // Leaves the pthread key in existence, so a thread that still runs never meets a reused key.
    ~Tls();
    Tls(const Tls&) = delete;
    Tls& operator=(const Tls&) = delete;

    // Stores the calling thread's pointer.
    void set(void* value);
    // The calling thread's pointer, or null.
    [[nodiscard]] void* get() const;

  private:
    pthread_key_t* mKey;
};

}  // namespace vyn
