// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn::io {

// Whether a socket is readable for nothing but notices in its error queue, such as the times at
// which its bytes were sent. For a socket that has just had nothing to read.
bool hasOnlyNotices(int fd);

// Whether a socket that was reported readable and then read with this result, below 1, goes on all
// the same: with datagrams that is so for an empty one and for news of one that was not delivered;
// a stream goes on when all there was were notices, which are dropped. Looks at errno.
bool outlivesEmptyRead(int fd, int count);

}  // namespace vyn::io
