// Strip dispatch: the split arithmetic, result collection, refusals and a stress run.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "core/block_segmenter.h"
#include "test_support.h"

namespace Vantyx {
namespace {

constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);
constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);
constexpr int32_t kNullPointer = static_cast<int32_t>(0x80004003u);

bool SameRect(const ProcessRect& a, const ProcessRect& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

struct Seen {
  std::atomic<int> calls{0};
  std::atomic<void*> owner{nullptr};
  std::atomic<uint32_t> covered{0};  // rows or columns summed over all blocks
};

int32_t Record(BlockJob* job, int32_t* result) {
  auto* seen = static_cast<Seen*>(job->args);
  seen->calls.fetch_add(1);
  seen->covered.fetch_add((job->rect.right - job->rect.left) * (job->rect.bottom - job->rect.top));
  seen->owner = job->owner;  // every block carries the same owner
  *result = 0;
  return 0;
}

TEST(Segmenter, BindTakesThePoolsWorkerCount) {
  BlockSegmenter seg;
  EXPECT_EQ(seg.BlockCount(), 0);
  EXPECT_EQ(seg.Bind(nullptr), kNullPointer);
  CThreadPool pool;
  pool.Create(5);
  EXPECT_EQ(seg.Bind(&pool), 0);
  EXPECT_EQ(seg.BlockCount(), 5);
}

TEST(Segmenter, RowsZeroToHundredInEight) {
  CThreadPool pool;
  pool.Create(8);
  BlockSegmenter seg;
  seg.Bind(&pool);
  const ProcessRect r{3, 0, 50, 100};
  ASSERT_EQ(seg.SplitBlocks(&r, true), 0);
  // step = 100 / 8 = 12: blocks 0-6 cover rows 0-84 in steps of 12, block 7 rows 84-100.
  for (uint32_t i = 0; i < 7; ++i)
    EXPECT_TRUE(SameRect(seg.BlockRect(i), ProcessRect{3, 12 * i, 50, 12 * (i + 1)})) << i;
  EXPECT_TRUE(SameRect(seg.BlockRect(7), ProcessRect{3, 84, 50, 100}));
}

TEST(Segmenter, ColumnsTenToThirteenInFour) {
  CThreadPool pool;
  pool.Create(4);
  BlockSegmenter seg;
  seg.Bind(&pool);
  const ProcessRect r{10, 2, 13, 9};
  ASSERT_EQ(seg.SplitBlocks(&r, false), 0);
  // step = 3 / 4 = 0: blocks 0-2 are empty at column 10, block 3 covers 10-13.
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(SameRect(seg.BlockRect(i), ProcessRect{10, 2, 10, 9}));
  EXPECT_TRUE(SameRect(seg.BlockRect(3), ProcessRect{10, 2, 13, 9}));
  // Empty blocks are still posted: four calls, and the pixels add up to the rectangle.
  Seen seen;
  int owner_tag = 0;
  EXPECT_EQ(seg.SegmentBlock(&Record, &seen, &owner_tag, &r, false), 0);
  EXPECT_EQ(seen.calls.load(), 4);
  EXPECT_EQ(seen.covered.load(), 3u * 7u);
  EXPECT_EQ(seen.owner.load(), static_cast<void*>(&owner_tag));
}

TEST(Segmenter, OddSplitsCoverEachRowOnce) {
  CThreadPool pool;
  pool.Create(7);
  BlockSegmenter seg;
  seg.Bind(&pool);
  for (uint32_t h : {1u, 6u, 7u, 8u, 50u, 1081u}) {
    const ProcessRect r{0, 5, 4, 5 + h};
    ASSERT_EQ(seg.SplitBlocks(&r, true), 0);
    uint32_t next = 5;
    for (int i = 0; i < 7; ++i) {
      EXPECT_EQ(seg.BlockRect(i).top, next) << h << " " << i;
      EXPECT_GE(seg.BlockRect(i).bottom, seg.BlockRect(i).top);
      next = seg.BlockRect(i).bottom;
    }
    EXPECT_EQ(next, 5 + h);
    // The last block holds the step plus the remainder: h / 7 + h % 7 rows.
    EXPECT_EQ(seg.BlockRect(6).bottom - seg.BlockRect(6).top, h / 7 + h % 7);
  }
}

TEST(Segmenter, OneWorkerOneBlock) {
  CThreadPool pool;
  pool.Create(1);
  BlockSegmenter seg;
  seg.Bind(&pool);
  const ProcessRect r{7, 3, 19, 11};
  Seen seen;
  EXPECT_EQ(seg.SegmentBlock(&Record, &seen, nullptr, &r, true), 0);  // null owner accepted
  EXPECT_EQ(seen.calls.load(), 1);
  EXPECT_TRUE(SameRect(seg.BlockRect(0), r));
}

// Each block answers the code planted for its column.
int32_t Planted(BlockJob* job, int32_t* result) {
  *result = static_cast<const int32_t*>(job->args)[job->rect.left];
  return 0;
}

TEST(Segmenter, HighestFailingBlockDecides) {
  CThreadPool pool;
  pool.Create(4);
  BlockSegmenter seg;
  seg.Bind(&pool);
  const ProcessRect r{0, 0, 4, 1};  // one column per block
  const int32_t codes[4] = {0, kInvalidArg, 0, kFail};
  EXPECT_EQ(seg.SegmentBlock(&Planted, const_cast<int32_t*>(codes), nullptr, &r, false), kFail);
  const int32_t reversed[4] = {kFail, 0, kInvalidArg, 0};
  EXPECT_EQ(seg.SegmentBlock(&Planted, const_cast<int32_t*>(reversed), nullptr, &r, false),
            kInvalidArg);
  const int32_t positive[4] = {0, 1, 0, 2};  // positive codes are not failures
  EXPECT_EQ(seg.SegmentBlock(&Planted, const_cast<int32_t*>(positive), nullptr, &r, false), 0);
  // A later dispatch starts clean.
  const int32_t ok[4] = {0, 0, 0, 0};
  EXPECT_EQ(seg.SegmentBlock(&Planted, const_cast<int32_t*>(ok), nullptr, &r, false), 0);
}

TEST(Segmenter, RefusalsPostNothing) {
  CThreadPool pool;
  pool.Create(2);
  BlockSegmenter seg;
  seg.Bind(&pool);
  const ProcessRect r{0, 0, 8, 8};
  Seen seen;
  test::LogCapture capture;
  EXPECT_EQ(seg.SegmentBlock(&Record, nullptr, nullptr, &r, true), kInvalidArg);
  EXPECT_EQ(seg.SegmentBlock(nullptr, &seen, nullptr, &r, true), kInvalidArg);
  EXPECT_EQ(seen.calls.load(), 0);
  EXPECT_TRUE(capture.Lines().empty());  // no log for null arguments

  BlockSegmenter unbound;  // no workers to split over
  EXPECT_EQ(unbound.SplitBlocks(&r, true), kInvalidArg);
  EXPECT_TRUE(capture.Lines().empty());
  EXPECT_EQ(unbound.SegmentBlock(&Record, &seen, nullptr, &r, true), kInvalidArg);
  ASSERT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(capture.Lines()[0],
            "[VNTX] [Vantyx] SegmentBlock(process_rect, b_is_horizontal_segment) Error! - "
            "Return Code: 80070057\n");
  EXPECT_EQ(seen.calls.load(), 0);
}

TEST(Segmenter, PoolShrunkAfterBindStillCompletes) {
  // Bound to 8 workers, then the pool restarts with 2: the 8 blocks queue up on 2 workers.
  CThreadPool pool;
  pool.Create(8);
  BlockSegmenter seg;
  seg.Bind(&pool);
  pool.Create(2);
  const ProcessRect r{0, 0, 16, 16};
  Seen seen;
  EXPECT_EQ(seg.SegmentBlock(&Record, &seen, nullptr, &r, true), 0);
  EXPECT_EQ(seen.calls.load(), 8);
  EXPECT_EQ(seen.covered.load(), 256u);
  pool.Destroy();  // no workers at all: refused per block, never a hang
  EXPECT_EQ(seg.SegmentBlock(&Record, &seen, nullptr, &r, true), kInvalidArg);
  EXPECT_EQ(seen.calls.load(), 8);
}

struct Stress {
  std::atomic<uint64_t> rows{0};
  uint32_t per_block[MAX_POOL_THREADS] = {};  // each block writes only its own entry
};

int32_t StressBlock(BlockJob* job, int32_t* result) {
  auto* s = static_cast<Stress*>(job->args);
  const uint32_t rows = job->rect.bottom - job->rect.top;
  s->rows.fetch_add(rows, std::memory_order_relaxed);
  s->per_block[job->rect.top / 3] += 1;  // plain writes: TSan checks the hand-over orders them
  *result = 0;
  return 0;
}

TEST(Segmenter, StressTwentyThousandDispatches) {
  CThreadPool pool;
  pool.Create(8);
  BlockSegmenter seg;
  ASSERT_EQ(seg.Bind(&pool), 0);
  ASSERT_EQ(seg.BlockCount(), 8);
  Stress s;
  const ProcessRect r{0, 0, 1, 24};  // 3 rows per block
  constexpr int kDispatches = 20000;
  for (int i = 0; i < kDispatches; ++i)
    ASSERT_EQ(seg.SegmentBlock(&StressBlock, &s, nullptr, &r, true), 0) << i;
  EXPECT_EQ(s.rows.load(), uint64_t{24} * kDispatches);
  for (int b = 0; b < 8; ++b) EXPECT_EQ(s.per_block[b], uint32_t(kDispatches)) << b;
}

}  // namespace
}  // namespace Vantyx
