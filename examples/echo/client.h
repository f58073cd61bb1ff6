// SPDX-License-Identifier: Apache-2.0

#pragma once

// Client mode: `arguments` are the port and the texts to send. Returns the exit status.
int runClient(int count, char** arguments);
