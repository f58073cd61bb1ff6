#include <vyn/lock.h>

namespace vyn {

Lock::Lock() { pthread_mutex_init(&mMutex, nullptr); }

Lock::~Lock() = default;

}  // namespace vyn
