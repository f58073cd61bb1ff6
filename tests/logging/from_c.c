#include <vyn/logging_printf.h>

void logFromC(int number) { VYN_PRINTF(VYN_LEVEL_INFO, "from C: %d", number); }
