// Cuts a stage's rectangle into one strip per worker, posts the strips to the pool and waits
// for all of them. One per effect; never used by two threads at once.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "core/thread_pool.h"
#include "vantyx.h"

namespace Vantyx {

struct BlockJob;
using BlockFn = int32_t (*)(BlockJob* job, int32_t* result);

struct BlockJob {
  void* owner = nullptr;       // passed through untouched
  void* args = nullptr;        // the stage's argument record
  ProcessRect rect{0, 0, 0, 0};  // the strip
  BlockFn entry = nullptr;     // the stage entry the pool runs for this job
  uint8_t done = 0;            // set by the worker under the block's done_mutex
};

class BlockSegmenter {
 public:
  BlockSegmenter();
  ~BlockSegmenter();
  BlockSegmenter(const BlockSegmenter&) = delete;
  BlockSegmenter& operator=(const BlockSegmenter&) = delete;

  // 0x80004003 for a null pool; otherwise block_count = the pool's thread count.
  int32_t Bind(CThreadPool* pool);
  // Split and run; the failing block with the highest index decides the result.
  int32_t SegmentBlock(BlockFn fn, void* args, void* owner, const ProcessRect* process_rect,
                       bool b_is_horizontal_segment);
  // The splitting half: writes jobs[i].rect. 0x80070057 (no log) when block_count is 0.
  int32_t SplitBlocks(const ProcessRect* process_rect, bool b_is_horizontal_segment);
  // The posting and waiting half over the rectangles already in jobs.
  int32_t RunBlocks(BlockFn fn, void* args, void* owner);

  int32_t BlockCount() const { return block_count; }
  const ProcessRect& BlockRect(int32_t i) const { return jobs[i].rect; }

 private:
  CThreadPool* pool = nullptr;
  pthread_cond_t done_cond[MAX_POOL_THREADS];
  pthread_mutex_t done_mutex[MAX_POOL_THREADS];
  int32_t results[MAX_POOL_THREADS] = {};
  BlockJob jobs[MAX_POOL_THREADS];
  int32_t block_count = 0;
};

}  // namespace Vantyx
