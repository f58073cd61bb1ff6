// Any bytes as the block of an archive: the whole records at its beginning are read, and flattening
// them gives these bytes again.

#include <vyn/archive.h>
#include <vyn/logging.h>

#include <cstring>
#include <string>

#include "support/archive_block.h"

namespace vyn {
namespace {

bool holds(const Buffer& flat, const char* bytes, size_t size) {
    return static_cast<size_t>(flat.size) == size &&
           (size == 0 || std::memcmp(flat.data, bytes, size) == 0);
}

void checkFlattening(const char* block, size_t size) {
    const size_t readable = testing::readableBytes(block, size);
    Archive archive(block, static_cast<int>(size));
    Buffer flat;
    archive.copyTo(flat);
    VYN_CHECK(holds(flat, block, readable));
    archive.putSerializeData(block, static_cast<int>(size));
    archive.copyTo(flat);
    VYN_CHECK(holds(flat, (std::string(block, readable) + std::string(block, readable)).data(),
                    2 * readable));
}

// Takes the items in every way there is, and puts those taken whole into another archive.
void checkItems(const char* block, size_t size) {
    Archive archive(block, static_cast<int>(size));
    Archive taken;
    size_t total = 0;
    for (Buffer item; !archive.empty(); total += static_cast<size_t>(item.size) + 4) {
        archive >> item;
        taken << item;
    }
    VYN_CHECK(total == testing::readableBytes(block, size));
    Buffer flat;
    taken.copyTo(flat);
    VYN_CHECK(holds(flat, block, total));
    for (int i = 0; !taken.empty(); ++i) {
        std::string text;
        char bytes[3] = {};
        if (i % 2 == 0) taken >> text;
        if (i % 2 == 1) taken.get(bytes, sizeof bytes);
        VYN_CHECK(text.find('\0') == std::string::npos);
    }
}

}  // namespace
}  // namespace vyn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* block = reinterpret_cast<const char*>(data);
    vyn::checkFlattening(block, size);
    vyn::checkItems(block, size);
    return 0;
}
