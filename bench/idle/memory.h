// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "echo/server.h"

namespace idle {

// Reports what a connection that has made a round trip and is idle costs a server: bytes that it
// allocated and their overhead in the heap, and bytes that became resident.
void measureMemory(void (*serve)(const echo::Place& place), int connections);

}  // namespace idle
