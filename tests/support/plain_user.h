#pragma once

#include <unistd.h>

namespace vyn::testing {

// While it lives, a process of root has the rights of a plain user, whom file permissions bind.
// Changes nothing for other users.
class PlainUser {
  public:
    PlainUser() {
        if (mWasRoot && setresuid(kNobody, kNobody, 0) != 0) _exit(1);
    }
    ~PlainUser() {
        if (mWasRoot && setresuid(0, 0, 0) != 0) _exit(1);
    }

  private:
    static constexpr uid_t kNobody = 65534;

    const bool mWasRoot = geteuid() == 0;
};

}  // namespace vyn::testing
