// Strip dispatch: the split arithmetic, result collection and refusals. The long runs of the
// effect and stress tests (and TSan over them) exercise the hand-over to the workers.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "core/block_segmenter.h"
#include "test_support.h"

namespace Vantyx {
namespace {

struct Seen {
  std::atomic<int> calls{0};
  std::atomic<void*> owner{nullptr};
  std::atomic<uint32_t> covered{0};  // pixels summed over all blocks
};

int32_t Record(BlockJob* job, int32_t* result) {
  auto* seen = static_cast<Seen*>(job->args);
  seen->calls.fetch_add(1);
  seen->covered.fetch_add((job->rect.right - job->rect.left) * (job->rect.bottom - job->rect.top));
  seen->owner = job->owner;
  *result = 0;
  return 0;
}

// step = extent / workers (truncated); block i covers [i step, (i + 1) step) from the near
// edge, the last one the rest. Every block is posted, empty ones too.
TEST(Segmenter, SplitsWorkedByHand) {
  const struct {
    int32_t workers;
    ProcessRect rect;
    bool rows;
    std::vector<uint32_t> edges;  // near edge of each block, then the far edge of the last
  } rows[] = {
      {8, {3, 0, 50, 100}, true, {0, 12, 24, 36, 48, 60, 72, 84, 100}},  // step 12
      {4, {10, 2, 13, 9}, false, {10, 10, 10, 10, 13}},                 // step 0: three empty
      {7, {0, 5, 4, 6}, true, {5, 5, 5, 5, 5, 5, 5, 6}},
      {7, {0, 5, 4, 55}, true, {5, 12, 19, 26, 33, 40, 47, 55}},          // 50 / 7 = 7, 7 + 1
      {7, {0, 0, 4, 1081}, true, {0, 154, 308, 462, 616, 770, 924, 1081}},  // 154, 154 + 3
      {1, {7, 3, 19, 11}, true, {3, 11}},
  };
  for (const auto& r : rows) {
    CThreadPool pool;
    pool.Create(r.workers);
    BlockSegmenter seg;
    ASSERT_EQ(seg.Bind(&pool), 0);
    ASSERT_EQ(seg.BlockCount(), r.workers);
    ASSERT_EQ(seg.SplitBlocks(&r.rect, r.rows), 0);
    for (int32_t i = 0; i < r.workers; ++i) {
      ProcessRect want = r.rect;
      (r.rows ? want.top : want.left) = r.edges[size_t(i)];
      (r.rows ? want.bottom : want.right) = r.edges[size_t(i) + 1];
      EXPECT_EQ(std::memcmp(&seg.BlockRect(i), &want, sizeof(want)), 0) << r.workers << " workers, block " << i;
    }
    Seen seen;
    int owner_tag = 0;
    EXPECT_EQ(seg.SegmentBlock(&Record, &seen, &owner_tag, &r.rect, r.rows), 0);
    EXPECT_EQ(seen.calls.load(), r.workers);
    EXPECT_EQ(seen.covered.load(), (r.rect.right - r.rect.left) * (r.rect.bottom - r.rect.top));
    EXPECT_EQ(seen.owner.load(), static_cast<void*>(&owner_tag));
  }
  BlockSegmenter unbound;
  EXPECT_EQ(unbound.Bind(nullptr), VX_E_POINTER);
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
  const struct {
    int32_t codes[4];
    int32_t want;
  } rows[] = {{{0, VX_E_INVALIDARG, 0, VX_E_FAIL}, VX_E_FAIL},
              {{VX_E_FAIL, 0, VX_E_INVALIDARG, 0}, VX_E_INVALIDARG},
              {{0, 1, 0, 2}, 0},  // positive codes are not failures
              {{0, 0, 0, 0}, 0}};  // a later dispatch starts clean
  for (const auto& row : rows)
    EXPECT_EQ(seg.SegmentBlock(&Planted, const_cast<int32_t*>(row.codes), nullptr, &r, false), row.want);
}

TEST(Segmenter, RefusalsPostNothing) {
  CThreadPool pool;
  pool.Create(2);
  BlockSegmenter seg;
  seg.Bind(&pool);
  const ProcessRect r{0, 0, 8, 8};
  Seen seen;
  test::LogCapture capture;
  EXPECT_EQ(seg.SegmentBlock(&Record, nullptr, nullptr, &r, true), VX_E_INVALIDARG);
  EXPECT_EQ(seg.SegmentBlock(nullptr, &seen, nullptr, &r, true), VX_E_INVALIDARG);
  BlockSegmenter unbound;  // no workers to split over
  EXPECT_EQ(unbound.SplitBlocks(&r, true), VX_E_INVALIDARG);
  EXPECT_TRUE(capture.Lines().empty());  // no log for these
  EXPECT_EQ(unbound.SegmentBlock(&Record, &seen, nullptr, &r, true), VX_E_INVALIDARG);
  EXPECT_EQ(capture.Lines(),
            std::vector<std::string>{"[VNTX] [Vantyx] SegmentBlock(process_rect, "
                                     "b_is_horizontal_segment) Error! - Return Code: 80070057\n"});
  EXPECT_EQ(seen.calls.load(), 0);
}

}  // namespace
}  // namespace Vantyx
