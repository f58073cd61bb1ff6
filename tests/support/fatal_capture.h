#pragma once

#include "support/log_capture.h"
