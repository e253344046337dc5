#include "core/debug_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <shared_mutex>

#include "core/platform.h"

namespace Vantyx {
namespace {

constexpr size_t kLineBytes = 4096;

// The sink and its user pointer change together under one lock, and a line is handed over
// while the lock is held shared: once SetLogSink returns, no thread is still inside the old
// sink, so a test's capture object may go away right after it uninstalls itself.
struct SinkState {
  std::shared_mutex lock;
  LogSink sink = nullptr;
  void* user = nullptr;
};

SinkState& Sink() {
  static SinkState state;
  return state;
}

}  // namespace

void SetLogSink(LogSink sink, void* user) {
  SinkState& s = Sink();
  std::unique_lock<std::shared_mutex> guard(s.lock);
  s.sink = sink;
  s.user = sink ? user : nullptr;
}

int32_t DebugLog(const char* format, ...) {
  char message[kLineBytes];
  int n = -1;
  if (format) {
    va_list args;
    va_start(args, format);
    n = std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
  }
  // A failed format still leaves a tagged (empty) line behind; an over-long one is cut short.
  if (n < 0) message[0] = '\0';

  char line[kLineBytes];
  if (std::snprintf(line, sizeof line, "%s %s", "[VNTX]", message) < 0) line[0] = '\0';
  size_t used = std::strlen(line);  // the bytes actually kept
  if (used == 0 || line[used - 1] != '\n') {
    if (used + 1 < sizeof line) {
      line[used] = '\n';
      line[used + 1] = '\0';
    } else {
      line[sizeof line - 2] = '\n';  // truncated: the line feed replaces the last kept byte
    }
  }

  SinkState& s = Sink();
  {
    std::shared_lock<std::shared_mutex> guard(s.lock);
    if (s.sink)
      s.sink(line, s.user);
    else
      platform::DebugOutput(line);
  }
  return n;
}

void LogStageFailure(const char* stage, int32_t code) {
  DebugLog("[Vantyx](%s) - Return Code: %x", stage ? stage : "", static_cast<unsigned>(code));
}

void Stopwatch::Start() {
  running = 1;
  start_ns = lap_ns = platform::NowNs();
}

void Stopwatch::StartTwice() {
  Start();
  Start();
}

void Stopwatch::Stop() {
  running = 0;
  lap_ns = platform::NowNs();
}

double Stopwatch::ElapsedSeconds() const {
  const int64_t now = platform::NowNs();
  const int64_t from = running ? start_ns : lap_ns;
  return static_cast<double>(now - from) / 1e9;
}

}  // namespace Vantyx
