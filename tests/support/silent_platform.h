#pragma once

#include <cstdarg>

// The platform for a program that runs only the recorder: no dump is waiting to be fetched, the
// limit is the launch's, and log messages go nowhere.
namespace test_support {

// What is done with each log message, on its thread. Set before the recorder is used.
using LogHandler = void (*)(const char* format, va_list arguments);
void SetLogHandler(LogHandler handler);

}  // namespace test_support
