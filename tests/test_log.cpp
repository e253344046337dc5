// The debug log: line composition read back through a capturing sink, and the stopwatch.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "core/debug_log.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::LogCapture;

TEST(DebugLog, TagSpaceMessageLineFeed) {
  LogCapture capture;
  EXPECT_EQ(DebugLog("value %d of %s", 7, "x"), 12);  // "value 7 of x"
  EXPECT_EQ(DebugLog("already ends\n"), 13);          // the message's own length, line feed included
  EXPECT_EQ(DebugLog("%s", ""), 0);
  const std::vector<std::string> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "[VNTX] value 7 of x\n");
  EXPECT_EQ(lines[1], "[VNTX] already ends\n");  // no second line feed
  EXPECT_EQ(lines[2], "[VNTX] \n");              // empty message: tag, one space, line feed
}

TEST(DebugLog, StageFailureLine) {
  LogCapture capture;
  LogStageFailure("total process", static_cast<int32_t>(0x80070057u));
  LogStageFailure("blend", static_cast<int32_t>(0x80004001u));
  const std::vector<std::string> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "[VNTX] [Vantyx](total process) - Return Code: 80070057\n");
  EXPECT_EQ(lines[1], "[VNTX] [Vantyx](blend) - Return Code: 80004001\n");
}

TEST(DebugLog, LongMessageIsCutNotOverflowed) {
  LogCapture capture;
  const std::string big(10000, 'a');
  EXPECT_EQ(DebugLog("%s", big.c_str()), 10000);  // the formatted length, as printf counts it
  const std::vector<std::string> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 1u);
  // The line fits its 4096-byte buffer with its terminator and still ends in one line feed.
  EXPECT_EQ(lines[0].size(), 4095u);
  EXPECT_EQ(lines[0].compare(0, 7, "[VNTX] "), 0);
  EXPECT_EQ(lines[0].back(), '\n');
  EXPECT_EQ(lines[0].find('\n'), lines[0].size() - 1);
}

TEST(DebugLog, ManyThreadsWholeLines) {
  LogCapture capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 50; ++i) DebugLog("thread %d line %d", t, i);
    });
  for (auto& th : threads) th.join();
  const std::vector<std::string> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 200u);
  for (const auto& l : lines) {
    EXPECT_EQ(l.compare(0, 14, "[VNTX] thread "), 0) << l;
    EXPECT_EQ(l.find('\n'), l.size() - 1) << l;
  }
}

TEST(DebugLog, SinkRestoredAfterCapture) {
  {
    LogCapture capture;
    DebugLog("captured");
    EXPECT_TRUE(capture.Contains("captured"));
  }
  LogCapture second;  // a fresh capture sees only its own lines
  DebugLog("second");
  ASSERT_EQ(second.Lines().size(), 1u);
  EXPECT_EQ(second.Lines()[0], "[VNTX] second\n");
}

TEST(Stopwatch, NeverNegative) {
  Stopwatch watch;
  watch.Start();
  const double a = watch.ElapsedSeconds();
  EXPECT_GE(a, 0.0);
  EXPECT_GE(watch.ElapsedSeconds(), a);  // monotonic while running
  watch.StartTwice();
  EXPECT_GE(watch.ElapsedSeconds(), 0.0);
  watch.Stop();
  EXPECT_GE(watch.ElapsedSeconds(), 0.0);  // measured from the stop
}

}  // namespace
}  // namespace Vantyx
