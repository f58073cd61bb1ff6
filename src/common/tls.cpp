// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>
#include <vyn/tls.h>

namespace vyn {

Tls::Tls() : mKey(new pthread_key_t()) {
    const int ret = pthread_key_create(mKey, nullptr);
    VYN_CHECK(ret == 0) << logging::ErrnoText{ret};
}

Tls::~Tls() { delete mKey; }

void Tls::set(void* value) {
    const int ret = pthread_setspecific(*mKey, value);
    if (ret != 0) VYN_LOG_ERROR << logging::ErrnoText{ret} << "pthread_setspecific fail.";
}

void* Tls::get() const { return pthread_getspecific(*mKey); }

}  // namespace vyn
