#pragma once

// The log call of a device as the library uses it, for compiling its files elsewhere.

extern "C" int __android_log_write(int priority, const char* tag, const char* text);
