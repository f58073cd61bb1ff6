// SPDX-License-Identifier: Apache-2.0

#include "connector/heartbit_timer.h"

#include "connector/connector_linux.h"

namespace vyn {

bool HeartbitTimer::onTimer(void*, int) {
    mConnector.checkHeartbit();
    return true;
}

}  // namespace vyn
