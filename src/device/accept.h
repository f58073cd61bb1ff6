// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/socket.h>

namespace vyn::io {

// Accepts a waiting connection: a blocking, close-on-exec descriptor, or -1. When the process is
// out of descriptors one waiting connection is accepted and closed. The peer's address may be null.
// Any thread.
int acceptConnection(int listener, sockaddr* address, socklen_t* length);

// For a loop whose listener had no connection to accept, by the errno of that: for how many
// milliseconds it had better not look again. Otherwise one that stays ready would keep it busy.
int msUntilNextAccept(int error);

// Holds the descriptor back that acceptConnection() needs when there is no other. Any thread.
void reserveSpareDescriptor();

}  // namespace vyn::io
