// The debug log: one printf-like routine that tags each line "[VNTX]" and hands it to the
// platform's debug output, and a small stopwatch.
#pragma once

#include <cstdint>

namespace Vantyx {

// Formats the message, sends "[VNTX] <message>\n" as one line; returns the message length or -1.
int32_t DebugLog(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Where finished lines go. The default is platform::DebugOutput; tests install their own to
// read lines back. Passing null restores the default. Safe to call while other threads log.
using LogSink = void (*)(const char* line, void* user);
void SetLogSink(LogSink sink, void* user);

// The stage-failure line every pipeline writes: "[Vantyx](<stage>) - Return Code: <hex>".
void LogStageFailure(const char* stage, int32_t code);

class Stopwatch {
 public:
  void Start();
  void StartTwice();  // two readings in a row; the second wins
  void Stop();        // keeps the reading of the stop as the lap
  double ElapsedSeconds() const;

 private:
  int16_t running = 0;
  int64_t start_ns = 0;
  int64_t lap_ns = 0;
};

}  // namespace Vantyx
