#include "core/block_segmenter.h"

#include "core/debug_log.h"

namespace Vantyx {
namespace {

constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);
constexpr int32_t kNullPointer = static_cast<int32_t>(0x80004003u);

// The pool knows only void*: each job is its own BlockJob, which names the stage entry.
int32_t RunBlockJob(void* arg, int32_t* result) {
  auto* job = static_cast<BlockJob*>(arg);
  return job->entry(job, result);
}

}  // namespace

BlockSegmenter::BlockSegmenter() {
  for (int32_t i = 0; i < MAX_POOL_THREADS; ++i) {
    pthread_cond_init(&done_cond[i], nullptr);
    pthread_mutex_init(&done_mutex[i], nullptr);
  }
}

BlockSegmenter::~BlockSegmenter() {
  for (int32_t i = 0; i < MAX_POOL_THREADS; ++i) {
    pthread_cond_destroy(&done_cond[i]);
    pthread_mutex_destroy(&done_mutex[i]);
  }
}

int32_t BlockSegmenter::Bind(CThreadPool* p_pool) {
  if (!p_pool) return kNullPointer;
  pool = p_pool;
  const int32_t count = p_pool->GetThreadCount();
  block_count = count < 0 ? 0 : (count > MAX_POOL_THREADS ? MAX_POOL_THREADS : count);
  return 0;
}

int32_t BlockSegmenter::SegmentBlock(BlockFn fn, void* args, void* owner,
                                     const ProcessRect* process_rect,
                                     bool b_is_horizontal_segment) {
  if (!fn || !args || !process_rect) return kInvalidArg;
  if (block_count == 0) {
    DebugLog(
        "[Vantyx] SegmentBlock(process_rect, b_is_horizontal_segment) Error! - Return Code: %x",
        0x80070057u);
    return kInvalidArg;
  }
  const int32_t rc = SplitBlocks(process_rect, b_is_horizontal_segment);
  if (rc != 0) return rc;
  return RunBlocks(fn, args, owner);
}

int32_t BlockSegmenter::SplitBlocks(const ProcessRect* process_rect,
                                    bool b_is_horizontal_segment) {
  if (block_count == 0 || !process_rect) return kInvalidArg;
  const ProcessRect& r = *process_rect;
  // Signed 32-bit span and truncating step; the unsigned sums below wrap exactly as the
  // 32-bit edges do. The last block takes the whole remainder.
  const int32_t span = b_is_horizontal_segment ? static_cast<int32_t>(r.bottom - r.top)
                                               : static_cast<int32_t>(r.right - r.left);
  const int32_t step = span / block_count;
  for (int32_t i = 0; i < block_count; ++i) {
    const uint32_t near_edge = static_cast<uint32_t>(i * step);
    const uint32_t far_edge = static_cast<uint32_t>((i + 1) * step);
    ProcessRect& b = jobs[i].rect;
    if (b_is_horizontal_segment)
      b = ProcessRect{r.left, r.top + near_edge, r.right, r.top + far_edge};
    else
      b = ProcessRect{r.left + near_edge, r.top, r.left + far_edge, r.bottom};
  }
  if (b_is_horizontal_segment)
    jobs[block_count - 1].rect.bottom = r.bottom;
  else
    jobs[block_count - 1].rect.right = r.right;
  return 0;
}

int32_t BlockSegmenter::RunBlocks(BlockFn fn, void* args, void* owner) {
  if (!fn || !args) return kInvalidArg;
  if (!pool || block_count == 0) return kInvalidArg;

  // Every block, empty ones included, is posted before the first wait, so the strips run side
  // by side. Done mutexes are not held while posting: a worker may finish and report before
  // the next post, and the flag keeps that report until it is collected.
  bool posted[MAX_POOL_THREADS] = {};
  for (int32_t i = 0; i < block_count; ++i) {
    BlockJob& job = jobs[i];
    job.owner = owner;
    job.args = args;
    job.entry = fn;
    results[i] = 0;
    pthread_mutex_lock(&done_mutex[i]);
    job.done = 0;
    pthread_mutex_unlock(&done_mutex[i]);
    const int32_t rc =
        pool->AddJob(&RunBlockJob, &job, &results[i], &done_cond[i], &done_mutex[i], &job.done);
    if (rc == 0)
      posted[i] = true;
    else
      results[i] = rc;  // nothing to wait for; the block counts as failed
  }

  int32_t outcome = 0;
  for (int32_t i = 0; i < block_count; ++i) {
    if (posted[i]) {
      pthread_mutex_lock(&done_mutex[i]);
      while (!jobs[i].done) pthread_cond_wait(&done_cond[i], &done_mutex[i]);
      pthread_mutex_unlock(&done_mutex[i]);
    }
    if (results[i] < 0) outcome = results[i];  // the highest failing index decides
  }
  return outcome;
}

}  // namespace Vantyx
