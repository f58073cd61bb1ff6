// SPDX-License-Identifier: Apache-2.0

#pragma once

#define __NDK_MAJOR__ 25
