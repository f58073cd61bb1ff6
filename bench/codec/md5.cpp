// SPDX-License-Identifier: Apache-2.0

#include <openssl/evp.h>
#include <vyn/helper.h>

#include "codec/codec.h"
#include "support/repeat.h"

namespace bench {

namespace {

double ours(const std::string& bytes) {
    return nanosecondsFor(
        [&bytes] { keep(vyn::helper::md5sum(bytes.data(), static_cast<int>(bytes.size()))); });
}

// The algorithm is looked up once, as its manual advises. The digest stays as bytes: OpenSSL makes
// no text of it.
double openssl(const std::string& bytes) {
    EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "MD5", nullptr);
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    if (algorithm == nullptr || context == nullptr) fail("OpenSSL has no MD5");
    const double nanoseconds = nanosecondsFor([&] {
        unsigned char digest[EVP_MAX_MD_SIZE];
        EVP_DigestInit_ex2(context, algorithm, nullptr);
        EVP_DigestUpdate(context, bytes.data(), bytes.size());
        EVP_DigestFinal_ex(context, digest, nullptr);
        keep(digest);
    });
    EVP_MD_CTX_free(context);
    EVP_MD_free(algorithm);
    return nanoseconds;
}

}  // namespace

std::vector<Contest> md5Contests() {
    std::vector<Contest> contests;
    for (const size_t size : {64, 4096, 1 << 20}) {
        const std::string name = "md5-" + std::to_string(size);
        contests.push_back(timed(name, "ours", [size] { return ours(noise(size)); }));
        contests.push_back(timed(name, "openssl", [size] { return openssl(noise(size)); }));
    }
    return contests;
}

}  // namespace bench
